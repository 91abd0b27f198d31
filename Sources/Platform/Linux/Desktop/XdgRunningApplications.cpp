#include "Platform/Linux/Desktop/XdgRunningApplications.h"

#include "Async/Log.h"
#include "Platform/Linux/Desktop/XdgProcessOwners.h"

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

namespace tolvera::adapters {

using platform::RunningApplication;

namespace {

RunningApplication application(std::int32_t pid, const XdgDesktopEntry& entry) {
  return {.processIdentifier = pid,
          .activationPolicy =
              entry.isVisible ? platform::ActivationPolicy::regular : platform::ActivationPolicy::accessory,
          .bundleIdentifier = entry.id,
          .localizedName = entry.name};
}

bool isOlder(const ProcessTable::Status& left, const ProcessTable::Status& right) {
  return std::tie(left.startTime, left.pid) < std::tie(right.startTime, right.pid);
}

} // namespace

XdgRunningApplications::XdgRunningApplications(std::vector<std::filesystem::path> entries,
                                               std::filesystem::path processes)
    : processes_(std::move(processes)), entries_(std::move(entries)) {}

std::vector<RunningApplication> XdgRunningApplications::runningApplications() const {
  const auto index = entries_.index();
  XdgProcessOwners owners(processes_, index);
  std::map<const XdgDesktopEntry*, ProcessTable::Status> oldest;
  for (const std::int32_t pid : processes_.processes()) {
    const XdgDesktopEntry* entry = owners.mainApplication(pid);
    if (!entry) continue;
    const auto status = owners.status(pid);
    const auto [place, isNew] = oldest.try_emplace(entry, *status);
    if (!isNew && isOlder(*status, place->second)) place->second = *status;
  }
  std::vector<std::pair<ProcessTable::Status, const XdgDesktopEntry*>> sorted;
  sorted.reserve(oldest.size());
  for (const auto& [entry, status] : oldest) sorted.emplace_back(status, entry);
  std::sort(sorted.begin(), sorted.end(),
            [](const auto& left, const auto& right) { return isOlder(left.first, right.first); });
  std::vector<RunningApplication> result;
  result.reserve(sorted.size());
  for (const auto& [status, entry] : sorted) result.push_back(application(status.pid, *entry));
  return result;
}

std::optional<RunningApplication> XdgRunningApplications::runningApplication(std::int32_t pid) const {
  const auto index = entries_.index();
  const XdgDesktopEntry* entry = XdgProcessOwners(processes_, index).mainApplication(pid);
  return entry ? std::optional(application(pid, *entry)) : std::nullopt;
}

std::optional<std::string> XdgRunningApplications::localizedDisplayName(std::string_view bundleID) const {
  const auto index = entries_.index();
  const XdgDesktopEntry* entry = index->entry(bundleID);
  return entry ? entry->name : std::nullopt;
}

std::optional<std::string> XdgRunningApplications::bundleName(std::string_view bundleID) const {
  const auto index = entries_.index();
  const XdgDesktopEntry* entry = index->entry(bundleID);
  return entry ? entry->plainName : std::nullopt;
}

std::optional<std::string> XdgRunningApplications::bundleIdentifier(std::int32_t pid) const {
  constexpr const char* helper = ".helper";
  const auto index = entries_.index();
  XdgProcessOwners owners(processes_, index);
  const XdgDesktopEntry* entry = owners.application(pid);
  if (entry && entry->isVisible) return owners.mainApplication(pid) ? entry->id : entry->id + helper;
  // A part of the desktop that no menu shows counts for the application that started it.
  if (const XdgDesktopEntry* visible = owners.visibleAncestor(pid)) return visible->id + helper;
  if (entry) return entry->id;
  log::trace(log::Category::sound, "process ", pid,
             owners.status(pid) ? " belongs to no application" : " is gone or another user's");
  return std::nullopt;
}

} // namespace tolvera::adapters
