#pragma once

#include "Platform/AudioFormat.h"
#include "Platform/Linux/Sound/Graph/PipeWireServerObject.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tolvera::adapters {

// An audio input of the system.
struct PipeWireSource {
  std::uint64_t serial = 0; // never used again, unlike an id
  std::string name;
  long priority = 0;
  platform::AudioFormat format;
  std::vector<std::uint32_t> positions; // SPA_AUDIO_CHANNEL_*, one for each channel; empty if unknown

  bool operator==(const PipeWireSource&) const = default;
};

// Keeps the description of an input up to date. Under the loop lock.
class PipeWireSourceNode : private PipeWireServerObject<pw_node> {
 public:
  PipeWireSourceNode(PipeWireConnection& connection, const PipeWireConnection::Global& global);

  [[nodiscard]] const PipeWireSource& source() const { return source_; }

 private:
  static const pw_node_events& events();
  void onInfo(const pw_node_info& info);
  void onFormat(const spa_pod* format);

  PipeWireSource source_;
  bool portsKnown_ = false;
};

} // namespace tolvera::adapters
