#include "Platform/Linux/Desktop/PosixFileManager.h"

#include "Async/Log.h"
#include "Platform/Linux/Desktop/FileDescriptor.h"
#include "Platform/Linux/Desktop/XdgDirectories.h"

#include <glib.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace tolvera::adapters {

namespace {

constexpr mode_t ownerOnlyFile = 0600;
constexpr mode_t ownerOnlyDirectory = 0700;
constexpr mode_t permissions = 07777;
constexpr mode_t othersRights = 0077;

// Gives a regular file its mode back: it may be an old one that others could read, or a new one from which
// the process's mask took the owner's rights too.
void restrictToOwner(const std::filesystem::path& file) {
  struct stat status{};
  if (::lstat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return;
  if ((status.st_mode & permissions) == ownerOnlyFile) return;
  ::chmod(file.c_str(), ownerOnlyFile);
  log::warn(log::Category::account, "mode of ", file.native(), " set to 600");
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
  if ((status.st_mode & permissions) != ownerOnlyDirectory) ::chmod(directory.c_str(), ownerOnlyDirectory);
  return true;
}

std::optional<std::string> PosixFileManager::contents(const std::filesystem::path& file) const {
  // A pipe in the file's place must not block the program.
  const FileDescriptor fd(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status{};
  if (!fd || ::fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  if ((status.st_mode & othersRights) != 0) restrictToOwner(file);
  return fd.readAll();
}

bool PosixFileManager::writePrivateFile(const std::filesystem::path& file, std::string_view content) {
  if (!file.has_filename()) return false;
  // GLib writes a temporary file beside it, syncs it, and renames it over the old one or over a link.
  constexpr int flags = G_FILE_SET_CONTENTS_CONSISTENT | G_FILE_SET_CONTENTS_DURABLE;
  const bool written =
      g_file_set_contents_full(file.c_str(), content.data(), static_cast<gssize>(content.size()),
                               static_cast<GFileSetContentsFlags>(flags), ownerOnlyFile, nullptr) != FALSE;
  restrictToOwner(file);
  return written;
}

void PosixFileManager::remove(const std::filesystem::path& file) { ::unlink(file.c_str()); }

} // namespace tolvera::adapters
