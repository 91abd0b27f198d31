#pragma once

#include "Platform/Audio.h"
#include "Platform/Linux/Sound/PipeWireSampleRing.h"

#include <atomic>
#include <semaphore.h>
#include <thread>

namespace tolvera::adapters {

// Hands samples from the real-time thread to a tap block on a thread of its own, in buffers of at most
// `bufferSize` frames and without waiting for a buffer to fill up.
class PipeWireWorker {
 public:
  PipeWireWorker(const platform::AudioFormat& format, std::uint32_t bufferSize,
                 platform::AudioInputNode::TapBlock block);
  // Ends the thread: no block runs afterwards. The writer must be gone. Not from within the block.
  ~PipeWireWorker();
  PipeWireWorker(const PipeWireWorker&) = delete;
  PipeWireWorker& operator=(const PipeWireWorker&) = delete;

  // Real-time thread: as `PipeWireSampleRing::write`.
  void deliver(const float* const* planes, std::size_t frames) noexcept;

 private:
  void run(platform::AudioPCMBuffer buffer);

  platform::AudioInputNode::TapBlock block_;
  PipeWireSampleRing ring_;
  sem_t arrived_{};
  std::atomic<bool> ending_{false};
  std::thread thread_;
};

} // namespace tolvera::adapters
