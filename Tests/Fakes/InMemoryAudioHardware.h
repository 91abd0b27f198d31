#pragma once

#include "Platform/AudioHardware.h"

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tolvera::test {

// A sound server in memory: the test adds processes and outputs, makes operations fail, and delivers sound to
// the IO blocks. It throws if objects are released in the wrong order. The fields belong to the test's
// thread; the rest may be called from any.
class InMemoryAudioHardware final : public platform::AudioHardware {
  using ID = platform::AudioObjectID;
  using Status = platform::OSStatus;

 public:
  InMemoryAudioHardware();

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

  // A process that plays or not. Without a bundle identifier, the property is there and holds nothing.
  ID addProcess(std::int32_t pid, std::optional<std::string> bundleID = std::nullopt, bool playing = false);
  // A device, which becomes the default output.
  ID addOutput(std::uint32_t transport, const std::string& name);
  // Any property of an object; an absent value takes the property away.
  void setProperty(ID object, std::uint32_t selector, std::optional<platform::AudioPropertyValue> value);

  // Objects and IO procedures made and not destroyed.
  [[nodiscard]] std::size_t taps() const { return count(Kind::tap); }
  [[nodiscard]] std::size_t aggregates() const { return count(Kind::aggregate); }
  [[nodiscard]] std::size_t ioProcs() const { return count(Kind::ioProc); }

  // Runs the block of every started IO procedure on the calling thread. False if none was.
  bool deliver(std::span<const platform::AudioBuffer> inputs);
  // The same with one buffer of these samples.
  bool deliver(const std::vector<float>& samples);

  [[nodiscard]] std::int32_t processIdentifier() const override { return ownPID; }
  [[nodiscard]] platform::OSResult<platform::AudioPropertyValue>
  property(ID object, const platform::AudioPropertyAddress& address) const override;
  platform::OSResult<ID> createProcessTap(const platform::TapDescription& description) override;
  Status destroyProcessTap(ID tap) override { return destroy("destroyProcessTap", tap); }
  platform::OSResult<ID> createAggregateDevice(const platform::AggregateDescription& description) override;
  Status destroyAggregateDevice(ID device) override { return destroy("destroyAggregateDevice", device); }
  platform::OSResult<platform::IOProcID> createIOProc(ID device, platform::IOBlock block) override;
  Status startDevice(ID device, platform::IOProcID proc) override { return run("startDevice", device, proc); }
  Status stopDevice(ID device, platform::IOProcID proc) override { return run("stopDevice", device, proc); }
  Status destroyIOProc(ID device, platform::IOProcID proc) override;

 private:
  enum class Kind { system, process, device, tap, aggregate, ioProc };
  using Properties = std::map<std::uint32_t, platform::AudioPropertyValue>;
  struct Object {
    Kind kind = Kind::process;
    Properties properties;
    ID on = platform::noAudioObject; // the tap of an aggregate, the aggregate of an IO procedure
    platform::IOBlock block;
    bool started = false;
  };

  [[nodiscard]] Status statusOf(const char* operation) const;
  [[nodiscard]] std::size_t count(Kind kind) const;
  ID add(Object object);
  Status destroy(const char* operation, ID object);
  Status run(const char* operation, ID device, platform::IOProcID proc);

  // Held while a block runs, so that a stop waits for it; the block may read properties.
  mutable std::recursive_mutex mutex_;
  std::map<ID, Object> objects_;
  ID nextObject_ = 100;
};

} // namespace tolvera::test
