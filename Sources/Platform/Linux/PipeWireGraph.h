#pragma once

#include "Platform/Linux/PipeWireConnection.h"
#include "Platform/Linux/PipeWireMetadata.h"
#include "Platform/Linux/PipeWireSources.h"

namespace tolvera::adapters {

// What the program knows of the sound server. One for the program, shared by the audio system and by
// everything it makes, so that the last of them closes the connection. Main thread.
struct PipeWireGraph {
  PipeWireConnection connection;
  PipeWireMetadata metadata{connection};
  PipeWireSources sources{connection, metadata};
};

} // namespace tolvera::adapters
