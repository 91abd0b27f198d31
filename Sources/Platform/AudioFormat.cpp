#include "Platform/AudioFormat.h"

#include <algorithm>
#include <new>

namespace tolvera::platform {

std::optional<AudioPCMBuffer> AudioPCMBuffer::make(const AudioFormat& format, std::uint32_t frameCapacity) {
  if (format.channelCount == 0 || !(format.sampleRate > 0)) return std::nullopt;
  try {
    return AudioPCMBuffer(format, frameCapacity);
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
}

AudioPCMBuffer AudioPCMBuffer::borrow(double sampleRate, const float* samples, std::uint32_t frames) {
  AudioPCMBuffer buffer({sampleRate, 1}, 0);
  buffer.borrowed_ = samples;
  buffer.frameCapacity_ = buffer.frameLength_ = frames;
  return buffer;
}

AudioPCMBuffer::AudioPCMBuffer(const AudioFormat& format, std::uint32_t frameCapacity)
    : format_(format), frameCapacity_(frameCapacity),
      samples_(std::size_t{frameCapacity} * format.channelCount) {}

void AudioPCMBuffer::setFrameLength(std::uint32_t length) { frameLength_ = std::min(length, frameCapacity_); }

float* AudioPCMBuffer::channel(std::uint32_t index) {
  if (borrowed_ != nullptr || index >= format_.channelCount) return nullptr;
  return samples_.data() + std::size_t{index} * frameCapacity_;
}

const float* AudioPCMBuffer::channel(std::uint32_t index) const {
  if (index >= format_.channelCount) return nullptr;
  return borrowed_ != nullptr ? borrowed_ : samples_.data() + std::size_t{index} * frameCapacity_;
}

} // namespace tolvera::platform
