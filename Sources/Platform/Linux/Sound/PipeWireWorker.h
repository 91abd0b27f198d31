#pragma once

#include "Platform/Audio.h"
#include "Platform/Linux/Sound/PipeWireSampleRing.h"

#include <atomic>
#include <semaphore.h>
#include <thread>

namespace tolvera::adapters {

// Hands samples from the real-time thread to a tap block, which runs on a thread of the worker's own. A
// buffer holds at most `bufferSize` frames; it is handed on without waiting until it is full.
class PipeWireWorker {
 public:
  PipeWireWorker(const platform::AudioFormat& format, std::uint32_t bufferSize,
                 platform::AudioInputNode::TapBlock block);
  // Ends the thread: no block runs afterwards. The writer must be gone. Not called by the block.
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
