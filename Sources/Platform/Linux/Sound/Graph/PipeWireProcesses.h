#pragma once

#include "Platform/AudioHardware.h"
#include "Platform/Linux/Sound/Graph/PipeWireObjects.h"

#include <atomic>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tolvera::adapters {

// Numbers for audio objects of every kind. No number is given twice. Any thread.
class PipeWireObjectIDs {
 public:
  [[nodiscard]] platform::AudioObjectID next() { return ++last_; }

 private:
  std::atomic<platform::AudioObjectID> last_{platform::systemAudioObject};
};

// The processes that play, or have played and are still connected. A process keeps its object for all its
// streams and connections, also when it comes back later, even to a restarted sound server. Under the loop
// lock.
class PipeWireProcesses {
 public:
  struct Process {
    platform::AudioObjectID id = platform::noAudioObject;
    std::int32_t pid = 0;
    std::string application; // its identifier, of one in a sandbox
    bool playing = false;
  };

  PipeWireProcesses(const PipeWireObjects& objects, PipeWireObjectIDs& ids);
  PipeWireProcesses(const PipeWireProcesses&) = delete;
  PipeWireProcesses& operator=(const PipeWireProcesses&) = delete;

  // Reads the mirrored objects again.
  void update();
  void clear();

  // In the order in which they were first seen to play.
  [[nodiscard]] const std::vector<Process>& list() const { return list_; }
  // True for every process that has an object, connected or not.
  [[nodiscard]] bool has(platform::AudioObjectID object) const { return processes_.contains(object); }
  // Node ids of the streams of the listed processes, or, for `allOthers`, of all streams but theirs and this
  // program's. Streams that play other streams' sound again are left out.
  [[nodiscard]] std::set<std::uint32_t> playbacks(const std::set<platform::AudioObjectID>& processes,
                                                  bool allOthers) const;

 private:
  const PipeWireObjects& objects_;
  PipeWireObjectIDs& ids_;
  std::map<PipeWireObjects::Process, platform::AudioObjectID> known_;
  std::map<platform::AudioObjectID, PipeWireObjects::Process> processes_;
  std::vector<Process> list_;
};

} // namespace tolvera::adapters
