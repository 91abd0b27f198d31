#include "Platform/Linux/PipeWireAudioSystem.h"

#include "Platform/Linux/PipeWireEngine.h"
#include "Platform/Linux/PipeWireGraph.h"
#include "Platform/Linux/SoxrConverter.h"

namespace tolvera::adapters {

PipeWireAudioSystem::PipeWireAudioSystem() : graph_(std::make_shared<PipeWireGraph>()) {}

PipeWireAudioSystem::~PipeWireAudioSystem() = default;

std::unique_ptr<platform::AudioEngine> PipeWireAudioSystem::makeEngine() {
  return std::make_unique<PipeWireEngine>(graph_);
}

std::unique_ptr<platform::AudioConverter>
PipeWireAudioSystem::makeConverter(const platform::AudioFormat& from, const platform::AudioFormat& to) {
  return SoxrConverter::make(from, to);
}

} // namespace tolvera::adapters
