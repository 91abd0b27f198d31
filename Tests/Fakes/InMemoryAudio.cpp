#include "Fakes/InMemoryAudio.h"

#include <algorithm>
#include <utility>

namespace tolvera::test {

using platform::AudioFormat;
using platform::AudioPCMBuffer;

class InMemoryAudio::Engine final : public platform::AudioEngine, private platform::AudioInputNode {
 public:
  explicit Engine(InMemoryAudio& audio) : audio_(audio) { audio_.engines_.push_back(this); }
  ~Engine() override { std::erase(audio_.engines_, this); }

  AudioInputNode& inputNode() override { return *this; }
  void start() override {
    if (audio_.startFailure) throw platform::PlatformError(*audio_.startFailure);
    running_ = true;
  }
  void stop() override { running_ = false; }

  [[nodiscard]] bool tapped() const { return block_ != nullptr; }
  [[nodiscard]] bool capturing() const { return running_ && tapped(); }
  void deliver(std::span<const float> samples) {
    auto buffer = AudioPCMBuffer::make(tapFormat_, static_cast<std::uint32_t>(samples.size()));
    if (!buffer) return;
    buffer->setFrameLength(buffer->frameCapacity());
    for (std::uint32_t c = 0; c < tapFormat_.channelCount; ++c) {
      std::copy(samples.begin(), samples.end(), buffer->channel(c));
    }
    block_(*buffer);
  }

 private:
  [[nodiscard]] AudioFormat outputFormat(int) const override { return audio_.inputFormat; }
  void installTap(int, std::uint32_t, const AudioFormat& format, TapBlock block) override {
    tapFormat_ = format;
    block_ = std::move(block);
  }
  void removeTap(int) override { block_ = nullptr; }

  InMemoryAudio& audio_;
  AudioFormat tapFormat_;
  TapBlock block_;
  bool running_ = false;
};

class InMemoryAudio::Converter final : public platform::AudioConverter {
 public:
  Converter(InMemoryAudio& audio, const AudioFormat& from, const AudioFormat& to)
      : audio_(audio), from_(from), to_(to) {
    ++audio_.converters;
    ++audio_.convertersMade;
  }
  ~Converter() override { --audio_.converters; }

  bool convert(AudioPCMBuffer& output, const std::function<Input()>& input) override {
    output.setFrameLength(0);
    while (true) {
      const Input next = input();
      if (next.status != InputStatus::haveData) return audio_.conversion != Conversion::failing;
      if (audio_.conversion == Conversion::working) append(output, *next.buffer);
    }
  }

 private:
  void append(AudioPCMBuffer& output, const AudioPCMBuffer& block) {
    const double step = from_.sampleRate / to_.sampleRate;
    for (; position_ < block.frameLength() && output.frameLength() < output.frameCapacity();
         position_ += step) {
      const auto frame = static_cast<std::uint32_t>(position_);
      float sum = 0;
      for (std::uint32_t c = 0; c < from_.channelCount; ++c) sum += block.channel(c)[frame];
      output.channel(0)[output.frameLength()] = sum / static_cast<float>(from_.channelCount);
      output.setFrameLength(output.frameLength() + 1);
    }
    position_ -= block.frameLength();
  }

  InMemoryAudio& audio_;
  AudioFormat from_;
  AudioFormat to_;
  double position_ = 0; // of the next output sample, in frames of the next block
};

bool InMemoryAudio::deliver(std::span<const float> samples) {
  bool delivered = false;
  for (Engine* engine : std::vector<Engine*>(engines_)) {
    if (!engine->capturing()) continue;
    engine->deliver(samples);
    delivered = true;
  }
  return delivered;
}

bool InMemoryAudio::capturing() const {
  return std::any_of(engines_.begin(), engines_.end(),
                     [](const Engine* engine) { return engine->capturing(); });
}

int InMemoryAudio::taps() const {
  return static_cast<int>(
      std::count_if(engines_.begin(), engines_.end(), [](const Engine* engine) { return engine->tapped(); }));
}

std::unique_ptr<platform::AudioEngine> InMemoryAudio::makeEngine() { return std::make_unique<Engine>(*this); }

std::unique_ptr<platform::AudioConverter> InMemoryAudio::makeConverter(const AudioFormat& from,
                                                                       const AudioFormat& to) {
  if (conversion == Conversion::absent || to.channelCount != 1) return nullptr;
  return std::make_unique<Converter>(*this, from, to);
}

} // namespace tolvera::test
