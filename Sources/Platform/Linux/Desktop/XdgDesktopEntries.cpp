#include "Platform/Linux/Desktop/XdgDesktopEntries.h"

#include "Platform/Linux/Desktop/XdgDirectories.h"

#include <glib.h>

#include <sys/stat.h>

#include <algorithm>
#include <utility>

namespace tolvera::adapters {

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr auto longestUse = 30s;
// Two changes within one tick of the file system's clock look like one.
constexpr auto clockTick = 20ms;

std::vector<fs::path> userDirectories() {
  std::vector<fs::path> directories;
  const auto add = [&directories](fs::path directory) {
    directory = (directory / "applications").lexically_normal();
    if (std::find(directories.begin(), directories.end(), directory) == directories.end())
      directories.push_back(std::move(directory));
  };
  add(XdgDirectories::dataHome());
  for (const fs::path& directory : XdgDirectories::dataDirectories()) add(directory);
  // The environment of a session that was started from a terminal may lack the sandboxes' directories.
  add(XdgDirectories::dataHome() / "flatpak/exports/share");
  add("/var/lib/flatpak/exports/share");
  add("/var/lib/snapd/desktop");
  return directories;
}

timespec changeOf(const fs::path& directory) {
  struct stat information{};
  return ::stat(directory.c_str(), &information) == 0 ? information.st_mtim : timespec{};
}

std::chrono::system_clock::time_point timeOf(const timespec& time) {
  return std::chrono::system_clock::time_point(std::chrono::seconds(time.tv_sec) +
                                               std::chrono::nanoseconds(time.tv_nsec));
}

std::string userLanguages() {
  std::string result;
  for (const gchar* const* language = g_get_language_names(); *language; ++language)
    result.append(*language).append(":");
  return result;
}

} // namespace

XdgDesktopEntries::XdgDesktopEntries() : XdgDesktopEntries(userDirectories()) {}
XdgDesktopEntries::XdgDesktopEntries(std::vector<fs::path> directories)
    : directories_(std::move(directories)) {}

bool XdgDesktopEntries::Basis::operator==(const Basis& other) const {
  const auto same = [](const auto& left, const auto& right) {
    return left.first == right.first && left.second.tv_sec == right.second.tv_sec &&
           left.second.tv_nsec == right.second.tv_nsec;
  };
  return languages == other.languages && std::equal(directories.begin(), directories.end(),
                                                    other.directories.begin(), other.directories.end(), same);
}

// The directories of the last index with their times of change now. A new directory changes its parent's
// time.
XdgDesktopEntries::Basis XdgDesktopEntries::basis() const {
  Basis now{.languages = userLanguages(), .directories = {}};
  for (const auto& [directory, change] : basis_.directories)
    now.directories.emplace_back(directory, changeOf(directory));
  return now;
}

std::shared_ptr<const XdgDesktopIndex> XdgDesktopEntries::index() const {
  const std::lock_guard lock(mutex_);
  const auto time = std::chrono::steady_clock::now();
  if (index_ && time < expiry_ && basis() == basis_) return index_;

  // The times come first, so that a change during the reading is noticed the next time.
  Basis fresh{.languages = userLanguages(), .directories = {}};
  for (const fs::path& top : directories_) {
    fresh.directories.emplace_back(top, changeOf(top));
    std::error_code error;
    fs::recursive_directory_iterator next(top, fs::directory_options::skip_permission_denied, error);
    for (; !error && next != fs::recursive_directory_iterator(); next.increment(error))
      if (next->is_directory(error)) fresh.directories.emplace_back(next->path(), changeOf(next->path()));
  }
  const auto now = std::chrono::system_clock::now();
  const bool isSettled =
      std::none_of(fresh.directories.begin(), fresh.directories.end(),
                   [now](const auto& directory) { return timeOf(directory.second) > now - clockTick; });
  basis_ = std::move(fresh);
  index_ = std::make_shared<XdgDesktopIndex>(directories_);
  expiry_ = isSettled ? time + longestUse : time;
  return index_;
}

} // namespace tolvera::adapters
