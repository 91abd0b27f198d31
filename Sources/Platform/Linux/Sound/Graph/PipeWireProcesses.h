#pragma once

#include "Platform/AudioHardware.h"
#include "Platform/Linux/Sound/Graph/PipeWireObjects.h"

#include <atomic>
#include <map>
#include <optional>
#include <set>
#include <vector>

namespace tolvera::adapters {

// Gives audio objects of every kind their numbers, from any thread. None is used twice.
class PipeWireObjectIDs {
 public:
  [[nodiscard]] platform::AudioObjectID next() { return ++last_; }

 private:
  std::atomic<platform::AudioObjectID> last_{platform::systemAudioObject};
};

// The processes that play, or have played and are still connected, whatever streams and connections they
// have. A process that comes back, even to another sound server, is the object that it was. Under the loop
// lock.
class PipeWireProcesses final : public PipeWireConnection::Listener {
 public:
  struct Process {
    platform::AudioObjectID id = platform::noAudioObject;
    std::int32_t pid = 0;
    bool playing = false;
  };

  PipeWireProcesses(PipeWireConnection& connection, const PipeWireObjects& objects, PipeWireObjectIDs& ids);
  ~PipeWireProcesses() override;
  PipeWireProcesses(const PipeWireProcesses&) = delete;
  PipeWireProcesses& operator=(const PipeWireProcesses&) = delete;

  // In the order in which they were first seen to play.
  [[nodiscard]] const std::vector<Process>& list() const { return list_; }
  // A process, connected or not.
  [[nodiscard]] bool has(platform::AudioObjectID object) const { return pids_.contains(object); }
  // The streams of the listed processes, or else all that are neither theirs nor ours; by node id. Never
  // one that only plays what others play.
  [[nodiscard]] std::set<std::uint32_t> playbacks(const std::set<platform::AudioObjectID>& processes,
                                                  bool allOthers) const;

 private:
  void settled() override;
  void disconnected() override;

  PipeWireConnection& connection_;
  const PipeWireObjects& objects_;
  PipeWireObjectIDs& ids_;
  std::map<PipeWireObjects::Process, platform::AudioObjectID> known_;
  std::map<platform::AudioObjectID, std::int32_t> pids_;
  std::vector<Process> list_;
};

} // namespace tolvera::adapters
