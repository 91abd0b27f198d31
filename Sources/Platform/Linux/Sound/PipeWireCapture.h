#pragma once

#include "Platform/Linux/Sound/PipeWireStream.h"
#include "Platform/Linux/Sound/PipeWireWorker.h"

#include <memory>

namespace tolvera::adapters {

// A capture of the default input for as long as it lives. It follows the default by itself: to another
// device, to a device that was unplugged and is back, to a sound server that was restarted. Until then the
// block is not called. Owned by an input node; main thread.
class PipeWireCapture final : private PipeWireStream {
 public:
  // Throws PlatformError if there is no server or no input, or if the input cannot be opened.
  PipeWireCapture(std::shared_ptr<PipeWireGraph> graph, const platform::AudioFormat& format,
                  std::uint32_t bufferSize, platform::AudioInputNode::TapBlock block);
  // When it has returned, no block runs or will run.
  ~PipeWireCapture() override;
  PipeWireCapture(const PipeWireCapture&) = delete;
  PipeWireCapture& operator=(const PipeWireCapture&) = delete;

 private:
  void settled() override;
  void disconnected() override;
  void followDefault();
  void openOn(const PipeWireSource& source);
  void end();
  void awaitOpening();
  void onState(pw_stream_state state, const char* error) override;
  void onProcess() noexcept override;

  const std::uint32_t bufferSize_;
  PipeWireWorker worker_;
  std::uint64_t openSerial_ = 0; // the source that the stream is on
  bool flowing_ = false;         // the stream has started on its source
  bool failed_ = false;          // the stream has ended by itself
  int failures_ = 0;             // since it last flowed
  std::string failure_;
};

} // namespace tolvera::adapters
