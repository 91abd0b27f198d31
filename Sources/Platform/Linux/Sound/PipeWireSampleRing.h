#pragma once

#include "Platform/AudioFormat.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace tolvera::adapters {

// Samples on their way from the real-time thread to a worker: one writer, one reader, no lock, and no
// allocation after construction. Samples without room are dropped.
class PipeWireSampleRing {
 public:
  PipeWireSampleRing(std::uint32_t channels, std::size_t minimumFrames);

  // Writer. `planes` holds a run of `frames` samples for each channel; null means silence.
  void write(const float* const* planes, std::size_t frames) noexcept;
  // Reader. Fills the buffer from its start; false if there was no sample.
  bool read(platform::AudioPCMBuffer& buffer) noexcept;

 private:
  std::uint32_t channels_;
  std::size_t capacity_;                            // frames, a power of two
  std::vector<float> samples_;                      // a run of `capacity_` for each channel
  alignas(64) std::atomic<std::size_t> written_{0}; // both count all samples ever
  alignas(64) std::atomic<std::size_t> taken_{0};
};

} // namespace tolvera::adapters
