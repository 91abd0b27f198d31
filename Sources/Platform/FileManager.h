#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace tolvera::platform {

// The files that the program keeps for its user. Synchronous; any thread.
class FileManager {
 public:
  virtual ~FileManager() = default;

  // Where an application keeps the files that it must not lose. It may not exist yet.
  [[nodiscard]] virtual std::filesystem::path applicationSupportDirectory() const = 0;
  // Makes `directory` and its parents. Only its owner can read it, from its first moment; an existing one is
  // closed to others. True if it exists afterwards.
  virtual bool createPrivateDirectory(const std::filesystem::path& directory) = 0;
  // The whole file; nothing if it cannot be read. One that others could read is closed to them.
  [[nodiscard]] virtual std::optional<std::string> contents(const std::filesystem::path& file) const = 0;
  // Replaces `file` by one with this content, whole and on disk, or not at all. Only its owner can read it,
  // from its first moment. A symbolic link in its place is replaced. True on success.
  virtual bool writePrivateFile(const std::filesystem::path& file, std::string_view content) = 0;
  // Removes the file if it is there.
  virtual void remove(const std::filesystem::path& file) = 0;
};

} // namespace tolvera::platform
