#include "Platform/Linux/Sound/PipeWireAudioSystem.h"

#include "Platform/Linux/Sound/Graph/PipeWireGraph.h"
#include "Platform/Linux/Sound/PipeWireAudioHardware.h"
#include "Platform/Linux/Sound/PipeWireEngine.h"
#include "Platform/Linux/Sound/PipeWirePlayback.h"
#include "Platform/Linux/Sound/SoxrConverter.h"

#include <chrono>
#include <utility>

namespace tolvera::adapters {

namespace {

constexpr std::chrono::seconds snapshotPatience{2};

} // namespace

PipeWireAudioSystem::PipeWireAudioSystem(BundleIdentifier bundleIdentifier,
                                         std::function<void()> onDefaultOutputChange, SoundFailures failures)
    : graph_(std::make_shared<PipeWireGraph>(std::move(failures))),
      hardware_(std::make_unique<PipeWireAudioHardware>(graph_, std::move(bundleIdentifier),
                                                        std::move(onDefaultOutputChange))),
      playback_(std::make_unique<PipeWirePlayback>(graph_)) {}

PipeWireAudioSystem::~PipeWireAudioSystem() = default;

std::unique_ptr<platform::AudioEngine> PipeWireAudioSystem::makeEngine() {
  return std::make_unique<PipeWireEngine>(graph_);
}

std::unique_ptr<platform::AudioConverter>
PipeWireAudioSystem::makeConverter(const platform::AudioFormat& from, const platform::AudioFormat& to) {
  return SoxrConverter::make(from, to);
}

std::optional<std::string> PipeWireAudioSystem::serverVersion() const {
  if (!graph_->connection.open(snapshotPatience)) return std::nullopt;
  const LoopLock lock(graph_->connection.loop());
  return graph_->connection.serverVersion();
}

std::optional<std::string> PipeWireAudioSystem::inputName() const {
  if (!graph_->connection.open(snapshotPatience)) return std::nullopt;
  const LoopLock lock(graph_->connection.loop());
  const auto source = graph_->defaultSource();
  return source ? std::optional(source->name) : std::nullopt;
}

platform::AudioHardware& PipeWireAudioSystem::audioHardware() { return *hardware_; }

platform::AudioPlayback& PipeWireAudioSystem::playback() { return *playback_; }

} // namespace tolvera::adapters
