#pragma once

#include "Platform/AudioHardware.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace tolvera::test {

namespace selectors = platform::selectors;

// A sound server in memory: the test adds processes and outputs, makes operations fail, and delivers sound to
// the IO blocks. It throws if objects are released in the wrong order. Sound may be delivered on any thread;
// the rest belongs to the test's.
class InMemoryAudioHardware final : public platform::AudioHardware {
  using ID = platform::AudioObjectID;
  using Status = platform::OSStatus;
  using Value = platform::AudioPropertyValue;

 public:
  std::int32_t ownPID = 4242;
  // What aggregate devices deliver.
  platform::AudioStreamBasicDescription streamFormat{48'000, platform::AudioStreamBasicDescription::isFloat,
                                                     32, 2};
  // Status of the operations that fail, by name ("createProcessTap", "startDevice", ...), and of the reads
  // that fail, by selector.
  std::map<std::string, Status> failures;
  std::map<std::uint32_t, Status> readFailures;
  std::optional<platform::TapDescription> lastTap;
  std::optional<platform::AggregateDescription> lastAggregate;
  int made = 0; // taps, aggregate devices and IO procedures that were not destroyed

  // A process that plays or not. Without a bundle identifier, the property is there and holds nothing;
  // without a process id, there is no such property.
  ID addProcess(std::optional<std::int32_t> pid, const std::optional<std::string>& bundleID = std::nullopt,
                bool playing = false) {
    Object process{{{selectors::bundleID, bundleID ? Value(*bundleID) : Value()},
                    {selectors::isRunningOutput, static_cast<std::uint32_t>(playing)}}};
    if (pid) process.properties[selectors::processID] = *pid;
    const auto id = add(process);
    auto& list = objects_[platform::systemAudioObject].properties[selectors::processObjectList];
    std::get<std::vector<ID>>(list).push_back(id);
    return id;
  }
  // A device, which becomes the default output.
  void addOutput(std::uint32_t transport) {
    objects_[platform::systemAudioObject].properties[selectors::defaultOutputDevice] =
        add({{{selectors::transportType, transport}}});
  }

  // Runs the block of every started IO procedure on the calling thread.
  void deliver(std::span<const platform::AudioBuffer> inputs) {
    const std::scoped_lock lock(mutex_);
    for (const auto& [id, object] : objects_)
      if (object.started) object.block(inputs);
  }
  // The same with one buffer of these samples.
  void deliver(const std::vector<float>& samples) {
    const auto size = static_cast<std::uint32_t>(samples.size() * sizeof(float));
    const platform::AudioBuffer buffer{samples.data(), size};
    deliver(std::span(&buffer, 1));
  }

  [[nodiscard]] std::int32_t processIdentifier() const override { return ownPID; }
  [[nodiscard]] platform::OSResult<Value>
  property(ID object, const platform::AudioPropertyAddress& address) const override {
    if (const auto failure = readFailures.find(address.selector); failure != readFailures.end())
      return {failure->second, {}};
    if (address.selector == selectors::processObjectForPID)
      return {0, find(selectors::processID, address.qualifier.value())};
    const auto& properties = objects_.at(object).properties;
    const auto found = properties.find(address.selector);
    const auto scope =
        address.selector == selectors::streamFormat ? platform::scopes::input : platform::scopes::global;
    if (address.scope != scope || found == properties.end()) return {platform::noSuchProperty, {}};
    return {0, found->second};
  }
  platform::OSResult<ID> createProcessTap(const platform::TapDescription& description) override {
    lastTap = description;
    return make("createProcessTap", {{{selectors::tapUID, description.uuid}}});
  }
  Status destroyProcessTap(ID tap) override { return destroy("destroyProcessTap", tap); }
  platform::OSResult<ID> createAggregateDevice(const platform::AggregateDescription& description) override {
    lastAggregate = description;
    const auto tap = find(selectors::tapUID, description.taps.at(0).uid);
    if (tap == platform::noAudioObject) return {platform::noSuchObject, tap};
    return make("createAggregateDevice", {{{selectors::streamFormat, streamFormat}}, tap});
  }
  Status destroyAggregateDevice(ID device) override { return destroy("destroyAggregateDevice", device); }
  platform::OSResult<platform::IOProcID> createIOProc(ID device, platform::IOBlock block) override {
    const auto proc = make("createIOProc", {{}, device, std::move(block)});
    return {proc.status, proc.value};
  }
  Status startDevice(ID device, platform::IOProcID proc) override {
    const auto failure = statusOf("startDevice");
    setStarted(device, proc, failure == 0);
    return failure;
  }
  Status stopDevice(ID device, platform::IOProcID proc) override {
    setStarted(device, proc, false);
    return statusOf("stopDevice");
  }
  Status destroyIOProc(ID, platform::IOProcID proc) override {
    if (objects_.at(static_cast<ID>(proc)).started) throw std::logic_error("the device runs");
    return destroy("destroyIOProc", static_cast<ID>(proc));
  }

 private:
  struct Object {
    std::map<std::uint32_t, Value> properties;
    ID on = platform::noAudioObject; // the tap of an aggregate device, the device of an IO procedure
    platform::IOBlock block = nullptr;
    bool started = false;
  };

  [[nodiscard]] Status statusOf(const std::string& operation) const {
    const auto failure = failures.find(operation);
    return failure == failures.end() ? 0 : failure->second;
  }
  // The object that has a property of this value.
  [[nodiscard]] ID find(std::uint32_t selector, const Value& value) const {
    const auto found = std::ranges::find_if(objects_, [&](const auto& entry) {
      const auto property = entry.second.properties.find(selector);
      return property != entry.second.properties.end() && property->second == value;
    });
    return found == objects_.end() ? platform::noAudioObject : found->first;
  }
  ID add(Object object) {
    const std::scoped_lock lock(mutex_);
    objects_[nextObject_] = std::move(object);
    return nextObject_++;
  }
  platform::OSResult<ID> make(const std::string& operation, Object object) {
    if (const auto failure = statusOf(operation)) return {failure, platform::noAudioObject};
    ++made;
    return {0, add(std::move(object))};
  }
  // The object is gone even if a failure is reported.
  Status destroy(const std::string& operation, ID object) {
    const std::scoped_lock lock(mutex_);
    if (std::ranges::any_of(objects_, [object](const auto& entry) { return entry.second.on == object; }))
      throw std::logic_error("another object still uses it");
    if (objects_.erase(object) == 0) throw std::logic_error("it was destroyed before");
    --made;
    return statusOf(operation);
  }
  void setStarted(ID device, platform::IOProcID proc, bool started) {
    const std::scoped_lock lock(mutex_);
    auto& object = objects_.at(static_cast<ID>(proc));
    if (object.on != device) throw std::logic_error("it is another device's");
    object.started = started;
  }

  std::mutex mutex_; // held while a block runs, so that a stop waits for it
  std::map<ID, Object> objects_{{platform::systemAudioObject,
                                 {{{selectors::processObjectList, std::vector<ID>()},
                                   {selectors::defaultOutputDevice, platform::noAudioObject}}}}};
  ID nextObject_ = 100;
};

} // namespace tolvera::test
