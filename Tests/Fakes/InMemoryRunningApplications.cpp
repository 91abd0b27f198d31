#include "Fakes/InMemoryRunningApplications.h"

#include <algorithm>
#include <utility>

namespace tolvera::test {

using platform::RunningApplication;

namespace {

std::optional<std::string> found(const std::map<std::string, std::string, std::less<>>& names,
                                 std::string_view bundleID) {
  const auto entry = names.find(bundleID);
  return entry == names.end() ? std::nullopt : std::optional(entry->second);
}

} // namespace

void InMemoryRunningApplications::addRegular(std::int32_t pid, const std::string& bundleID,
                                             std::optional<std::string> name) {
  running.push_back({.processIdentifier = pid,
                     .activationPolicy = platform::ActivationPolicy::regular,
                     .bundleIdentifier = bundleID,
                     .localizedName = std::move(name)});
}

std::optional<RunningApplication> InMemoryRunningApplications::runningApplication(std::int32_t pid) const {
  const auto entry =
      std::find_if(running.begin(), running.end(), [pid](const RunningApplication& application) {
        return application.processIdentifier == pid;
      });
  return entry == running.end() ? std::nullopt : std::optional(*entry);
}

std::optional<std::string>
InMemoryRunningApplications::localizedDisplayName(std::string_view bundleID) const {
  return found(displayNames, bundleID);
}

std::optional<std::string> InMemoryRunningApplications::bundleName(std::string_view bundleID) const {
  return found(bundleNames, bundleID);
}

} // namespace tolvera::test
