#pragma once

#include "Platform/Linux/Sound/Graph/PipeWireConnection.h"
#include "Platform/Linux/Sound/Graph/PipeWireMetadata.h"
#include "Platform/Linux/Sound/Graph/PipeWireObjects.h"
#include "Platform/Linux/Sound/Graph/PipeWireOutputs.h"
#include "Platform/Linux/Sound/Graph/PipeWireProcesses.h"
#include "Platform/Linux/Sound/Graph/PipeWireSources.h"

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
