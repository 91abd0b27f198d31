#pragma once

#include "Platform/FileManager.h"

namespace tolvera::adapters {

// Files by system calls and GLib. Has no state; any thread. A process that is killed while it writes may
// leave a temporary file of mode 600 beside the file.
class PosixFileManager final : public platform::FileManager {
 public:
  [[nodiscard]] std::filesystem::path applicationSupportDirectory() const override;
  bool createPrivateDirectory(const std::filesystem::path& directory) override;
  [[nodiscard]] std::optional<std::string> contents(const std::filesystem::path& file) const override;
  bool writePrivateFile(const std::filesystem::path& file, std::string_view content) override;
  void remove(const std::filesystem::path& file) override;
};

} // namespace tolvera::adapters
