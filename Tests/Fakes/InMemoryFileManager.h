#pragma once

#include "Platform/FileManager.h"

#include <map>
#include <set>

namespace tolvera::test {

// Files in memory. A file can be written only into a directory that was made. One thread.
class InMemoryFileManager final : public platform::FileManager {
 public:
  [[nodiscard]] std::filesystem::path applicationSupportDirectory() const override { return "/support"; }
  bool createPrivateDirectory(const std::filesystem::path& directory) override {
    if (!readOnly) directories_.insert(directory);
    return directories_.contains(directory);
  }
  [[nodiscard]] std::optional<std::string> contents(const std::filesystem::path& file) const override {
    const auto found = files.find(file);
    return found == files.end() ? std::nullopt : std::optional(found->second);
  }
  bool writePrivateFile(const std::filesystem::path& file, std::string_view content) override {
    if (readOnly || !directories_.contains(file.parent_path())) return false;
    files[file] = content;
    return true;
  }
  void remove(const std::filesystem::path& file) override { files.erase(file); }

  bool readOnly = false; // while true, nothing can be written, as on a full disk
  std::map<std::filesystem::path, std::string> files;

 private:
  std::set<std::filesystem::path> directories_;
};

} // namespace tolvera::test
