#include "Platform/Linux/Desktop/XdgDesktopIndex.h"

#include "Platform/Linux/Desktop/GlibOwner.h"
#include "Platform/Linux/Desktop/XdgPrograms.h"

#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace tolvera::adapters {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view extension = ".desktop";

// Many programs have their files in a shared directory, so it does not identify one of them.
bool isShared(const fs::path& directory) {
  const char* home = std::getenv("HOME");
  if (!directory.has_relative_path() || (home && directory == home)) return true;
  const char* path = std::getenv("PATH");
  std::istringstream searched(path ? path : "");
  std::error_code error;
  for (std::string place; std::getline(searched, place, ':');)
    if (fs::equivalent(place, directory, error)) return true;
  return false;
}

// How well a process's arguments fit the entry's: the common ones less those that the process lacks. Absent
// if it lacks one that is no option: `python3 FILE` is an application of its own for each FILE.
std::optional<int> fit(const XdgDesktopEntry& entry, std::span<const std::string> arguments) {
  int result = 0;
  for (const std::string& argument : entry.arguments) {
    if (std::find(arguments.begin(), arguments.end(), argument) != arguments.end())
      ++result;
    else if (argument.starts_with("-"))
      --result;
    else
      return std::nullopt;
  }
  return result;
}

} // namespace

XdgDesktopIndex::XdgDesktopIndex(std::span<const fs::path> directories)
    : directories_(directories.begin(), directories.end()) {
  for (const fs::path& directory : directories_) addDirectory(directory);
}

void XdgDesktopIndex::addDirectory(const fs::path& directory) {
  std::error_code error;
  fs::recursive_directory_iterator next(directory, fs::directory_options::skip_permission_denied, error);
  for (; !error && next != fs::recursive_directory_iterator(); next.increment(error)) {
    const fs::path& file = next->path();
    if (file.extension() != extension) continue;
    std::string id = file.lexically_relative(directory).replace_extension().string();
    std::replace(id.begin(), id.end(), '/', '-');
    if (!entries_.contains(id)) addFile(file, std::move(id));
  }
}

void XdgDesktopIndex::addFile(const fs::path& file, std::string id) {
  auto& place = entries_[id];
  // Null for an entry that is broken, is no application, or whose program is not installed.
  const GlibObject<GDesktopAppInfo> info(g_desktop_app_info_new_from_filename(file.c_str()));
  if (!info || g_desktop_app_info_get_is_hidden(info.get())) return;

  auto* const application = G_APP_INFO(info.get());
  auto& entry = place.emplace(
      XdgDesktopEntry{.id = std::move(id),
                      .name = takeText(g_desktop_app_info_get_locale_string(info.get(), "Name")),
                      .plainName = takeText(g_desktop_app_info_get_string(info.get(), "Name")),
                      .isVisible = g_app_info_should_show(application) != FALSE,
                      .program = {},
                      .arguments = {}});
  const char* const commandLine = g_app_info_get_commandline(application);
  auto command = XdgPrograms::command(commandLine ? commandLine : "");
  if (!command) return;
  const auto program = XdgPrograms::resolved(command->name);
  if (!program) return;
  entry.program = *program;
  entry.arguments = std::move(command->arguments);
  addProgram(entry, fs::path(command->name).filename());
}

void XdgDesktopIndex::addProgram(const XdgDesktopEntry& entry, const std::string& name) {
  const fs::path program = entry.program;
  // One program starts all snaps; their processes are identified by unit and environment.
  if (program.filename() == "snap" && name != "snap") return;
  byProgram_[entry.program].push_back(&entry);
  const auto interpreter = XdgPrograms::interpreter(entry.program);
  if (!interpreter) return;
  interpreters_.insert(*interpreter);
  byName_[name].push_back(&entry);
  if (program.filename() != name) byName_[program.filename()].push_back(&entry);
  if (!isShared(program.parent_path())) byDirectory_[program.parent_path()].push_back(&entry);
}

const XdgDesktopEntry* XdgDesktopIndex::entry(std::string_view id) const {
  const auto found = entries_.find(id);
  return found == entries_.end() || !found->second ? nullptr : &*found->second;
}

const XdgDesktopEntry* XdgDesktopIndex::entryOfFile(const fs::path& file) const {
  if (file.extension() != extension) return nullptr;
  for (const fs::path& directory : directories_) {
    const fs::path relative = file.lexically_relative(directory);
    if (relative.empty() || *relative.begin() == "..") continue;
    std::string id = fs::path(relative).replace_extension().string();
    std::replace(id.begin(), id.end(), '/', '-');
    return entry(id);
  }
  return entry(file.stem().string());
}

std::vector<const XdgDesktopEntry*> XdgDesktopIndex::entriesOf(const std::string& program,
                                                               std::span<const std::string> arguments) const {
  const fs::path file = program;
  const std::vector<const XdgDesktopEntry*>* found = nullptr;
  const auto lookUp = [&found](const Entries& entries, const std::string& key) {
    if (found) return;
    if (const auto place = entries.find(key); place != entries.end()) found = &place->second;
  };
  lookUp(byProgram_, program);
  lookUp(byName_, file.filename());
  lookUp(byDirectory_, file.parent_path());
  if (!found) return {};

  std::vector<std::pair<int, const XdgDesktopEntry*>> candidates;
  for (const XdgDesktopEntry* entry : *found)
    if (const auto score = fit(*entry, arguments)) candidates.emplace_back(*score, entry);
  std::stable_sort(candidates.begin(), candidates.end(), [](const auto& left, const auto& right) {
    if (left.second->isVisible != right.second->isVisible) return left.second->isVisible;
    return left.first > right.first;
  });
  std::vector<const XdgDesktopEntry*> result;
  result.reserve(candidates.size());
  for (const auto& [score, entry] : candidates) result.push_back(entry);
  return result;
}

bool XdgDesktopIndex::needsArguments(const std::string& executable) const {
  const fs::path file = executable;
  return byProgram_.contains(executable) || interpreters_.contains(executable) ||
         byName_.contains(file.filename()) || byDirectory_.contains(file.parent_path());
}

} // namespace tolvera::adapters
