#pragma once

#include "Platform/Linux/Sound/PipeWireConnection.h"
#include "Platform/Linux/Sound/PipeWireMetadata.h"
#include "Platform/Linux/Sound/PipeWireObjects.h"
#include "Platform/Linux/Sound/PipeWireOutputs.h"
#include "Platform/Linux/Sound/PipeWireProcesses.h"
#include "Platform/Linux/Sound/PipeWireSources.h"

namespace tolvera::adapters {

// What the program knows of the sound server. One for the program, shared by the audio system and by
// everything it makes, so that the last of them closes the connection. Main thread. Listeners hear of a
// change in this order, and after them whoever acts on it.
struct PipeWireGraph {
  PipeWireConnection connection;
  PipeWireObjectIDs ids;
  PipeWireMetadata metadata{connection};
  PipeWireSources sources{connection, metadata};
  PipeWireObjects objects{connection};
  PipeWireProcesses processes{connection, objects, ids};
  PipeWireOutputs outputs{connection, objects, metadata, ids};
};

} // namespace tolvera::adapters
