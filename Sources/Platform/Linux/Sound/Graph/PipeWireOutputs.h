#pragma once

#include "Platform/AudioHardware.h"
#include "Platform/Linux/Sound/Graph/PipeWireMetadata.h"
#include "Platform/Linux/Sound/Graph/PipeWireProcesses.h"

#include <map>
#include <string>

namespace tolvera::adapters {

// The outputs of the system, and the default one. Under the loop lock.
class PipeWireOutputs {
 public:
  struct Output {
    platform::AudioObjectID id = platform::noAudioObject;
    std::uint32_t transport = 0; // built-in, USB, Bluetooth, HDMI; 0 for any other
    std::string name;            // for the user
  };

  PipeWireOutputs(const PipeWireObjects& objects, const PipeWireMetadata& metadata, PipeWireObjectIDs& ids);
  PipeWireOutputs(const PipeWireOutputs&) = delete;
  PipeWireOutputs& operator=(const PipeWireOutputs&) = delete;

  // Reads the mirrored objects again.
  void update();
  void clear();

  [[nodiscard]] const std::map<platform::AudioObjectID, Output>& list() const { return list_; }
  // 0 if there is no output but the session manager's stand-in for one.
  [[nodiscard]] platform::AudioObjectID defaultOutput() const { return default_; }

 private:
  const PipeWireObjects& objects_;
  const PipeWireMetadata& metadata_;
  PipeWireObjectIDs& ids_;
  std::map<std::uint64_t, platform::AudioObjectID> bySerial_; // the ids of the sinks that exist
  std::map<platform::AudioObjectID, Output> list_;
  platform::AudioObjectID default_ = platform::noAudioObject;
};

} // namespace tolvera::adapters
