#pragma once

#include "Platform/AudioPlayback.h"
#include "Platform/PlatformError.h"

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tolvera::test {

// An output without sound: what would be heard gathers in `queued`. For one engine with one node at a time;
// it outlives them. One thread, but for the volume.
class InMemoryPlayback final : public platform::AudioPlayback {
 public:
  std::optional<platform::PlatformError> startFailure; // looked at on each start

  // What was asked of the system, in order: "attach", "connect 24000/1", "start", "play", "schedule 480",
  // "stopNode", "stopEngine", "detach".
  std::vector<std::string> calls;
  std::vector<float> queued;    // all that was scheduled where it would be heard, less what a stop dropped
  std::atomic<float> volume{1}; // of the node

  // An engine runs with a node that plays.
  [[nodiscard]] bool playing() const { return engineRuns_ && nodePlays_ && nodeConnected_; }
  [[nodiscard]] int engines() const { return engines_; } // alive
  [[nodiscard]] int nodes() const { return nodes_; }

  std::unique_ptr<platform::AudioOutputEngine> makeOutputEngine() override;
  std::unique_ptr<platform::AudioPlayerNode> makePlayerNode() override;

 private:
  class Engine;
  class Node;

  bool engineRuns_ = false;
  bool nodePlays_ = false;
  bool nodeConnected_ = false;
  int engines_ = 0;
  int nodes_ = 0;
};

} // namespace tolvera::test
