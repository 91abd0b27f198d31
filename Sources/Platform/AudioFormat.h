#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace tolvera::platform {

// 32-bit float PCM, not interleaved: the only kind of samples the program handles.
struct AudioFormat {
  double sampleRate = 0; // Hz; 0 when there is no usable device behind it
  std::uint32_t channelCount = 0;

  bool operator==(const AudioFormat&) const = default;
};

// Samples of one format, each channel a contiguous run. Owned by whoever made it; no thread of its own.
class AudioPCMBuffer {
 public:
  // A buffer for `frameCapacity` frames with `frameLength` 0. Absent for a format without channels or
  // rate, or when memory is out.
  static std::optional<AudioPCMBuffer> make(const AudioFormat& format, std::uint32_t frameCapacity);

  [[nodiscard]] const AudioFormat& format() const { return format_; }
  [[nodiscard]] std::uint32_t frameCapacity() const { return frameCapacity_; }
  [[nodiscard]] std::uint32_t frameLength() const { return frameLength_; }
  // `length` is clamped to the capacity.
  void setFrameLength(std::uint32_t length);

  // The samples of a channel, `frameCapacity` floats; null if there is no such channel.
  [[nodiscard]] float* channel(std::uint32_t index);
  [[nodiscard]] const float* channel(std::uint32_t index) const;

 private:
  AudioPCMBuffer(const AudioFormat& format, std::uint32_t frameCapacity);

  AudioFormat format_;
  std::uint32_t frameCapacity_;
  std::uint32_t frameLength_ = 0;
  std::vector<float> samples_;
};

} // namespace tolvera::platform
