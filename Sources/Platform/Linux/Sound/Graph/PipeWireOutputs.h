#pragma once

#include "Platform/AudioHardware.h"
#include "Platform/Linux/Sound/Graph/PipeWireMetadata.h"
#include "Platform/Linux/Sound/Graph/PipeWireProcesses.h"

#include <map>
#include <string>

namespace tolvera::adapters {

// The outputs of the system, and which of them is the default. Under the loop lock.
class PipeWireOutputs final : public PipeWireConnection::Listener {
 public:
  using Properties = std::map<std::string, std::string, std::less<>>; // of a sink and its device

  struct Output {
    platform::AudioObjectID id = platform::noAudioObject;
    std::uint32_t transport = 0;
    std::string name; // for the user
  };

  // "bltn", "usb ", "blue", "hdmi", or 0 for what is none of these.
  [[nodiscard]] static std::uint32_t transport(const Properties& properties);

  PipeWireOutputs(PipeWireConnection& connection, const PipeWireObjects& objects,
                  const PipeWireMetadata& metadata, PipeWireObjectIDs& ids);
  ~PipeWireOutputs() override;
  PipeWireOutputs(const PipeWireOutputs&) = delete;
  PipeWireOutputs& operator=(const PipeWireOutputs&) = delete;

  [[nodiscard]] const std::map<platform::AudioObjectID, Output>& list() const { return list_; }
  // None, 0, also when there is only the session manager's stand-in for an output.
  [[nodiscard]] platform::AudioObjectID defaultOutput() const { return default_; }

 private:
  void settled() override;
  void disconnected() override;

  PipeWireConnection& connection_;
  const PipeWireObjects& objects_;
  const PipeWireMetadata& metadata_;
  PipeWireObjectIDs& ids_;
  std::map<std::uint64_t, platform::AudioObjectID> bySerial_; // of the sinks that exist
  std::map<platform::AudioObjectID, Output> list_;
  platform::AudioObjectID default_ = platform::noAudioObject;
};

} // namespace tolvera::adapters
