#include "Fakes/InMemoryAudioHardware.h"

#include <algorithm>
#include <stdexcept>

namespace tolvera::test {

using namespace platform;

namespace {

constexpr std::uint32_t processList = fourCharacterCode("prs#");
constexpr std::uint32_t defaultOutput = fourCharacterCode("dOut");
constexpr std::uint32_t streamFormatOfInput = fourCharacterCode("sfmt");

} // namespace

InMemoryAudioHardware::InMemoryAudioHardware() {
  objects_[systemAudioObject] = {
      Kind::system, {{processList, std::vector<ID>()}, {defaultOutput, noAudioObject}}, 0, {}};
}

AudioObjectID InMemoryAudioHardware::add(Object object) {
  objects_[nextObject_] = std::move(object);
  return nextObject_++;
}

AudioObjectID InMemoryAudioHardware::addProcess(std::int32_t pid, std::optional<std::string> bundleID,
                                                bool playing) {
  const std::scoped_lock lock(mutex_);
  const auto bundle = bundleID ? AudioPropertyValue(*bundleID) : AudioPropertyValue();
  const auto object = add({Kind::process,
                           {{fourCharacterCode("ppid"), pid},
                            {fourCharacterCode("pbid"), bundle},
                            {fourCharacterCode("piro"), static_cast<std::uint32_t>(playing)}},
                           0,
                           {}});
  std::get<std::vector<ID>>(objects_[systemAudioObject].properties[processList]).push_back(object);
  return object;
}

AudioObjectID InMemoryAudioHardware::addOutput(std::uint32_t transport, const std::string& name) {
  const std::scoped_lock lock(mutex_);
  const auto device =
      add({Kind::device, {{fourCharacterCode("tran"), transport}, {fourCharacterCode("lnam"), name}}, 0, {}});
  objects_[systemAudioObject].properties[defaultOutput] = device;
  return device;
}

void InMemoryAudioHardware::setProperty(ID object, std::uint32_t selector,
                                        std::optional<AudioPropertyValue> value) {
  const std::scoped_lock lock(mutex_);
  objects_[object].properties.erase(selector);
  if (value) objects_[object].properties[selector] = *value;
}

std::size_t InMemoryAudioHardware::count(Kind kind) const {
  const std::scoped_lock lock(mutex_);
  return static_cast<std::size_t>(
      std::ranges::count_if(objects_, [kind](const auto& entry) { return entry.second.kind == kind; }));
}

bool InMemoryAudioHardware::deliver(std::span<const AudioBuffer> inputs) {
  const std::scoped_lock lock(mutex_);
  bool delivered = false;
  for (const auto& [id, object] : objects_) {
    if (!object.started) continue;
    object.block(inputs);
    delivered = true;
  }
  return delivered;
}

bool InMemoryAudioHardware::deliver(const std::vector<float>& samples) {
  const AudioBuffer buffer{samples.data(), static_cast<std::uint32_t>(samples.size() * sizeof(float))};
  return deliver(std::span(&buffer, 1));
}

OSResult<AudioPropertyValue> InMemoryAudioHardware::property(ID object,
                                                             const AudioPropertyAddress& address) const {
  const std::scoped_lock lock(mutex_);
  if (const auto failure = readFailures.find(address.selector); failure != readFailures.end())
    return {failure->second, {}};
  if (object == systemAudioObject && address.selector == fourCharacterCode("id2p")) {
    for (const auto& [id, candidate] : objects_) {
      const auto pid = candidate.properties.find(fourCharacterCode("ppid"));
      if (pid != candidate.properties.end() && pid->second == AudioPropertyValue(*address.qualifier))
        return {0, id};
    }
    return {0, noAudioObject};
  }
  const auto found = objects_.find(object);
  if (found == objects_.end()) return {noSuchObject, {}};
  const std::uint32_t scope = fourCharacterCode(address.selector == streamFormatOfInput ? "inpt" : "glob");
  const auto value = found->second.properties.find(address.selector);
  if (address.scope != scope || value == found->second.properties.end()) return {noSuchProperty, {}};
  return {0, value->second};
}

OSStatus InMemoryAudioHardware::statusOf(const char* operation) const {
  const auto failure = failures.find(operation);
  return failure == failures.end() ? 0 : failure->second;
}

OSResult<AudioObjectID> InMemoryAudioHardware::createProcessTap(const TapDescription& description) {
  const std::scoped_lock lock(mutex_);
  lastTap = description;
  if (const auto failure = statusOf("createProcessTap")) return {failure, noAudioObject};
  return {0, add({Kind::tap, {{fourCharacterCode("tuid"), description.uuid}}, 0, {}})};
}

OSResult<AudioObjectID>
InMemoryAudioHardware::createAggregateDevice(const AggregateDescription& description) {
  const std::scoped_lock lock(mutex_);
  lastAggregate = description;
  if (const auto failure = statusOf("createAggregateDevice")) return {failure, noAudioObject};
  const auto tap = std::ranges::find_if(objects_, [&description](const auto& entry) {
    const auto uid = entry.second.properties.find(fourCharacterCode("tuid"));
    return uid != entry.second.properties.end() &&
           uid->second == AudioPropertyValue(description.taps.at(0).uid);
  });
  if (tap == objects_.end()) return {noSuchObject, noAudioObject};
  return {0, add({Kind::aggregate, {{streamFormatOfInput, streamFormat}}, tap->first, {}})};
}

OSResult<IOProcID> InMemoryAudioHardware::createIOProc(ID device, IOBlock block) {
  const std::scoped_lock lock(mutex_);
  if (const auto failure = statusOf("createIOProc")) return {failure, 0};
  return {0, add({Kind::ioProc, {}, device, std::move(block)})};
}

OSStatus InMemoryAudioHardware::run(const char* operation, ID device, IOProcID proc) {
  const std::scoped_lock lock(mutex_);
  auto& object = objects_.at(static_cast<ID>(proc));
  if (object.on != device) return noSuchObject;
  const auto failure = statusOf(operation);
  const bool isStart = operation == std::string("startDevice");
  if (!isStart || failure == 0) object.started = isStart;
  return failure;
}

OSStatus InMemoryAudioHardware::destroyIOProc(ID device, IOProcID proc) {
  const auto id = static_cast<ID>(proc);
  const std::scoped_lock lock(mutex_);
  if (objects_.at(id).on != device || objects_.at(id).started) throw std::logic_error("the device runs");
  return destroy("destroyIOProc", id);
}

// The object is gone even if a failure is reported.
OSStatus InMemoryAudioHardware::destroy(const char* operation, ID object) {
  const std::scoped_lock lock(mutex_);
  if (std::ranges::any_of(objects_, [object](const auto& entry) { return entry.second.on == object; }))
    throw std::logic_error("another object still uses it");
  if (objects_.erase(object) == 0) throw std::logic_error("it was destroyed before");
  return statusOf(operation);
}

} // namespace tolvera::test
