#pragma once

#include "Platform/Audio.h"

#include <memory>
#include <vector>

struct soxr;

namespace tolvera::adapters {

// A converter on libsoxr: any rates, and either the same channels or their mean. One thread at a time.
// Samples for which an output buffer has no room come first in the next one.
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
  void setPlanes(const platform::AudioPCMBuffer& buffer);
  bool resample(std::size_t frames, platform::AudioPCMBuffer& output);
  void copy(std::size_t frames, platform::AudioPCMBuffer& output);

  platform::AudioFormat from_;
  platform::AudioFormat to_;
  Resampler resampler_;              // none when the rates are equal
  std::vector<const float*> planes_; // the input of each output channel
  std::vector<float*> room_;         // where the next sample of each output channel goes
  std::vector<float> mean_;          // of the channels of one block
  std::vector<std::vector<float>>
      waiting_; // of each output channel what had no room; used without a resampler
};

} // namespace tolvera::adapters
