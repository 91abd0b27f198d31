#include "Platform/Linux/Sound/SoxrConverter.h"

#include "Harness/Spectrum.h"

#include <gtest/gtest.h>

#include <vector>

namespace tolvera::adapters {
namespace {

using platform::AudioConverter;
using platform::AudioFormat;
using platform::AudioPCMBuffer;

constexpr AudioFormat delivered{16000, 1};

// One call with one block, whose channels are the samples times 1, 2, 3, ...
std::vector<float> convertBlock(AudioConverter& converter, const AudioFormat& from,
                                std::span<const float> samples, std::size_t capacity) {
  auto block = AudioPCMBuffer::make(from, static_cast<std::uint32_t>(samples.size())).value();
  block.setFrameLength(block.frameCapacity());
  for (std::uint32_t c = 0; c < from.channelCount; ++c) {
    for (std::size_t i = 0; i < samples.size(); ++i) block.channel(c)[i] = samples[i] * float(c + 1);
  }
  auto output = AudioPCMBuffer::make(delivered, static_cast<std::uint32_t>(capacity)).value();
  const AudioPCMBuffer* next = &block;
  EXPECT_TRUE(converter.convert(output, [&next]() -> AudioConverter::Input {
    const AudioPCMBuffer* given = std::exchange(next, nullptr);
    return given ? AudioConverter::Input{given, AudioConverter::InputStatus::haveData}
                 : AudioConverter::Input{};
  }));
  return {output.channel(0), output.channel(0) + output.frameLength()};
}

// In blocks of many sizes, each with room for its share and for 16 frames, as the backends call it.
std::vector<float> convertAll(const AudioFormat& from, std::span<const float> samples) {
  auto converter = SoxrConverter::make(from, delivered);
  std::vector<float> all;
  for (std::size_t size = 1; !samples.empty(); size = size * 7 % 1499) {
    const auto block = samples.first(std::min(size, samples.size()));
    samples = samples.subspan(block.size());
    const auto share =
        static_cast<std::size_t>(delivered.sampleRate / from.sampleRate * double(block.size()));
    const auto out = convertBlock(*converter, from, block, share + 16);
    all.insert(all.end(), out.begin(), out.end());
  }
  return all;
}

TEST(Converter, KeepsStateBetweenBlocks) {
  const AudioFormat formats[] = {{8000, 1}, {16000, 3}, {32000, 1}, {44100, 1}, {48000, 3}, {96000, 1}};
  for (const AudioFormat& from : formats) {
    SCOPED_TRACE(from.sampleRate);
    const auto output = convertAll(from, test::sine(1000, 0.5, from.sampleRate, 10));
    EXPECT_LE(output.size(), 160000U);
    EXPECT_GT(output.size(), 160000U - 1600); // the last 100 ms at most are still inside
    const auto steady = test::toneAt(1000, 16000, std::span(output).subspan(1600, output.size() - 3200));
    EXPECT_LT(steady.residual, -90);
    EXPECT_NEAR(steady.amplitude, 0.25 * (from.channelCount + 1), 0.001);
  }
}

TEST(Converter, RemovesWhatWouldAlias) {
  const auto output = convertAll({48000, 1}, test::sine(11000, 0.5, 48000, 1));
  EXPECT_LT(test::amplitudeAt(5000, 16000, std::span(output).subspan(1600)), 1e-4); // where it would fold to
}

TEST(Converter, KeepsSamplesWithoutRoom) {
  const auto input = test::sine(440, 0.5, 16000, 1);
  auto converter = SoxrConverter::make(delivered, delivered);
  std::vector<float> output = convertBlock(*converter, delivered, input, 100);
  while (output.size() < input.size()) {
    const auto more = convertBlock(*converter, delivered, {}, 1000);
    ASSERT_FALSE(more.empty());
    output.insert(output.end(), more.begin(), more.end());
  }
  EXPECT_EQ(output, input);
}

} // namespace
} // namespace tolvera::adapters
