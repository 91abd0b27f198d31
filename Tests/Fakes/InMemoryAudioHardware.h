#pragma once

#include "Platform/AudioHardware.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace tolvera::test {

// A sound server in memory: the test adds processes and outputs, breaks what it likes, and delivers sound
// to the IO blocks. The fields are the test's own thread's; the rest may come from any.
class InMemoryAudioHardware final : public platform::AudioHardware {
 public:
  InMemoryAudioHardware();

  std::int32_t ownPID = 4242;
  // What aggregate devices deliver.
  platform::AudioStreamBasicDescription streamFormat{.sampleRate = 48'000,
                                                     .formatFlags =
                                                         platform::AudioStreamBasicDescription::isFloat,
                                                     .bitsPerChannel = 32,
                                                     .channelsPerFrame = 2};
  // Status of the operations that fail, by name ("createProcessTap", "startDevice", ...), and of the reads
  // that fail, by selector.
  std::map<std::string, platform::OSStatus, std::less<>> failures;
  std::map<std::uint32_t, platform::OSStatus> readFailures;

  // What was asked for, in order: "createProcessTap", "createAggregateDevice", "createIOProc", "startDevice",
  // "stopDevice", "destroyIOProc", "destroyAggregateDevice", "destroyProcessTap".
  std::vector<std::string> calls;
  std::optional<platform::TapDescription> lastTap;
  std::optional<platform::AggregateDescription> lastAggregate;

  // A process that plays or not. Without a bundle identifier, the property is there and holds nothing.
  platform::AudioObjectID addProcess(std::int32_t pid, std::optional<std::string> bundleID = std::nullopt,
                                     bool playing = false);
  // A device, which becomes the default output.
  platform::AudioObjectID addOutput(std::uint32_t transport, const std::string& name);
  // Any property of an object; nothing takes the property away.
  void setProperty(platform::AudioObjectID object, std::uint32_t selector,
                   std::optional<platform::AudioPropertyValue> value);

  // Objects and IO procedures made and not destroyed.
  [[nodiscard]] std::size_t taps() const;
  [[nodiscard]] std::size_t aggregates() const;
  [[nodiscard]] std::size_t ioProcs() const;
  [[nodiscard]] std::size_t reads() const;

  // Runs the block of every started IO procedure on the calling thread. False if none was.
  bool deliver(std::span<const platform::AudioBuffer> inputs);
  // The same with one buffer of these samples.
  bool deliver(const std::vector<float>& samples);

  [[nodiscard]] std::int32_t processIdentifier() const override { return ownPID; }
  [[nodiscard]] platform::OSResult<platform::AudioPropertyValue>
  property(platform::AudioObjectID object, const platform::AudioPropertyAddress& address) const override;
  platform::OSResult<platform::AudioObjectID>
  createProcessTap(const platform::TapDescription& description) override;
  platform::OSStatus destroyProcessTap(platform::AudioObjectID tap) override;
  platform::OSResult<platform::AudioObjectID>
  createAggregateDevice(const platform::AggregateDescription& description) override;
  platform::OSStatus destroyAggregateDevice(platform::AudioObjectID device) override;
  platform::OSResult<platform::IOProcID> createIOProc(platform::AudioObjectID device,
                                                      platform::IOBlock block) override;
  platform::OSStatus startDevice(platform::AudioObjectID device, platform::IOProcID proc) override;
  platform::OSStatus stopDevice(platform::AudioObjectID device, platform::IOProcID proc) override;
  platform::OSStatus destroyIOProc(platform::AudioObjectID device, platform::IOProcID proc) override;

 private:
  enum class Kind { process, device, tap, aggregate };
  struct Object {
    Kind kind = Kind::process;
    std::map<std::uint32_t, platform::AudioPropertyValue> properties;
  };
  // `running` is held while the block runs, so that a stop waits for it.
  struct Proc {
    platform::AudioObjectID device = platform::noAudioObject;
    platform::IOBlock block;
    std::mutex running;
    bool started = false;
  };

  [[nodiscard]] std::optional<platform::OSStatus> begin(const char* call);
  [[nodiscard]] std::size_t count(Kind kind) const;
  [[nodiscard]] platform::AudioObjectID add(Kind kind,
                                            std::map<std::uint32_t, platform::AudioPropertyValue> properties);
  platform::OSStatus destroy(platform::AudioObjectID object, Kind kind);
  [[nodiscard]] std::shared_ptr<Proc> find(platform::AudioObjectID device, platform::IOProcID proc) const;
  [[nodiscard]] platform::AudioObjectID processObject(std::optional<std::int32_t> pid) const;

  mutable std::mutex mutex_; // of all below
  std::map<platform::AudioObjectID, Object> objects_;
  std::map<platform::IOProcID, std::shared_ptr<Proc>> procs_;
  platform::AudioObjectID nextObject_ = 100;
  platform::IOProcID nextProc_ = 0; // 0 is an identifier like any other
  mutable std::size_t reads_ = 0;
};

} // namespace tolvera::test
