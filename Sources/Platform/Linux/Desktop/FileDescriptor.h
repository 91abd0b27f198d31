#pragma once

#include <unistd.h>

#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <utility>

namespace tolvera::adapters {

// Owns a file descriptor and closes it. Negative when there is none.
class FileDescriptor {
 public:
  explicit FileDescriptor(int fd = -1) : fd_(fd) {}
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~FileDescriptor() {
    if (fd_ >= 0) ::close(fd_);
  }

  [[nodiscard]] int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }

  // Reads to the end, or a little past `limit` bytes. Absent if a read fails.
  [[nodiscard]] std::optional<std::string>
  readAll(std::size_t limit = std::numeric_limits<std::size_t>::max()) const;

 private:
  int fd_;
};

} // namespace tolvera::adapters
