#include "Platform/Linux/Sound/PipeWireSampleRing.h"

#include <algorithm>
#include <bit>

namespace tolvera::adapters {

PipeWireSampleRing::PipeWireSampleRing(std::uint32_t channels, std::size_t minimumFrames)
    : channels_(channels), capacity_(std::bit_ceil(minimumFrames)), samples_(capacity_ * channels) {}

void PipeWireSampleRing::write(const float* const* planes, std::size_t frames) noexcept {
  const std::size_t start = written_.load(std::memory_order_relaxed);
  const std::size_t room = capacity_ - (start - taken_.load(std::memory_order_acquire));
  const std::size_t count = std::min(frames, room);
  const std::size_t offset = start & (capacity_ - 1);
  const std::size_t first = std::min(count, capacity_ - offset);
  for (std::uint32_t c = 0; c < channels_; ++c) {
    float* run = samples_.data() + c * capacity_;
    if (planes[c] == nullptr) {
      std::fill_n(run + offset, first, 0.0F);
      std::fill_n(run, count - first, 0.0F);
    } else {
      std::copy_n(planes[c], first, run + offset);
      std::copy_n(planes[c] + first, count - first, run);
    }
  }
  written_.store(start + count, std::memory_order_release);
}

bool PipeWireSampleRing::read(platform::AudioPCMBuffer& buffer) noexcept {
  const std::size_t start = taken_.load(std::memory_order_relaxed);
  const std::size_t count =
      std::min<std::size_t>(written_.load(std::memory_order_acquire) - start, buffer.frameCapacity());
  if (count == 0) return false;
  const std::size_t offset = start & (capacity_ - 1);
  const std::size_t first = std::min(count, capacity_ - offset);
  for (std::uint32_t c = 0; c < channels_; ++c) {
    const float* run = samples_.data() + c * capacity_;
    std::copy_n(run + offset, first, buffer.channel(c));
    std::copy_n(run, count - first, buffer.channel(c) + first);
  }
  buffer.setFrameLength(static_cast<std::uint32_t>(count));
  taken_.store(start + count, std::memory_order_release);
  return true;
}

} // namespace tolvera::adapters
