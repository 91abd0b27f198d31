#pragma once

#include "Platform/Audio.h"
#include "Platform/AudioHardware.h"
#include "Platform/AudioPlayback.h"
#include "Platform/Linux/Sound/Graph/SoundFailures.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace tolvera::adapters {

struct PipeWireGraph;
class PipeWireAudioHardware;
class PipeWirePlayback;

// Sound through PipeWire, conversion through libsoxr. Built once by `main`; main thread. Its constructor
// opens nothing and cannot fail: the first use connects to the sound server, and a lost connection is made
// again.
class PipeWireAudioSystem final : public platform::AudioSystem {
 public:
  // The bundle identifier of a process, if it has one. Called on the thread that reads it, never on a thread
  // of the sound system.
  using BundleIdentifier = std::function<std::optional<std::string>(std::int32_t pid)>;

  // `onDefaultOutputChange` is called on any thread; it returns at once and must not call this object.
  explicit PipeWireAudioSystem(BundleIdentifier bundleIdentifier = {},
                               std::function<void()> onDefaultOutputChange = {}, SoundFailures failures = {});
  ~PipeWireAudioSystem() override;
  PipeWireAudioSystem(const PipeWireAudioSystem&) = delete;
  PipeWireAudioSystem& operator=(const PipeWireAudioSystem&) = delete;

  std::unique_ptr<platform::AudioEngine> makeEngine() override;
  std::unique_ptr<platform::AudioConverter> makeConverter(const platform::AudioFormat& from,
                                                          const platform::AudioFormat& to) override;
  // The sound server's version, and the name of the default input; absent if it does not answer, or has none.
  [[nodiscard]] std::optional<std::string> serverVersion() const;
  [[nodiscard]] std::optional<std::string> inputName() const;
  // Both live as long as the system.
  [[nodiscard]] platform::AudioHardware& audioHardware();
  [[nodiscard]] platform::AudioPlayback& playback();

 private:
  std::shared_ptr<PipeWireGraph> graph_;
  std::unique_ptr<PipeWireAudioHardware> hardware_;
  std::unique_ptr<PipeWirePlayback> playback_;
};

} // namespace tolvera::adapters
