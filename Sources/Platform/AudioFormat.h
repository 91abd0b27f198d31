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

// Samples of one format, each channel a contiguous run.
class AudioPCMBuffer {
 public:
  // A buffer for `frameCapacity` frames with `frameLength` 0. Absent for a format without channels or rate,
  // or if there is no memory.
  static std::optional<AudioPCMBuffer> make(const AudioFormat& format, std::uint32_t frameCapacity);
  // A full buffer of one channel that reads samples of somebody else, which outlive it. They cannot be
  // written through it.
  static AudioPCMBuffer borrow(double sampleRate, const float* samples, std::uint32_t frames);

  [[nodiscard]] const AudioFormat& format() const { return format_; }
  [[nodiscard]] std::uint32_t frameCapacity() const { return frameCapacity_; }
  [[nodiscard]] std::uint32_t frameLength() const { return frameLength_; }
  // `length` is clamped to the capacity.
  void setFrameLength(std::uint32_t length);

  // The samples of a channel, `frameCapacity` floats; null if there is no such channel. The writable form is
  // null for borrowed samples.
  [[nodiscard]] float* channel(std::uint32_t index);
  [[nodiscard]] const float* channel(std::uint32_t index) const;

 private:
  AudioPCMBuffer(const AudioFormat& format, std::uint32_t frameCapacity);

  AudioFormat format_;
  std::uint32_t frameCapacity_;
  std::uint32_t frameLength_ = 0;
  std::vector<float> samples_;
  const float* borrowed_ = nullptr; // in place of `samples_`
};

} // namespace tolvera::platform
