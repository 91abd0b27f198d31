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

AudioPCMBuffer::AudioPCMBuffer(const AudioFormat& format, std::uint32_t frameCapacity)
    : format_(format), frameCapacity_(frameCapacity),
      samples_(std::size_t{frameCapacity} * format.channelCount) {}

void AudioPCMBuffer::setFrameLength(std::uint32_t length) { frameLength_ = std::min(length, frameCapacity_); }

float* AudioPCMBuffer::channel(std::uint32_t index) {
  return index < format_.channelCount ? samples_.data() + std::size_t{index} * frameCapacity_ : nullptr;
}

const float* AudioPCMBuffer::channel(std::uint32_t index) const {
  return index < format_.channelCount ? samples_.data() + std::size_t{index} * frameCapacity_ : nullptr;
}

} // namespace tolvera::platform
