#pragma once

#include "Platform/Audio.h"
#include "Platform/PlatformError.h"

#include <optional>
#include <span>
#include <vector>

namespace tolvera::test {

// A sound system without sound: the test sets the input's format and delivers its blocks. Not locked: while
// an engine runs, the test uses it on one thread, or in an order that the test knows.
class InMemoryAudio final : public platform::AudioSystem {
 public:
  enum class Conversion {
    working, // takes the mean of the channels and every n-th sample, on from block to block
    silent,  // takes the input and yields nothing
    failing, // reports an error
    absent   // `makeConverter` gives none
  };

  platform::AudioFormat inputFormat{48000, 1};
  Conversion conversion = Conversion::working; // read on each use
  std::optional<platform::PlatformError> startFailure;
  int converters = 0;     // alive
  int convertersMade = 0; // ever

  // Hands a block to the tap of every running engine, on the calling thread; all channels are the same.
  // False if there is none.
  bool deliver(std::span<const float> samples);
  [[nodiscard]] bool capturing() const; // an engine runs with a tap
  [[nodiscard]] int taps() const;       // installed, running or not

  std::unique_ptr<platform::AudioEngine> makeEngine() override;
  std::unique_ptr<platform::AudioConverter> makeConverter(const platform::AudioFormat& from,
                                                          const platform::AudioFormat& to) override;

 private:
  class Engine;
  class Converter;

  std::vector<Engine*> engines_;
};

} // namespace tolvera::test
