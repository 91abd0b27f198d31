#include "Platform/Linux/Sound/SoxrConverter.h"

#include <soxr.h>

#include <algorithm>

namespace tolvera::adapters {

using platform::AudioFormat;
using platform::AudioPCMBuffer;

namespace {

// Speech is converted live, so delay counts: a filter that is flat to 0.85 of the band, with 98 dB of
// rejection, on the shortest transforms that hold it. From 48 to 16 kHz that holds back 5 ms on average,
// where the library's usual high quality holds back 21 ms.
constexpr double passband = 0.85;
constexpr unsigned shortestTransform = 8; // log2

bool valid(const AudioFormat& format) { return format.sampleRate > 0 && format.channelCount > 0; }

} // namespace

void SoxrConverter::Deleter::operator()(soxr* resampler) const { soxr_delete(resampler); }

std::unique_ptr<SoxrConverter> SoxrConverter::make(const AudioFormat& from, const AudioFormat& to) {
  if (!valid(from) || !valid(to)) return nullptr;
  if (to.channelCount != 1 && to.channelCount != from.channelCount) return nullptr;
  Resampler resampler;
  if (from.sampleRate != to.sampleRate) {
    soxr_error_t error = nullptr;
    const soxr_io_spec_t samples = soxr_io_spec(SOXR_FLOAT32_S, SOXR_FLOAT32_S);
    soxr_quality_spec_t quality = soxr_quality_spec(SOXR_16_BITQ, 0);
    quality.passband_end = passband;
    soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
    runtime.log2_min_dft_size = runtime.log2_large_dft_size = shortestTransform;
    resampler.reset(
        soxr_create(from.sampleRate, to.sampleRate, to.channelCount, &error, &samples, &quality, &runtime));
    if (error != nullptr || !resampler) return nullptr;
  }
  return std::unique_ptr<SoxrConverter>(new SoxrConverter(from, to, std::move(resampler)));
}

SoxrConverter::SoxrConverter(const AudioFormat& from, const AudioFormat& to, Resampler resampler)
    : from_(from), to_(to), resampler_(std::move(resampler)), planes_(to.channelCount),
      room_(to.channelCount), waiting_(to.channelCount) {}

bool SoxrConverter::convert(AudioPCMBuffer& output, const std::function<Input()>& input) {
  static constexpr float none = 0; // a null plane would mean the end of the stream
  output.setFrameLength(0);
  if (output.format() != to_) return false;
  // The caller loses a block that is not asked for, so one is asked for even if held-back samples fill the
  // output.
  while (true) {
    const Input next = input();
    const bool more = next.status == InputStatus::haveData && next.buffer != nullptr;
    std::size_t frames = 0;
    if (!more) {
      std::fill(planes_.begin(), planes_.end(), &none);
    } else if (next.buffer->format() != from_) {
      return false;
    } else {
      setPlanes(*next.buffer);
      frames = next.buffer->frameLength();
    }
    if (!resampler_) {
      copy(frames, output);
    } else if (!resample(frames, output)) {
      return false;
    }
    if (!more || output.frameLength() == output.frameCapacity()) return true;
  }
}

void SoxrConverter::setPlanes(const AudioPCMBuffer& buffer) {
  if (to_.channelCount == from_.channelCount) {
    for (std::uint32_t c = 0; c < to_.channelCount; ++c) planes_[c] = buffer.channel(c);
    return;
  }
  mean_.assign(buffer.frameLength(), 0.0F);
  for (std::uint32_t c = 0; c < from_.channelCount; ++c) {
    const float* samples = buffer.channel(c);
    for (std::size_t i = 0; i < mean_.size(); ++i) mean_[i] += samples[i];
  }
  const auto count = static_cast<float>(from_.channelCount);
  for (float& sample : mean_) sample /= count;
  planes_.front() = mean_.data();
}

// The library takes all frames and keeps what the output has no room for.
bool SoxrConverter::resample(std::size_t frames, AudioPCMBuffer& output) {
  for (std::uint32_t c = 0; c < to_.channelCount; ++c) room_[c] = output.channel(c) + output.frameLength();
  std::size_t made = 0;
  const soxr_error_t error = soxr_process(resampler_.get(), static_cast<soxr_in_t>(planes_.data()), frames,
                                          nullptr, static_cast<soxr_out_t>(room_.data()),
                                          output.frameCapacity() - output.frameLength(), &made);
  if (error != nullptr) return false;
  output.setFrameLength(output.frameLength() + static_cast<std::uint32_t>(made));
  return true;
}

// What waits comes first, then the block; what has no room waits.
void SoxrConverter::copy(std::size_t frames, AudioPCMBuffer& output) {
  const std::uint32_t start = output.frameLength();
  const std::size_t room = output.frameCapacity() - start;
  const std::size_t waited = std::min(waiting_.front().size(), room);
  const std::size_t taken = std::min(frames, room - waited);
  for (std::uint32_t c = 0; c < to_.channelCount; ++c) {
    std::vector<float>& waiting = waiting_[c];
    float* out = std::copy_n(waiting.data(), waited, output.channel(c) + start);
    std::copy_n(planes_[c], taken, out);
    waiting.erase(waiting.begin(), waiting.begin() + static_cast<std::ptrdiff_t>(waited));
    waiting.insert(waiting.end(), planes_[c] + taken, planes_[c] + frames);
  }
  output.setFrameLength(start + static_cast<std::uint32_t>(waited + taken));
}

} // namespace tolvera::adapters
