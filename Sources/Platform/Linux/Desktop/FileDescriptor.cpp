#include "Platform/Linux/Desktop/FileDescriptor.h"

#include <array>
#include <cerrno>

namespace tolvera::adapters {

std::optional<std::string> FileDescriptor::readAll(std::size_t limit) const {
  std::string content;
  std::array<char, 8192> block;
  while (content.size() < limit) {
    const ssize_t count = ::read(fd_, block.data(), block.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    if (count == 0) break;
    content.append(block.data(), static_cast<std::size_t>(count));
  }
  return content;
}

} // namespace tolvera::adapters
