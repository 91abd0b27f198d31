#pragma once

#include "Platform/Linux/Desktop/XdgDesktopIndex.h"

#include <chrono>
#include <ctime>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace tolvera::adapters {

// The applications that are installed now, read once and kept until a directory of entries changes. A change
// of an entry's own file or program is noticed within half a minute. Any thread.
class XdgDesktopEntries {
 public:
  // With the directories of the user's environment.
  XdgDesktopEntries();
  explicit XdgDesktopEntries(std::vector<std::filesystem::path> directories);

  [[nodiscard]] std::shared_ptr<const XdgDesktopIndex> index() const;

 private:
  // What the index was made from.
  struct Basis {
    std::string languages;
    std::vector<std::pair<std::string, timespec>>
        directories; // with their times of change; zero if not there

    bool operator==(const Basis& other) const;
  };

  [[nodiscard]] Basis basis() const;

  std::vector<std::filesystem::path> directories_;
  mutable std::mutex mutex_;
  mutable std::shared_ptr<const XdgDesktopIndex> index_;
  mutable Basis basis_;
  mutable std::chrono::steady_clock::time_point expiry_;
};

} // namespace tolvera::adapters
