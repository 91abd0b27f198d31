#pragma once

#include "Platform/AudioPlayback.h"

#include <memory>

namespace tolvera::adapters {

struct PipeWireGraph;

// Plays through PipeWire, each node on a stream of its own. Opens nothing before an engine starts. Main
// thread; the engines and nodes that it makes may outlive it.
class PipeWirePlayback final : public platform::AudioPlayback {
 public:
  explicit PipeWirePlayback(std::shared_ptr<PipeWireGraph> graph);
  ~PipeWirePlayback() override;

  std::unique_ptr<platform::AudioOutputEngine> makeOutputEngine() override;
  std::unique_ptr<platform::AudioPlayerNode> makePlayerNode() override;

 private:
  std::shared_ptr<PipeWireGraph> graph_;
};

} // namespace tolvera::adapters
