#pragma once

#include <functional>
#include <memory>
#include <vector>

namespace tolvera {

// Samples of one channel, 16,000 a second, in time order; any number of them but none. No gain and no
// clipping is applied.
using SampleBlock = std::vector<float>;
// The same block for several readers.
using SharedSampleBlock = std::shared_ptr<const SampleBlock>;

// A source of sound. Made for one run and owned by the application model, which calls it on the main
// thread.
class AudioCaptureBackend {
 public:
  // Called on a thread of the audio platform, never the caller's, one block at a time.
  using OnSamples = std::function<void(SampleBlock)>;

  virtual ~AudioCaptureBackend() = default; // as if `stop` had been called first

  // Capture is under way when it returns. Throws the reason if it cannot be; afterwards there is no error,
  // only silence. On a backend that runs it does nothing: the callback in use stays.
  virtual void start(OnSamples onSamples) = 0;
  // Ends capture and drops the callback: it is not running and will not run when this returns. Harmless
  // on a backend that does not run.
  virtual void stop() = 0;
};

} // namespace tolvera
