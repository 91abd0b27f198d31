#include "Platform/Linux/Sound/PipeWireAudioHardware.h"

#include "Platform/Linux/Sound/PipeWireTap.h"
#include "Platform/PlatformError.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <unistd.h>

namespace tolvera::adapters {

using platform::AudioObjectID;
using platform::AudioPropertyAddress;
using platform::AudioPropertyValue;
using platform::IOProcID;
using platform::noAudioObject;
using platform::noSuchObject;
using platform::noSuchProperty;
using platform::OSResult;
using platform::OSStatus;
using platform::TapDescription;
namespace scopes = platform::scopes;
namespace selectors = platform::selectors;

namespace {

constexpr std::chrono::seconds snapshotPatience{2};

} // namespace

// The state that reads answer from.
struct PipeWireAudioHardware::Snapshot {
  std::vector<PipeWireProcesses::Process> processes;
  std::map<AudioObjectID, PipeWireOutputs::Output> outputs;
  AudioObjectID defaultOutput = noAudioObject;

  [[nodiscard]] const PipeWireProcesses::Process* process(AudioObjectID object) const {
    const auto found = std::find_if(processes.begin(), processes.end(),
                                    [object](const auto& candidate) { return candidate.id == object; });
    return found != processes.end() ? &*found : nullptr;
  }
};

PipeWireAudioHardware::PipeWireAudioHardware(std::shared_ptr<PipeWireGraph> graph,
                                             BundleIdentifier bundleIdentifier,
                                             std::function<void()> onDefaultOutputChange)
    : graph_(std::move(graph)), bundleIdentifier_(std::move(bundleIdentifier)),
      onDefaultOutputChange_(std::move(onDefaultOutputChange)), snapshot_(std::make_shared<Snapshot>()) {
  const LoopLock lock(graph_->connection.loop());
  graph_->connection.addListener(*this);
}

PipeWireAudioHardware::~PipeWireAudioHardware() {
  procs_.clear();
  const LoopLock lock(graph_->connection.loop());
  graph_->connection.removeListener(*this);
}

void PipeWireAudioHardware::settled() {
  auto snapshot = std::make_shared<Snapshot>();
  snapshot->processes = graph_->processes.list();
  snapshot->outputs = graph_->outputs.list();
  snapshot->defaultOutput = graph_->outputs.defaultOutput();
  publish(std::move(snapshot));
}

void PipeWireAudioHardware::disconnected() { publish(std::make_shared<Snapshot>()); }

void PipeWireAudioHardware::publish(std::shared_ptr<const Snapshot> snapshot) {
  bool changed = false;
  {
    const std::lock_guard guard(mutex_);
    changed = snapshot_->defaultOutput != snapshot->defaultOutput;
    snapshot_ = std::move(snapshot);
  }
  if (changed && onDefaultOutputChange_) onDefaultOutputChange_();
}

std::shared_ptr<const PipeWireAudioHardware::Snapshot> PipeWireAudioHardware::snapshot() const {
  std::call_once(connected_, [this] { graph_->connection.open(snapshotPatience); });
  const std::lock_guard guard(mutex_);
  return snapshot_;
}

std::int32_t PipeWireAudioHardware::processIdentifier() const { return ::getpid(); }

OSResult<AudioPropertyValue> PipeWireAudioHardware::property(AudioObjectID object,
                                                             const AudioPropertyAddress& address) const {
  Value value;
  if (object == platform::systemAudioObject) {
    value = systemProperty(address);
  } else if (const auto now = snapshot(); const auto* process = now->process(object)) {
    if (address.selector == selectors::processID) value = process->pid;
    if (address.selector == selectors::bundleID) value = bundleIdentifier(*process);
    if (address.selector == selectors::isRunningOutput) value = std::uint32_t{process->playing};
  } else if (const auto output = now->outputs.find(object); output != now->outputs.end()) {
    if (address.selector == selectors::transportType) value = output->second.transport;
    if (address.selector == selectors::name) value = output->second.name;
  } else {
    const std::lock_guard guard(mutex_);
    const auto tap = taps_.find(object);
    if (tap == taps_.end() && !aggregates_.contains(object)) return {noSuchObject, {}};
    if (tap != taps_.end() && address.selector == selectors::tapUID) value = tap->second.uuid;
    if (tap == taps_.end() && address.selector == selectors::streamFormat && address.scope == scopes::input) {
      value = PipeWireTap::format;
    }
  }
  if (!value) return {noSuchProperty, {}};
  return {0, *std::move(value)};
}

PipeWireAudioHardware::Value
PipeWireAudioHardware::systemProperty(const AudioPropertyAddress& address) const {
  const auto now = snapshot();
  if (address.selector == selectors::defaultOutputDevice) return now->defaultOutput;
  if (address.selector == selectors::processObjectList) {
    std::vector<AudioObjectID> objects;
    for (const auto& process : now->processes) objects.push_back(process.id);
    return objects;
  }
  if (address.selector == selectors::processObjectForPID && address.qualifier) {
    for (const auto& process : now->processes) {
      if (process.pid == *address.qualifier) return process.id;
    }
    return noAudioObject;
  }
  return std::nullopt;
}

// An identifier is kept once it is known: a process may have none yet.
AudioPropertyValue PipeWireAudioHardware::bundleIdentifier(const PipeWireProcesses::Process& process) const {
  if (!process.application.empty()) return process.application;
  {
    const std::lock_guard guard(mutex_);
    const auto known = bundleIdentifiers_.find(process.id);
    if (known != bundleIdentifiers_.end()) return known->second;
  }
  const auto identifier = bundleIdentifier_ ? bundleIdentifier_(process.pid) : std::nullopt;
  if (!identifier) return {};
  const std::lock_guard guard(mutex_);
  bundleIdentifiers_.emplace(process.id, *identifier);
  return *identifier;
}

OSResult<AudioObjectID> PipeWireAudioHardware::createProcessTap(const TapDescription& description) {
  graph_->connect(snapshotPatience);
  {
    const LoopLock lock(graph_->connection.loop());
    const auto exists = [this](AudioObjectID object) { return graph_->processes.has(object); };
    const auto& processes = description.processes;
    if (!std::all_of(processes.begin(), processes.end(), exists)) return {noSuchObject, noAudioObject};
  }
  const AudioObjectID tap = graph_->ids.next();
  const std::lock_guard guard(mutex_);
  taps_.emplace(tap, description);
  return {0, tap};
}

OSStatus PipeWireAudioHardware::destroyProcessTap(AudioObjectID tap) {
  const std::lock_guard guard(mutex_);
  return taps_.erase(tap) > 0 ? 0 : noSuchObject;
}

OSResult<AudioObjectID>
PipeWireAudioHardware::createAggregateDevice(const platform::AggregateDescription& description) {
  if (description.taps.size() != 1 || !description.subdevices.empty())
    return {illegalOperation, noAudioObject};
  const std::lock_guard guard(mutex_);
  const auto tap = std::find_if(taps_.begin(), taps_.end(), [&description](const auto& candidate) {
    return candidate.second.uuid == description.taps.front().uid;
  });
  if (tap == taps_.end()) return {noSuchObject, noAudioObject};
  const AudioObjectID device = graph_->ids.next();
  aggregates_.emplace(device, tap->first);
  return {0, device};
}

OSStatus PipeWireAudioHardware::destroyAggregateDevice(AudioObjectID device) {
  std::erase_if(procs_, [device](const auto& proc) { return proc.second.device == device; });
  const std::lock_guard guard(mutex_);
  return aggregates_.erase(device) > 0 ? 0 : noSuchObject;
}

OSResult<IOProcID> PipeWireAudioHardware::createIOProc(AudioObjectID device, platform::IOBlock block) {
  {
    const std::lock_guard guard(mutex_);
    if (!aggregates_.contains(device)) return {noSuchObject, 0};
  }
  procs_.emplace(++lastProc_, Proc{device, std::move(block), nullptr});
  return {0, lastProc_};
}

std::map<IOProcID, PipeWireAudioHardware::Proc>::iterator PipeWireAudioHardware::find(AudioObjectID device,
                                                                                      IOProcID proc) {
  const auto found = procs_.find(proc);
  return found != procs_.end() && found->second.device == device ? found : procs_.end();
}

OSStatus PipeWireAudioHardware::startDevice(AudioObjectID device, IOProcID proc) {
  const auto found = find(device, proc);
  if (found == procs_.end()) return noSuchObject;
  if (found->second.tap) return 0;
  TapDescription description;
  {
    const std::lock_guard guard(mutex_);
    const auto tap = taps_.find(aggregates_.at(device));
    if (tap == taps_.end()) return noSuchObject;
    description = tap->second;
  }
  try {
    found->second.tap = std::make_unique<PipeWireTap>(
        graph_,
        PipeWireTap::Selection{description.kind == TapDescription::Kind::monoGlobalTapButExcludeProcesses,
                               {description.processes.begin(), description.processes.end()}},
        found->second.block);
  } catch (const platform::PlatformError& error) {
    if (error.code() != EIO) throw; // it is worded for people
    return unspecified;
  }
  return 0;
}

OSStatus PipeWireAudioHardware::stopDevice(AudioObjectID device, IOProcID proc) {
  const auto found = find(device, proc);
  if (found == procs_.end()) return noSuchObject;
  found->second.tap.reset();
  return 0;
}

OSStatus PipeWireAudioHardware::destroyIOProc(AudioObjectID device, IOProcID proc) {
  const auto found = find(device, proc);
  if (found == procs_.end()) return noSuchObject;
  procs_.erase(found);
  return 0;
}

} // namespace tolvera::adapters
