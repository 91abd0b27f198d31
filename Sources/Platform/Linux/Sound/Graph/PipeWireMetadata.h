#pragma once

#include "Platform/Linux/Sound/Graph/PipeWireConnection.h"

#include <pipewire/extensions/metadata.h>

#include <map>
#include <string>

namespace tolvera::adapters {

// Which nodes the session manager names as the defaults. Under the loop lock.
class PipeWireMetadata final : public PipeWireConnection::Listener {
 public:
  explicit PipeWireMetadata(PipeWireConnection& connection);
  ~PipeWireMetadata() override;
  PipeWireMetadata(const PipeWireMetadata&) = delete;
  PipeWireMetadata& operator=(const PipeWireMetadata&) = delete;

  // The node's name behind a key such as "default.audio.source"; empty if there is none, as happens for a
  // moment while a default changes.
  [[nodiscard]] std::string defaultNode(const std::string& key) const;

 private:
  struct Events;

  void added(const PipeWireConnection::Global& global) override;
  void removed(std::uint32_t id) override;
  void disconnected() override;
  void set(const char* key, const char* value);

  PipeWireConnection& connection_;
  std::uint32_t id_ = PW_ID_ANY;
  Proxy<pw_metadata> proxy_;
  Hook hook_;
  std::map<std::string, std::string> defaults_;
};

} // namespace tolvera::adapters
