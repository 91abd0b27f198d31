#pragma once

#include "Platform/Audio.h"

#include <memory>

namespace tolvera::adapters {

struct PipeWireGraph;

// Sound through PipeWire, conversion through libsoxr. Built once by `main`; main thread. Constructing it
// opens nothing and cannot fail: the sound server is connected to when an input is first asked for, and
// again by itself whenever it went away.
class PipeWireAudioSystem final : public platform::AudioSystem {
 public:
  PipeWireAudioSystem();
  ~PipeWireAudioSystem() override;
  PipeWireAudioSystem(const PipeWireAudioSystem&) = delete;
  PipeWireAudioSystem& operator=(const PipeWireAudioSystem&) = delete;

  std::unique_ptr<platform::AudioEngine> makeEngine() override;
  std::unique_ptr<platform::AudioConverter> makeConverter(const platform::AudioFormat& from,
                                                          const platform::AudioFormat& to) override;

 private:
  std::shared_ptr<PipeWireGraph> graph_;
};

} // namespace tolvera::adapters
