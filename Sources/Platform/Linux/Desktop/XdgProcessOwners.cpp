#include "Platform/Linux/Desktop/XdgProcessOwners.h"

#include "Platform/Linux/Desktop/GlibOwner.h"
#include "Platform/Linux/Desktop/XdgPrograms.h"
#include "Platform/Linux/Desktop/XdgUnitNames.h"

#include <glib.h>

#include <algorithm>
#include <filesystem>

namespace tolvera::adapters {

namespace {

namespace fs = std::filesystem;

// An interpreter's arguments hold few options before the script.
constexpr std::size_t mostOptionsBeforeScript = 4;

std::optional<std::string_view> variable(const std::vector<std::string>& environment, std::string_view name) {
  for (const std::string_view entry : environment)
    if (entry.starts_with(name) && entry.substr(name.size()).starts_with('='))
      return entry.substr(name.size() + 1);
  return std::nullopt;
}

std::optional<std::string> sandboxedApplication(const std::string& description) {
  const std::unique_ptr<GKeyFile, GlibRelease<g_key_file_unref>> keys(g_key_file_new());
  if (!g_key_file_load_from_data(keys.get(), description.data(), description.size(), G_KEY_FILE_NONE,
                                 nullptr))
    return std::nullopt;
  return takeText(g_key_file_get_string(keys.get(), "Application", "name", nullptr));
}

bool contains(const std::vector<const XdgDesktopEntry*>& entries, const XdgDesktopEntry* entry) {
  return std::find(entries.begin(), entries.end(), entry) != entries.end();
}

} // namespace

XdgProcessOwners::Node& XdgProcessOwners::node(std::int32_t pid) {
  const auto [place, isNew] = nodes_.try_emplace(pid);
  if (isNew) place->second.status = processes_.status(pid);
  return place->second;
}

std::optional<std::int32_t> XdgProcessOwners::parent(std::int32_t pid) {
  const auto child = node(pid).status;
  if (!child) return std::nullopt;
  const auto parent = node(child->parent).status;
  // A younger process may have the number of a parent that ended.
  if (!parent || parent->startTime > child->startTime) return std::nullopt;
  return parent->pid;
}

const XdgDesktopEntry* XdgProcessOwners::application(std::int32_t pid) {
  Node& process = node(pid);
  if (!process.application) {
    process.application = nullptr; // ends the search if processes that change meanwhile form a circle
    process.application = process.status ? identify(pid) : nullptr;
  }
  return *process.application;
}

const XdgDesktopEntry* XdgProcessOwners::nearestAncestor(std::int32_t pid, bool visibleOnly) {
  std::vector<std::int32_t> passed{pid};
  for (auto ancestor = parent(pid); ancestor; ancestor = parent(*ancestor)) {
    if (std::find(passed.begin(), passed.end(), *ancestor) != passed.end()) return nullptr;
    passed.push_back(*ancestor);
    const XdgDesktopEntry* entry = application(*ancestor);
    if (entry && (entry->isVisible || !visibleOnly)) return entry;
  }
  return nullptr;
}

const XdgDesktopEntry* XdgProcessOwners::mainApplication(std::int32_t pid) {
  const XdgDesktopEntry* entry = application(pid);
  return entry && nearestAncestor(pid, false) != entry ? entry : nullptr;
}

const XdgDesktopEntry* XdgProcessOwners::visibleAncestor(std::int32_t pid) {
  return nearestAncestor(pid, true);
}

const XdgDesktopEntry* XdgProcessOwners::identify(std::int32_t pid) {
  const auto environment = processes_.environment(pid);
  // Children inherit the variables, so a second one names the process that they are for.
  if (variable(environment, "GIO_LAUNCHED_DESKTOP_FILE_PID") == std::to_string(pid))
    if (const auto file = variable(environment, "GIO_LAUNCHED_DESKTOP_FILE"))
      if (const auto* entry = index_->entryOfFile(*file)) return entry;

  if (const auto sandbox = processes_.fileInside(pid, "/.flatpak-info")) {
    // Paths inside the sandbox are not those outside, so its program does not identify it.
    const auto application = sandboxedApplication(*sandbox);
    const auto* entry = application ? index_->entry(*application) : nullptr;
    return entry ? entry : byUnit(pid).entry;
  }
  if (const auto* entry = byProgramAndUnit(pid, byProgram(pid))) return entry;
  if (const auto snap = variable(environment, "SNAP_INSTANCE_NAME")) {
    const std::string name(*snap);
    return index_->entry(name + "_" + name);
  }
  return nullptr;
}

const XdgDesktopEntry* XdgProcessOwners::byProgramAndUnit(std::int32_t pid, const Entries& programs) {
  const Unit unit = byUnit(pid);
  if (programs.empty()) return unit.entry;
  const auto parentPid = parent(pid);
  const bool isFirstInUnit = unit.isInner && (!parentPid || byUnit(*parentPid).entry != unit.entry);
  if (isFirstInUnit) return unit.entry;
  const XdgDesktopEntry* ancestor = nearestAncestor(pid, false);
  if (ancestor && contains(programs, ancestor)) return ancestor;
  return contains(programs, unit.entry) ? unit.entry : programs.front();
}

XdgProcessOwners::Unit XdgProcessOwners::byUnit(std::int32_t pid) {
  Node& process = node(pid);
  if (process.unit) return *process.unit;
  const auto group = process.status ? processes_.controlGroup(pid) : std::nullopt;
  const std::string_view path = group ? std::string_view(*group) : std::string_view();
  const auto installed = [this](std::string_view units) -> const XdgDesktopEntry* {
    for (const std::string& id : XdgUnitNames::applicationIDs(units))
      if (const auto* entry = index_->entry(id)) return entry;
    return nullptr;
  };
  const auto* inner = installed(path.substr(path.rfind('/') + 1));
  process.unit = Unit{.entry = inner ? inner : installed(path), .isInner = inner != nullptr};
  return *process.unit;
}

XdgProcessOwners::Entries XdgProcessOwners::byProgram(std::int32_t pid) const {
  const auto executable = processes_.executable(pid);
  if (!executable || !index_->needsArguments(*executable)) return {};
  const auto arguments = processes_.arguments(pid);
  const auto file = script(pid, *executable, arguments);
  if (file)
    if (auto entries = index_->entriesOf(*file, arguments); !entries.empty()) return entries;
  Entries entries = index_->entriesOf(*executable, arguments);
  // A process that runs a script is not the application of the bare interpreter.
  if (file) std::erase_if(entries, [](const XdgDesktopEntry* entry) { return entry->arguments.empty(); });
  return entries;
}

std::optional<std::string> XdgProcessOwners::script(std::int32_t pid, const std::string& executable,
                                                    const std::vector<std::string>& arguments) const {
  const std::size_t end = std::min(arguments.size(), mostOptionsBeforeScript + 1);
  for (std::size_t index = 1; index < end; ++index) {
    if (arguments[index].starts_with("-")) continue;
    const fs::path directory = processes_.workingDirectory(pid).value_or("/");
    std::error_code error;
    const auto file = fs::canonical(directory / arguments[index], error);
    if (error || XdgPrograms::interpreter(file) != executable) return std::nullopt;
    return file.string();
  }
  return std::nullopt;
}

} // namespace tolvera::adapters
