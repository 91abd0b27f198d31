#pragma once

#include "Platform/Audio.h"
#include "Platform/PlatformError.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tolvera::test {

// A sound system without sound: the test sets the input's format and delivers its blocks. Not locked: what
// the test does while an engine runs, it does on one thread, or in an order that it knows.
class InMemoryAudio final : public platform::AudioSystem {
 public:
  enum class Conversion {
    working, // takes the mean of the channels and every n-th sample, on from block to block
    silent,  // takes the input and yields nothing
    failing, // reports an error
    absent   // `makeConverter` gives none
  };

  InMemoryAudio() = default;
  ~InMemoryAudio() override;
  InMemoryAudio(const InMemoryAudio&) = delete;
  InMemoryAudio& operator=(const InMemoryAudio&) = delete;

  platform::AudioFormat inputFormat{48000, 1};
  Conversion conversion = Conversion::working; // looked at on each use
  std::optional<platform::PlatformError> startFailure;

  // What was asked of the system, in order: "format", "converter 48000/1", "tap 2048 48000/1", "start",
  // "removeTap", "stop".
  std::vector<std::string> calls;
  std::vector<std::uint32_t> capacities; // of the output of each conversion
  int converters = 0;                    // alive

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
