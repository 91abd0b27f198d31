#pragma once

#include "Platform/AudioHardware.h"
#include "Platform/Linux/Sound/Graph/PipeWireConnection.h"
#include "Platform/Linux/Sound/Graph/PipeWireProcesses.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace tolvera::adapters {

struct PipeWireGraph;
class PipeWireTap;

// Processes that play, outputs, and taps. Taps and aggregate devices are only records here; each started IO
// procedure is a node in the sound server's graph. Main thread, except for reads.
class PipeWireAudioHardware final : public platform::AudioHardware, private PipeWireConnection::Listener {
 public:
  // Statuses of operations: the server does not answer; it refuses; the description asks for what there is
  // not here.
  static constexpr auto unspecified = static_cast<platform::OSStatus>(platform::fourCharacterCode("what"));
  static constexpr auto illegalOperation =
      static_cast<platform::OSStatus>(platform::fourCharacterCode("nope"));

  using BundleIdentifier = std::function<std::optional<std::string>(std::int32_t pid)>;

  // Opens nothing. `bundleIdentifier` is called on the thread that reads a bundle identifier,
  // `onDefaultOutputChange` on any thread; the latter must not call this object.
  PipeWireAudioHardware(std::shared_ptr<PipeWireGraph> graph, BundleIdentifier bundleIdentifier,
                        std::function<void()> onDefaultOutputChange);
  ~PipeWireAudioHardware() override;
  PipeWireAudioHardware(const PipeWireAudioHardware&) = delete;
  PipeWireAudioHardware& operator=(const PipeWireAudioHardware&) = delete;

  [[nodiscard]] std::int32_t processIdentifier() const override;
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
  struct Snapshot;
  struct Proc {
    platform::AudioObjectID device = platform::noAudioObject;
    platform::IOBlock block;
    std::unique_ptr<PipeWireTap> tap; // while it is started
  };
  using Value = std::optional<platform::AudioPropertyValue>; // absent if there is no such property

  void settled() override;
  void disconnected() override;
  void publish(std::shared_ptr<const Snapshot> snapshot);
  [[nodiscard]] std::shared_ptr<const Snapshot> snapshot() const;
  [[nodiscard]] Value systemProperty(const platform::AudioPropertyAddress& address) const;
  [[nodiscard]] platform::AudioPropertyValue
  bundleIdentifier(const PipeWireProcesses::Process& process) const;
  [[nodiscard]] std::map<platform::IOProcID, Proc>::iterator find(platform::AudioObjectID device,
                                                                  platform::IOProcID proc);

  std::shared_ptr<PipeWireGraph> graph_;
  const BundleIdentifier bundleIdentifier_;
  const std::function<void()> onDefaultOutputChange_;
  std::map<platform::IOProcID, Proc> procs_;
  platform::IOProcID lastProc_ = 0;

  mutable std::once_flag connected_;
  mutable std::mutex mutex_; // guards everything below
  std::shared_ptr<const Snapshot> snapshot_;
  std::map<platform::AudioObjectID, platform::TapDescription> taps_;
  std::map<platform::AudioObjectID, platform::AudioObjectID> aggregates_; // each with its tap
  mutable std::map<platform::AudioObjectID, std::string>
      bundleIdentifiers_; // of processes, once they are known
};

} // namespace tolvera::adapters
