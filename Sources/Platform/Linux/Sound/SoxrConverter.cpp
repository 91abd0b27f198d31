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
    : from_(from), to_(to), resampler_(std::move(resampler)), waiting_(to.channelCount) {}

bool SoxrConverter::convert(AudioPCMBuffer& output, const std::function<Input()>& input) {
  output.setFrameLength(0);
  if (output.format() != to_) return false;
  // A block that is not asked for is lost to the caller, so one is asked for even if what was held back
  // fills the output.
  while (true) {
    const Input next = input();
    const bool more = next.status == InputStatus::haveData && next.buffer != nullptr;
    if (more) {
      if (next.buffer->format() != from_) return false;
      append(*next.buffer);
    }
    if (!resampler_) {
      copy(output);
    } else if (!resample(output)) {
      return false;
    }
    if (!more || output.frameLength() == output.frameCapacity()) return true;
  }
}

void SoxrConverter::append(const AudioPCMBuffer& buffer) {
  const std::size_t frames = buffer.frameLength();
  if (to_.channelCount == from_.channelCount) {
    for (std::uint32_t c = 0; c < to_.channelCount; ++c) {
      waiting_[c].insert(waiting_[c].end(), buffer.channel(c), buffer.channel(c) + frames);
    }
    return;
  }
  std::vector<float>& mono = waiting_.front();
  const std::size_t start = mono.size();
  mono.resize(start + frames, 0.0F);
  for (std::uint32_t c = 0; c < from_.channelCount; ++c) {
    const float* samples = buffer.channel(c);
    for (std::size_t i = 0; i < frames; ++i) mono[start + i] += samples[i];
  }
  const auto count = static_cast<float>(from_.channelCount);
  for (std::size_t i = start; i < mono.size(); ++i) mono[i] /= count;
}

// The library takes all that waits and keeps what the output has no room for.
bool SoxrConverter::resample(AudioPCMBuffer& output) {
  static const float none = 0; // a null input would mean the end of the stream
  std::vector<const float*> in;
  std::vector<float*> out;
  for (std::uint32_t c = 0; c < to_.channelCount; ++c) {
    in.push_back(waiting_[c].empty() ? &none : waiting_[c].data());
    out.push_back(output.channel(c) + output.frameLength());
  }
  std::size_t made = 0;
  const soxr_error_t error =
      soxr_process(resampler_.get(), static_cast<soxr_in_t>(in.data()), waiting_.front().size(), nullptr,
                   static_cast<soxr_out_t>(out.data()), output.frameCapacity() - output.frameLength(), &made);
  if (error != nullptr) return false;
  consume(waiting_.front().size());
  output.setFrameLength(output.frameLength() + static_cast<std::uint32_t>(made));
  return true;
}

void SoxrConverter::copy(AudioPCMBuffer& output) {
  const std::size_t frames =
      std::min<std::size_t>(waiting_.front().size(), output.frameCapacity() - output.frameLength());
  for (std::uint32_t c = 0; c < to_.channelCount; ++c) {
    std::copy_n(waiting_[c].begin(), frames, output.channel(c) + output.frameLength());
  }
  consume(frames);
  output.setFrameLength(output.frameLength() + static_cast<std::uint32_t>(frames));
}

void SoxrConverter::consume(std::size_t frames) {
  for (std::vector<float>& channel : waiting_) {
    channel.erase(channel.begin(), channel.begin() + static_cast<std::ptrdiff_t>(frames));
  }
}

} // namespace tolvera::adapters
