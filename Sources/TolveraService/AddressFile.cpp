#include "TolveraService/AddressFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <system_error>

namespace tolvera::service {

namespace {

[[noreturn]] void failed(const std::filesystem::path& path) {
  throw std::system_error(errno, std::generic_category(), path.string());
}

} // namespace

AddressFile::AddressFile(bool servesAllUsers) : isShared_(servesAllUsers && ::geteuid() == 0) {
  const char* const runtime = isShared_ ? "/run" : std::getenv("XDG_RUNTIME_DIR");
  if (runtime == nullptr || runtime[0] != '/') return;
  const auto directory = std::filesystem::path(runtime) / "tolvera";
  if (::mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST) failed(directory);
  if (isShared_ && ::chmod(directory.c_str(), 0755) != 0) failed(directory);
  path_ = directory / "service";
  const auto lockPath = directory / "service.lock";
  lock_ = ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (lock_ < 0) failed(lockPath);
  if (::flock(lock_, LOCK_EX | LOCK_NB) != 0) {
    ::close(lock_);
    throw std::runtime_error("Your local service is running already");
  }
}

AddressFile::~AddressFile() {
  if (lock_ < 0) return;
  ::unlink(path_.c_str());
  ::close(lock_);
}

void AddressFile::write(std::uint16_t port) {
  if (!isClaimed()) return;
  const std::string temporary = path_.string() + ".new";
  const int file = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (file < 0) failed(temporary);
  if (isShared_) ::fchmod(file, 0644); // under any umask
  const std::string text = std::to_string(port) + "\n";
  const bool written = ::write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  ::close(file);
  if (!written || ::rename(temporary.c_str(), path_.c_str()) != 0) failed(path_);
}

} // namespace tolvera::service
