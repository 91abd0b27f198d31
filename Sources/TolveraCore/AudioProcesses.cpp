#include "TolveraCore/AudioProcesses.h"

#include "TolveraCore/AudioProperty.h"

#include <boost/container_hash/hash.hpp>

#include <algorithm>
#include <map>
#include <string_view>
#include <utility>

namespace tolvera {

using platform::AudioHardware;
using platform::AudioObjectID;
using platform::RunningApplication;
using platform::RunningApplications;
using platform::systemAudioObject;
namespace selectors = platform::selectors;

namespace {

using AppsByBundleID = std::map<std::string, RunningApplication, std::less<>>;

// An application of the list for the user, with the processes found for it so far.
struct Group {
  RunningApplication owner;
  std::vector<AudioObjectID> objectIDs;
  bool isPlaying = false;
};

bool isRegular(const RunningApplication& application) {
  return application.activationPolicy == platform::ActivationPolicy::regular &&
         application.bundleIdentifier.has_value();
}

std::string displayName(const std::optional<std::string>& bundleID, std::int32_t pid,
                        const RunningApplications& applications) {
  if (bundleID) {
    if (auto name = applications.localizedDisplayName(*bundleID)) return *std::move(name);
    if (auto name = applications.bundleName(*bundleID)) return *std::move(name);
  }
  const auto application = applications.runningApplication(pid);
  if (application && application->localizedName) return *application->localizedName;
  return bundleID ? *bundleID : "pid " + std::to_string(pid);
}

AppsByBundleID regularApplications(const RunningApplications& applications) {
  AppsByBundleID table;
  for (auto& application : applications.runningApplications()) {
    if (isRegular(application)) table.insert_or_assign(*application.bundleIdentifier, application);
  }
  return table;
}

// The regular application that runs as this process. Otherwise the application with the longest identifier
// that the identifier of the process begins with, in whole pieces.
std::optional<RunningApplication> owningApp(const AudioProcessInfo& process, const AppsByBundleID& table,
                                            const RunningApplications& applications) {
  auto itself = applications.runningApplication(process.pid);
  if (itself && isRegular(*itself)) return itself;
  if (!process.bundleID) return std::nullopt;

  // The identifier is cut at its last point again and again, so the first hit is the longest.
  std::string_view identifier = *process.bundleID;
  while (true) {
    if (const auto found = table.find(identifier); found != table.end()) return found->second;
    const auto point = identifier.rfind('.');
    if (point == std::string_view::npos) return std::nullopt;
    identifier = identifier.substr(0, point);
  }
}

// The order is that of their first processes in the server's list, so that equal names always sort the same.
std::vector<Group> groupsByOwner(const AudioHardware& hardware, const RunningApplications& applications) {
  const AppsByBundleID table = regularApplications(applications);
  std::vector<Group> groups;
  for (const AudioProcessInfo& process : AudioProcesses::list(hardware, applications)) {
    if (process.pid == hardware.processIdentifier()) continue;
    auto owner = owningApp(process, table, applications);
    if (!owner) continue;
    auto group = std::find_if(groups.begin(), groups.end(), [&owner](const Group& candidate) {
      return candidate.owner.bundleIdentifier == owner->bundleIdentifier;
    });
    if (group == groups.end()) group = groups.insert(group, Group{*std::move(owner), {}, false});
    group->objectIDs.push_back(process.id);
    group->isPlaying |= process.isPlaying;
  }
  return groups;
}

} // namespace

std::vector<AudioProcessInfo> AudioProcesses::list(const AudioHardware& hardware,
                                                   const RunningApplications& applications) {
  const auto objects =
      audioProperty<std::vector<AudioObjectID>>(hardware, systemAudioObject, selectors::processObjectList);
  std::vector<AudioProcessInfo> processes;
  for (const AudioObjectID object : objects.value_or(std::vector<AudioObjectID>())) {
    const auto pid = audioProperty<std::int32_t>(hardware, object, selectors::processID).value_or(-1);
    if (pid < 1) continue;
    auto bundleID = string(hardware, object, selectors::bundleID);
    auto name = displayName(bundleID, pid, applications);
    const auto playing = audioProperty<std::uint32_t>(hardware, object, selectors::isRunningOutput);
    processes.push_back({.id = object,
                         .pid = pid,
                         .bundleID = std::move(bundleID),
                         .name = std::move(name),
                         .isPlaying = playing.value_or(0) != 0});
  }
  return processes;
}

std::vector<AudioApp> AudioProcesses::userApps(const AudioHardware& hardware,
                                               const RunningApplications& applications,
                                               const platform::Locale& locale) {
  std::vector<AudioApp> apps;
  for (Group& group : groupsByOwner(hardware, applications)) {
    const std::string& bundleID = *group.owner.bundleIdentifier;
    std::string name = group.owner.localizedName.value_or(bundleID);
    if (name.empty()) continue;
    apps.push_back({.bundleID = bundleID,
                    .name = std::move(name),
                    .isPlaying = group.isPlaying,
                    .objectIDs = std::move(group.objectIDs)});
  }
  std::stable_sort(apps.begin(), apps.end(), [&locale](const AudioApp& left, const AudioApp& right) {
    if (left.isPlaying != right.isPlaying) return left.isPlaying;
    return locale.localizedCaseInsensitiveCompare(left.name, right.name) < 0;
  });
  return apps;
}

std::optional<AudioObjectID> AudioProcesses::object(const AudioHardware& hardware, std::int32_t pid) {
  const auto object =
      audioProperty<std::uint32_t>(hardware, systemAudioObject, selectors::processObjectForPID, pid);
  return object == platform::noAudioObject ? std::nullopt : object;
}

std::optional<std::string> AudioProcesses::string(const AudioHardware& hardware, AudioObjectID object,
                                                  std::uint32_t selector) {
  return audioProperty<std::string>(hardware, object, selector);
}

} // namespace tolvera

std::size_t std::hash<tolvera::AudioProcessInfo>::operator()(const tolvera::AudioProcessInfo& process) const {
  std::size_t seed = 0;
  boost::hash_combine(seed, process.id);
  boost::hash_combine(seed, process.pid);
  boost::hash_combine(seed, process.bundleID.has_value());
  boost::hash_combine(seed, process.bundleID.value_or(""));
  boost::hash_combine(seed, process.name);
  boost::hash_combine(seed, process.isPlaying);
  return seed;
}

std::size_t std::hash<tolvera::AudioApp>::operator()(const tolvera::AudioApp& app) const {
  std::size_t seed = 0;
  boost::hash_combine(seed, app.bundleID);
  boost::hash_combine(seed, app.name);
  boost::hash_combine(seed, app.isPlaying);
  boost::hash_combine(seed, app.objectIDs);
  return seed;
}
