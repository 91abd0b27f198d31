#pragma once

#include "Platform/Audio.h"

#include <memory>
#include <vector>

struct soxr;

namespace tolvera::adapters {

// A converter on libsoxr: any rates, and either the same channels or their mean. One thread at a time.
// What does not fit into an output buffer is kept and comes first in the next one.
class SoxrConverter final : public platform::AudioConverter {
 public:
  // Null without a rate or channels on either side, or for a change of channels that is not "to one".
  static std::unique_ptr<SoxrConverter> make(const platform::AudioFormat& from,
                                             const platform::AudioFormat& to);

  bool convert(platform::AudioPCMBuffer& output, const std::function<Input()>& input) override;

 private:
  struct Deleter {
    void operator()(soxr* resampler) const;
  };
  using Resampler = std::unique_ptr<soxr, Deleter>;

  SoxrConverter(const platform::AudioFormat& from, const platform::AudioFormat& to, Resampler resampler);
  void append(const platform::AudioPCMBuffer& buffer);
  bool resample(platform::AudioPCMBuffer& output);
  void copy(platform::AudioPCMBuffer& output);
  void consume(std::size_t frames);

  platform::AudioFormat from_;
  platform::AudioFormat to_;
  Resampler resampler_;                     // none when the rates are equal
  std::vector<std::vector<float>> waiting_; // input to take, one run for each output channel
};

} // namespace tolvera::adapters
