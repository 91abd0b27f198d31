#pragma once

#include "Platform/FileManager.h"

#include <map>
#include <set>

namespace tolvera::test {

// Files in memory. A file can be written only into a directory that was made. One thread.
class InMemoryFileManager final : public platform::FileManager {
 public:
  [[nodiscard]] std::filesystem::path applicationSupportDirectory() const override { return "/support"; }
  bool createPrivateDirectory(const std::filesystem::path& directory) override;
  [[nodiscard]] std::optional<std::string> contents(const std::filesystem::path& file) const override;
  bool writePrivateFile(const std::filesystem::path& file, std::string_view content) override;
  void remove(const std::filesystem::path& file) override;

  // While true, nothing can be made, written or removed, as on a full or read-only disk.
  void setReadOnly(bool readOnly) { readOnly_ = readOnly; }
  // What is there; a test may put files in by hand.
  std::map<std::filesystem::path, std::string> files;

 private:
  std::set<std::filesystem::path> directories_;
  bool readOnly_ = false;
};

} // namespace tolvera::test
