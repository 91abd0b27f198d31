#include "Platform/Linux/Desktop/XdgDesktopIndex.h"

#include "Platform/Linux/Desktop/XdgPrograms.h"

#include <glib.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <set>
#include <sstream>

namespace tolvera::adapters {

namespace {

namespace fs = std::filesystem;

constexpr const char* group = "Desktop Entry";
constexpr std::string_view extension = ".desktop";

// A file of entries, by its keys.
class KeyFile {
 public:
  // Empty if the file cannot be read or is none.
  explicit KeyFile(const fs::path& file) : file_(g_key_file_new(), g_key_file_unref) {
    g_key_file_load_from_file(file_.get(), file.c_str(), G_KEY_FILE_KEEP_TRANSLATIONS, nullptr);
  }

  [[nodiscard]] std::optional<std::string> text(const char* key) const {
    return owned(g_key_file_get_string(file_.get(), group, key, nullptr));
  }
  [[nodiscard]] std::optional<std::string> localizedText(const char* key) const {
    return owned(g_key_file_get_locale_string(file_.get(), group, key, nullptr, nullptr));
  }
  [[nodiscard]] bool flag(const char* key) const {
    return g_key_file_get_boolean(file_.get(), group, key, nullptr) != 0;
  }
  [[nodiscard]] std::optional<std::set<std::string, std::less<>>> list(const char* key) const {
    gsize count = 0;
    const std::unique_ptr<gchar*, void (*)(gchar**)> texts(
        g_key_file_get_string_list(file_.get(), group, key, &count, nullptr), g_strfreev);
    if (!texts) return std::nullopt;
    return std::set<std::string, std::less<>>(texts.get(), texts.get() + count);
  }

 private:
  static std::optional<std::string> owned(gchar* text) {
    const std::unique_ptr<gchar, void (*)(gpointer)> owner(text, g_free);
    return text ? std::optional<std::string>(text) : std::nullopt;
  }

  std::unique_ptr<GKeyFile, void (*)(GKeyFile*)> file_;
};

// Whether the entry is meant for the desktop that runs, whose names come most important first.
bool isForThisDesktop(const KeyFile& file) {
  const auto only = file.list("OnlyShowIn");
  const auto never = file.list("NotShowIn");
  const char* current = std::getenv("XDG_CURRENT_DESKTOP");
  std::istringstream desktops(current ? current : "");
  for (std::string desktop; std::getline(desktops, desktop, ':');) {
    if (only && only->contains(desktop)) return true;
    if (never && never->contains(desktop)) return false;
  }
  return !only;
}

// Directories that belong to many programs say nothing about whose a file there is.
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

// How well a process's arguments fit the entry's: what stands in both less what the process lacks. Absent if
// it lacks a word that is no option, as that makes it another application of a common program: `python3
// FILE`.
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
  const KeyFile keys(file);
  if (keys.text("Type") != "Application") return;
  auto& place = entries_[id];
  if (keys.flag("Hidden")) return;
  if (const auto needed = keys.text("TryExec"); needed && !XdgPrograms::resolved(*needed)) return;

  const bool isVisible = !keys.flag("NoDisplay") && isForThisDesktop(keys);
  auto& entry = place.emplace(XdgDesktopEntry{.id = std::move(id),
                                              .name = keys.localizedText("Name"),
                                              .plainName = keys.text("Name"),
                                              .isVisible = isVisible,
                                              .program = {},
                                              .arguments = {}});
  auto command = XdgPrograms::command(keys.text("Exec").value_or(""));
  if (!command) return;
  const auto program = XdgPrograms::resolved(command->name);
  if (!program) return;
  entry.program = *program;
  entry.arguments = std::move(command->arguments);
  addProgram(entry, fs::path(command->name).filename());
}

void XdgDesktopIndex::addProgram(const XdgDesktopEntry& entry, const std::string& name) {
  const fs::path program = entry.program;
  // All snaps are started by one program; their processes are known by other signs.
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

bool XdgDesktopIndex::knows(const std::string& executable) const {
  const fs::path file = executable;
  return byProgram_.contains(executable) || interpreters_.contains(executable) ||
         byName_.contains(file.filename()) || byDirectory_.contains(file.parent_path());
}

} // namespace tolvera::adapters
