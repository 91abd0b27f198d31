#pragma once

#include "Platform/Audio.h"
#include "Platform/PlatformError.h"

#include <algorithm>
#include <optional>
#include <span>
#include <utility>
#include <vector>

namespace tolvera::test {

// A sound system without sound: the test sets the input's format and delivers its blocks. Not locked: while
// an engine runs, the test uses it on one thread, or in an order that the test knows.
class InMemoryAudio final : public platform::AudioSystem {
 public:
  enum class Conversion {
    working, // takes every n-th sample of the first channel, on from block to block
    failing, // reports an error
    absent   // `makeConverter` gives none
  };

  platform::AudioFormat inputFormat{48000, 1};
  Conversion conversion = Conversion::working; // read on each use
  std::optional<platform::PlatformError> startFailure;
  int converters = 0; // alive

  // Hands a block to the tap of every running engine, on the calling thread; all channels are the same.
  void deliver(std::span<const float> samples) {
    for (const Engine* engine : engines_) {
      if (!engine->running || !engine->block) continue;
      auto buffer =
          platform::AudioPCMBuffer::make(engine->format, static_cast<std::uint32_t>(samples.size())).value();
      buffer.setFrameLength(buffer.frameCapacity());
      for (std::uint32_t c = 0; c < engine->format.channelCount; ++c)
        std::ranges::copy(samples, buffer.channel(c));
      engine->block(buffer);
    }
  }
  // An engine has a tap, running or not.
  [[nodiscard]] bool tapped() const {
    return std::ranges::any_of(engines_, [](const Engine* engine) { return engine->block != nullptr; });
  }
  [[nodiscard]] bool capturing() const {
    return std::ranges::any_of(engines_,
                               [](const Engine* engine) { return engine->running && engine->block; });
  }

  std::unique_ptr<platform::AudioEngine> makeEngine() override { return std::make_unique<Engine>(*this); }
  std::unique_ptr<platform::AudioConverter> makeConverter(const platform::AudioFormat& from,
                                                          const platform::AudioFormat& to) override {
    if (conversion == Conversion::absent || to.channelCount != 1) return nullptr;
    return std::make_unique<Converter>(*this, from.sampleRate / to.sampleRate);
  }

 private:
  struct Engine final : platform::AudioEngine, platform::AudioInputNode {
    explicit Engine(InMemoryAudio& system) : audio(system) { audio.engines_.push_back(this); }
    ~Engine() override { std::erase(audio.engines_, this); }

    AudioInputNode& inputNode() override { return *this; }
    void start() override {
      if (audio.startFailure) throw platform::PlatformError(*audio.startFailure);
      running = true;
    }
    void stop() override { running = false; }
    [[nodiscard]] platform::AudioFormat outputFormat(int) const override { return audio.inputFormat; }
    void installTap(int, std::uint32_t, const platform::AudioFormat& wanted, TapBlock tap) override {
      format = wanted;
      block = std::move(tap);
    }
    void removeTap(int) override { block = nullptr; }

    InMemoryAudio& audio;
    platform::AudioFormat format; // of the tap
    TapBlock block;
    bool running = false;
  };

  struct Converter final : platform::AudioConverter {
    Converter(InMemoryAudio& system, double ratio) : audio(system), step(ratio) { ++audio.converters; }
    ~Converter() override { --audio.converters; }

    bool convert(platform::AudioPCMBuffer& output, const std::function<Input()>& input) override {
      output.setFrameLength(0);
      Input next = input();
      for (; next.status == InputStatus::haveData; next = input()) {
        const auto& block = *next.buffer;
        for (; position < block.frameLength() && output.frameLength() < output.frameCapacity();
             position += step) {
          output.setFrameLength(output.frameLength() + 1);
          output.channel(0)[output.frameLength() - 1] =
              block.channel(0)[static_cast<std::uint32_t>(position)];
        }
        position -= block.frameLength();
      }
      return audio.conversion != Conversion::failing;
    }

    InMemoryAudio& audio;
    const double step;   // frames of input for one of output
    double position = 0; // of the next output sample, in frames of the next block
  };

  std::vector<Engine*> engines_;
};

} // namespace tolvera::test
