#pragma once

#include "Platform/Linux/Sound/Graph/PipeWireConnection.h"

#include <pipewire/extensions/metadata.h>

#include <map>
#include <string>

namespace tolvera::adapters {

// The nodes that the session manager names as the defaults. Under the loop lock.
class PipeWireMetadata {
 public:
  explicit PipeWireMetadata(PipeWireConnection& connection) : connection_(connection) {}
  PipeWireMetadata(const PipeWireMetadata&) = delete;
  PipeWireMetadata& operator=(const PipeWireMetadata&) = delete;

  // What the registry says.
  void added(const PipeWireConnection::Global& global);
  void removed(std::uint32_t id);
  void clear();

  // The node's name behind a key such as "default.audio.source"; empty if there is none, as happens for a
  // moment while a default changes.
  [[nodiscard]] std::string defaultNode(const std::string& key) const;
  // The node's name in the value of such a key, {"name": "..."}; empty for any other text.
  [[nodiscard]] static std::string nameIn(const char* json);

 private:
  struct Events;

  void set(const char* key, const char* value);

  PipeWireConnection& connection_;
  std::uint32_t id_ = PW_ID_ANY;
  Proxy<pw_metadata> proxy_;
  Hook hook_;
  std::map<std::string, std::string> defaults_;
};

} // namespace tolvera::adapters
