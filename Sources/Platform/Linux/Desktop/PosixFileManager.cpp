#include "Platform/Linux/Desktop/PosixFileManager.h"

#include "Platform/Linux/Desktop/FileDescriptor.h"
#include "Platform/Linux/Desktop/XdgDirectories.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

namespace tolvera::adapters {

namespace {

constexpr mode_t ownerOnlyFile = 0600;
constexpr mode_t ownerOnlyDirectory = 0700;

bool writeAll(int fd, std::string_view content) {
  while (!content.empty()) {
    const ssize_t written = ::write(fd, content.data(), content.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    content.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

// A new file in a directory, on its way to replace another. It has no name until it is complete, so that
// a process that dies half-way leaves nothing behind; where the file system cannot do that, it has a
// temporary one from the start. Unless it is moved into place it is gone in the end.
class Replacement {
 public:
  explicit Replacement(int directory) : directory_(directory) {
    fd_ = FileDescriptor(::openat(directory, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, ownerOnlyFile));
    if (fd_) return;
    named_ = withFreshName([this] {
      fd_ = FileDescriptor(::openat(directory_, name_.c_str(),
                                    O_CREAT | O_EXCL | O_NOFOLLOW | O_WRONLY | O_CLOEXEC, ownerOnlyFile));
      return bool(fd_);
    });
  }
  Replacement(const Replacement&) = delete;
  Replacement& operator=(const Replacement&) = delete;
  ~Replacement() {
    if (named_) ::unlinkat(directory_, name_.c_str(), 0);
  }

  bool write(std::string_view content) {
    // The process's mask may have taken rights from the owner too.
    return fd_ && ::fchmod(fd_.get(), ownerOnlyFile) == 0 && writeAll(fd_.get(), content) &&
           ::fsync(fd_.get()) == 0;
  }

  bool moveTo(const std::string& name) {
    if (!named_) {
      const std::string self = "/proc/self/fd/" + std::to_string(fd_.get());
      named_ = withFreshName([&] {
        return ::linkat(AT_FDCWD, self.c_str(), directory_, name_.c_str(), AT_SYMLINK_FOLLOW) == 0;
      });
    }
    if (!named_ || ::renameat(directory_, name_.c_str(), directory_, name.c_str()) != 0) return false;
    named_ = false;
    return true;
  }

 private:
  template<typename Operation>
  bool withFreshName(Operation operation) {
    static std::atomic<unsigned> counter;
    for (int attempt = 0; attempt < 100; ++attempt) {
      name_ = ".tolvera-" + std::to_string(::getpid()) + "-" + std::to_string(counter++) + ".tmp";
      if (operation()) return true;
      if (errno != EEXIST) return false;
    }
    return false;
  }

  int directory_;
  FileDescriptor fd_;
  std::string name_;
  bool named_ = false;
};

// A file that could not be replaced stays, but is for its owner alone from now on.
void narrow(int directory, const std::string& name) {
  struct stat status{};
  if (::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(status.st_mode))
    ::fchmodat(directory, name.c_str(), ownerOnlyFile, 0);
}

} // namespace

std::filesystem::path PosixFileManager::applicationSupportDirectory() const {
  return XdgDirectories::dataHome();
}

bool PosixFileManager::createPrivateDirectory(const std::filesystem::path& directory) {
  struct stat status{};
  if (::stat(directory.c_str(), &status) != 0) {
    const auto parent = directory.parent_path();
    if (::stat(parent.c_str(), &status) != 0 && (parent == directory || !createPrivateDirectory(parent)))
      return false;
    if (::mkdir(directory.c_str(), ownerOnlyDirectory) != 0 && errno != EEXIST) return false;
    if (::stat(directory.c_str(), &status) != 0) return false;
  }
  if (!S_ISDIR(status.st_mode)) return false;
  if ((status.st_mode & 07777) != ownerOnlyDirectory) ::chmod(directory.c_str(), ownerOnlyDirectory);
  return true;
}

std::optional<std::string> PosixFileManager::contents(const std::filesystem::path& file) const {
  // Not blocking, so that a pipe in the file's place cannot hold the program up.
  const FileDescriptor fd(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status{};
  if (!fd || ::fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;

  std::string content;
  char block[4096];
  for (;;) {
    const ssize_t got = ::read(fd.get(), block, sizeof block);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return std::nullopt;
    if (got == 0) return content;
    content.append(block, static_cast<std::size_t>(got));
  }
}

bool PosixFileManager::writePrivateFile(const std::filesystem::path& file, std::string_view content) {
  const std::string name = file.filename();
  const FileDescriptor directory(::open(file.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory || name.empty()) return false;

  Replacement replacement(directory.get());
  if (!replacement.write(content) || !replacement.moveTo(name)) {
    narrow(directory.get(), name);
    return false;
  }
  return ::fsync(directory.get()) == 0;
}

void PosixFileManager::remove(const std::filesystem::path& file) { ::unlink(file.c_str()); }

} // namespace tolvera::adapters
