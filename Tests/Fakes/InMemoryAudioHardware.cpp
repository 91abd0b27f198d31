#include "Fakes/InMemoryAudioHardware.h"

#include <algorithm>
#include <iterator>
#include <string_view>
#include <variant>

namespace tolvera::test {

using platform::AudioBuffer;
using platform::AudioObjectID;
using platform::AudioPropertyAddress;
using platform::AudioPropertyValue;
using platform::fourCharacterCode;
using platform::IOProcID;
using platform::noAudioObject;
using platform::noSuchObject;
using platform::noSuchProperty;
using platform::OSResult;
using platform::OSStatus;
using platform::systemAudioObject;

namespace {

constexpr std::uint32_t processList = fourCharacterCode("prs#");
constexpr std::uint32_t defaultOutput = fourCharacterCode("dOut");
constexpr std::uint32_t streamFormatOfInput = fourCharacterCode("sfmt");

} // namespace

InMemoryAudioHardware::InMemoryAudioHardware() {
  objects_[systemAudioObject] = {
      Kind::device, {{processList, std::vector<AudioObjectID>()}, {defaultOutput, noAudioObject}}};
}

AudioObjectID InMemoryAudioHardware::addProcess(std::int32_t pid, std::optional<std::string> bundleID,
                                                bool playing) {
  const std::scoped_lock lock(mutex_);
  const AudioPropertyValue bundle =
      bundleID ? AudioPropertyValue(*std::move(bundleID)) : AudioPropertyValue();
  const AudioObjectID object =
      add(Kind::process, {{fourCharacterCode("ppid"), pid},
                          {fourCharacterCode("pbid"), bundle},
                          {fourCharacterCode("piro"), static_cast<std::uint32_t>(playing ? 1 : 0)}});
  std::get<std::vector<AudioObjectID>>(objects_[systemAudioObject].properties[processList]).push_back(object);
  return object;
}

AudioObjectID InMemoryAudioHardware::addOutput(std::uint32_t transport, const std::string& name) {
  const std::scoped_lock lock(mutex_);
  const AudioObjectID device =
      add(Kind::device, {{fourCharacterCode("tran"), transport}, {fourCharacterCode("lnam"), name}});
  objects_[systemAudioObject].properties[defaultOutput] = device;
  return device;
}

void InMemoryAudioHardware::setProperty(AudioObjectID object, std::uint32_t selector,
                                        std::optional<AudioPropertyValue> value) {
  const std::scoped_lock lock(mutex_);
  if (value)
    objects_[object].properties[selector] = *std::move(value);
  else
    objects_[object].properties.erase(selector);
}

std::size_t InMemoryAudioHardware::count(Kind kind) const {
  const std::scoped_lock lock(mutex_);
  return static_cast<std::size_t>(std::count_if(objects_.begin(), objects_.end(), [kind](const auto& entry) {
    return entry.first != systemAudioObject && entry.second.kind == kind;
  }));
}

std::size_t InMemoryAudioHardware::taps() const { return count(Kind::tap); }

std::size_t InMemoryAudioHardware::aggregates() const { return count(Kind::aggregate); }

std::size_t InMemoryAudioHardware::ioProcs() const {
  const std::scoped_lock lock(mutex_);
  return procs_.size();
}

std::size_t InMemoryAudioHardware::reads() const {
  const std::scoped_lock lock(mutex_);
  return reads_;
}

bool InMemoryAudioHardware::deliver(std::span<const AudioBuffer> inputs) {
  std::vector<std::shared_ptr<Proc>> procs;
  {
    const std::scoped_lock lock(mutex_);
    std::transform(procs_.begin(), procs_.end(), std::back_inserter(procs),
                   [](const auto& entry) { return entry.second; });
  }
  bool delivered = false;
  for (const auto& proc : procs) {
    const std::scoped_lock running(proc->running);
    if (!proc->started) continue;
    proc->block(inputs);
    delivered = true;
  }
  return delivered;
}

bool InMemoryAudioHardware::deliver(const std::vector<float>& samples) {
  const AudioBuffer buffer{samples.data(), static_cast<std::uint32_t>(samples.size() * sizeof(float))};
  return deliver(std::span(&buffer, 1));
}

AudioObjectID InMemoryAudioHardware::processObject(std::optional<std::int32_t> pid) const {
  if (!pid) return noAudioObject;
  const auto found = std::find_if(objects_.begin(), objects_.end(), [pid](const auto& entry) {
    const auto value = entry.second.properties.find(fourCharacterCode("ppid"));
    return value != entry.second.properties.end() && value->second == AudioPropertyValue(*pid);
  });
  return found == objects_.end() ? noAudioObject : found->first;
}

OSResult<AudioPropertyValue> InMemoryAudioHardware::property(AudioObjectID object,
                                                             const AudioPropertyAddress& address) const {
  const std::scoped_lock lock(mutex_);
  ++reads_;
  if (const auto failure = readFailures.find(address.selector); failure != readFailures.end()) {
    return {failure->second, {}};
  }
  if (object == systemAudioObject && address.selector == fourCharacterCode("id2p")) {
    return {0, processObject(address.qualifier)};
  }
  const auto found = objects_.find(object);
  if (found == objects_.end()) return {noSuchObject, {}};
  const std::uint32_t scope = fourCharacterCode(address.selector == streamFormatOfInput ? "inpt" : "glob");
  const auto value = found->second.properties.find(address.selector);
  const bool known = address.scope == scope && value != found->second.properties.end();
  return known ? OSResult<AudioPropertyValue>{0, value->second}
               : OSResult<AudioPropertyValue>{noSuchProperty, {}};
}

std::optional<OSStatus> InMemoryAudioHardware::begin(const char* call) {
  calls.emplace_back(call);
  const auto failure = failures.find(std::string_view(call));
  return failure == failures.end() ? std::nullopt : std::optional(failure->second);
}

AudioObjectID InMemoryAudioHardware::add(Kind kind, std::map<std::uint32_t, AudioPropertyValue> properties) {
  const AudioObjectID object = nextObject_++;
  objects_[object] = {kind, std::move(properties)};
  return object;
}

OSStatus InMemoryAudioHardware::destroy(AudioObjectID object, Kind kind) {
  const auto found = objects_.find(object);
  if (found == objects_.end() || found->second.kind != kind) return noSuchObject;
  objects_.erase(found);
  return 0;
}

OSResult<AudioObjectID> InMemoryAudioHardware::createProcessTap(const platform::TapDescription& description) {
  const std::scoped_lock lock(mutex_);
  lastTap = description;
  if (const auto failure = begin("createProcessTap")) return {*failure, noAudioObject};
  return {0, add(Kind::tap, {{fourCharacterCode("tuid"), description.uuid}})};
}

OSStatus InMemoryAudioHardware::destroyProcessTap(AudioObjectID tap) {
  const std::scoped_lock lock(mutex_);
  const auto failure = begin("destroyProcessTap");
  const OSStatus status = destroy(tap, Kind::tap);
  return failure.value_or(status);
}

OSResult<AudioObjectID>
InMemoryAudioHardware::createAggregateDevice(const platform::AggregateDescription& description) {
  const std::scoped_lock lock(mutex_);
  lastAggregate = description;
  if (const auto failure = begin("createAggregateDevice")) return {*failure, noAudioObject};
  return {0, add(Kind::aggregate, {{streamFormatOfInput, streamFormat}})};
}

OSStatus InMemoryAudioHardware::destroyAggregateDevice(AudioObjectID device) {
  const std::scoped_lock lock(mutex_);
  const auto failure = begin("destroyAggregateDevice");
  const OSStatus status = destroy(device, Kind::aggregate);
  return failure.value_or(status);
}

OSResult<IOProcID> InMemoryAudioHardware::createIOProc(AudioObjectID device, platform::IOBlock block) {
  const std::scoped_lock lock(mutex_);
  if (const auto failure = begin("createIOProc")) return {*failure, 0};
  if (!objects_.contains(device)) return {noSuchObject, 0};
  auto proc = std::make_shared<Proc>();
  proc->device = device;
  proc->block = std::move(block);
  procs_[nextProc_] = std::move(proc);
  return {0, nextProc_++};
}

std::shared_ptr<InMemoryAudioHardware::Proc> InMemoryAudioHardware::find(AudioObjectID device,
                                                                         IOProcID proc) const {
  const auto found = procs_.find(proc);
  return found == procs_.end() || found->second->device != device ? nullptr : found->second;
}

OSStatus InMemoryAudioHardware::startDevice(AudioObjectID device, IOProcID proc) {
  std::shared_ptr<Proc> found;
  {
    const std::scoped_lock lock(mutex_);
    if (const auto failure = begin("startDevice")) return *failure;
    found = find(device, proc);
  }
  if (!found) return noSuchObject;
  const std::scoped_lock running(found->running);
  found->started = true;
  return 0;
}

OSStatus InMemoryAudioHardware::stopDevice(AudioObjectID device, IOProcID proc) {
  std::shared_ptr<Proc> found;
  std::optional<OSStatus> failure;
  {
    const std::scoped_lock lock(mutex_);
    failure = begin("stopDevice");
    found = find(device, proc);
  }
  if (!found) return noSuchObject;
  const std::scoped_lock running(found->running); // not with the other lock: an IO block may read properties
  found->started = false;
  return failure.value_or(0);
}

OSStatus InMemoryAudioHardware::destroyIOProc(AudioObjectID device, IOProcID proc) {
  std::shared_ptr<Proc> found;
  std::optional<OSStatus> failure;
  {
    const std::scoped_lock lock(mutex_);
    failure = begin("destroyIOProc");
    found = find(device, proc);
    if (found) procs_.erase(proc);
  }
  if (!found) return noSuchObject;
  const std::scoped_lock running(found->running);
  found->started = false;
  found->block = nullptr;
  return failure.value_or(0);
}

} // namespace tolvera::test
