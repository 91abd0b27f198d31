#include "Platform/Linux/Desktop/XdgDirectories.h"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <optional>
#include <sstream>
#include <string>

namespace tolvera::adapters {

namespace {

std::optional<std::filesystem::path> absolutePathFrom(const char* variable) {
  const char* value = std::getenv(variable);
  if (!value || *value != '/') return std::nullopt;
  return value;
}

std::filesystem::path home() {
  if (auto path = absolutePathFrom("HOME")) return *path;
  std::array<char, 4096> buffer{};
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found && found->pw_dir)
    return found->pw_dir;
  return "/";
}

} // namespace

std::filesystem::path XdgDirectories::dataHome() {
  if (auto path = absolutePathFrom("XDG_DATA_HOME")) return *path;
  return home() / ".local/share";
}

std::filesystem::path XdgDirectories::configHome() {
  if (auto path = absolutePathFrom("XDG_CONFIG_HOME")) return *path;
  return home() / ".config";
}

std::vector<std::filesystem::path> XdgDirectories::dataDirectories() {
  const char* value = std::getenv("XDG_DATA_DIRS");
  std::istringstream listed(value && *value ? value : "/usr/local/share:/usr/share");
  std::vector<std::filesystem::path> directories;
  for (std::string directory; std::getline(listed, directory, ':');)
    if (directory.starts_with("/")) directories.emplace_back(directory);
  return directories;
}

} // namespace tolvera::adapters
