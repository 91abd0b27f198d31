#pragma once

#include "Platform/AudioFormat.h"
#include "Platform/Linux/Sound/Graph/PipeWireConnection.h"
#include "Platform/Linux/Sound/Graph/PipeWireMetadata.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tolvera::adapters {

// The audio inputs of the system, without the monitors of its outputs. Under the loop lock.
class PipeWireSources final : public PipeWireConnection::Listener {
 public:
  struct Source {
    std::uint64_t serial = 0; // never reused, unlike an id
    std::string name;
    long priority = 0;
    platform::AudioFormat format;
    std::vector<std::uint32_t> positions; // SPA_AUDIO_CHANNEL_*, one a channel; empty if unknown
  };

  PipeWireSources(PipeWireConnection& connection, const PipeWireMetadata& metadata);
  ~PipeWireSources() override;
  PipeWireSources(const PipeWireSources&) = delete;
  PipeWireSources& operator=(const PipeWireSources&) = delete;

  // The default input. Where the default is none or only a monitor: `current`, the serial of the source in
  // use, if it still exists and no default is named at all; else the input of the highest priority.
  [[nodiscard]] std::optional<Source> defaultSource(std::uint64_t current = 0) const;

 private:
  struct Node;

  void added(const PipeWireConnection::Global& global) override;
  void removed(std::uint32_t id) override;
  void disconnected() override;

  PipeWireConnection& connection_;
  const PipeWireMetadata& metadata_;
  std::map<std::uint32_t, std::unique_ptr<Node>> nodes_;
};

} // namespace tolvera::adapters
