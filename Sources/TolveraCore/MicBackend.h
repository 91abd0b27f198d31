#pragma once

#include "Platform/Audio.h"
#include "TolveraCore/AudioCapture.h"

#include <memory>

namespace tolvera {

// Captures the default audio input. Main thread, but for the callback.
class MicBackend final : public AudioCaptureBackend {
 public:
  // Does not touch the input device. `audio` outlives the backend.
  explicit MicBackend(platform::AudioSystem& audio);
  ~MicBackend() override;
  MicBackend(const MicBackend&) = delete;
  MicBackend& operator=(const MicBackend&) = delete;

  // Throws PlatformError: domain "Tolvera" with code 10 (no input or no access to one) or 11 (no
  // conversion from its format), or the platform's own if the engine does not start.
  void start(OnSamples onSamples) override;
  void stop() override;

 private:
  platform::AudioSystem& audio_;
  std::unique_ptr<platform::AudioEngine> engine_;
  const platform::AudioFormat outputFormat_{16000.0, 1};
  std::shared_ptr<platform::AudioConverter> converter_; // while running
  bool running_ = false;
};

} // namespace tolvera
