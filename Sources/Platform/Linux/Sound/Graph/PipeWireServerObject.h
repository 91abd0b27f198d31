#pragma once

#include "Platform/Linux/Sound/Graph/PipeWireConnection.h"

#include <cstdint>

namespace tolvera::adapters {

// An object of the sound server that was asked to describe itself: its proxy, and the hook with which a
// subclass listens to its events. Under the loop lock.
template<typename Interface>
struct PipeWireServerObject {
  PipeWireServerObject(PipeWireConnection& theConnection, const PipeWireConnection::Global& global,
                       std::uint32_t version)
      : connection(theConnection), proxy(static_cast<Interface*>(pw_registry_bind(
                                       theConnection.registry(), global.id, global.type, version, 0))) {}

  PipeWireConnection& connection;
  Proxy<Interface> proxy; // null if the server refused
  Hook hook;
};

} // namespace tolvera::adapters
