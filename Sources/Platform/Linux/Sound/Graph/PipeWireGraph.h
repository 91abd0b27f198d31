#pragma once

#include "Platform/Linux/Sound/Graph/PipeWireConnection.h"
#include "Platform/Linux/Sound/Graph/PipeWireMetadata.h"
#include "Platform/Linux/Sound/Graph/PipeWireObjects.h"
#include "Platform/Linux/Sound/Graph/PipeWireOutputs.h"
#include "Platform/Linux/Sound/Graph/PipeWireProcesses.h"
#include "Platform/Linux/Sound/Graph/SoundFailures.h"

#include <cstdint>
#include <optional>

namespace tolvera::adapters {

// What the program knows of the sound server. There is one for the program, shared by the audio system and by
// everything that it makes, so that the last of them closes the connection. It is the connection's first
// listener: every other one finds the members up to date. Main thread; the members but `failures`,
// `connection` and `ids` under the loop lock.
struct PipeWireGraph final : private PipeWireConnection::Listener {
  explicit PipeWireGraph(SoundFailures failures);
  ~PipeWireGraph() override;
  PipeWireGraph(const PipeWireGraph&) = delete;
  PipeWireGraph& operator=(const PipeWireGraph&) = delete;

  // The default input. If the default is missing or only a monitor of an output: the source with the serial
  // `current`, if it still exists and no default is named at all; else the input of the highest priority.
  [[nodiscard]] std::optional<PipeWireSource> defaultSource(std::uint64_t current = 0) const;

  // Connects to the sound server if need be, and waits up to `patience`. Throws PlatformError, worded for
  // people, if there is none.
  void connect(std::chrono::milliseconds patience);

  const SoundFailures failures;
  PipeWireConnection connection;
  PipeWireObjectIDs ids;
  PipeWireMetadata metadata{connection};
  PipeWireObjects objects{connection};
  PipeWireProcesses processes{objects, ids};
  PipeWireOutputs outputs{objects, metadata, ids};

 private:
  void added(const PipeWireConnection::Global& global) override;
  void removed(std::uint32_t id) override;
  void settled() override;
  void disconnected() override;
};

} // namespace tolvera::adapters
