#include "Platform/Linux/Sound/SoxrConverter.h"

#include "Harness/Spectrum.h"

#include <gtest/gtest.h>

#include <random>
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
    for (std::size_t i = 0; i < samples.size(); ++i) {
      block.channel(c)[i] = samples[i] * static_cast<float>(c + 1);
    }
  }
  auto output = AudioPCMBuffer::make(delivered, static_cast<std::uint32_t>(capacity)).value();
  bool given = false;
  EXPECT_TRUE(converter.convert(output, [&]() -> AudioConverter::Input {
    if (std::exchange(given, true)) return {};
    return {&block, AudioConverter::InputStatus::haveData};
  }));
  return {output.channel(0), output.channel(0) + output.frameLength()};
}

// As the backends call it: blocks of any size, each with room for its share and 16 frames.
std::vector<float> convertAll(const AudioFormat& from, std::span<const float> samples) {
  auto converter = SoxrConverter::make(from, delivered);
  std::mt19937 random(7);
  std::uniform_int_distribution<std::size_t> sizes(1, 1500);
  std::vector<float> all;
  while (!samples.empty()) {
    const auto block = samples.first(std::min(sizes(random), samples.size()));
    samples = samples.subspan(block.size());
    const double share = delivered.sampleRate / from.sampleRate * static_cast<double>(block.size());
    const auto out = convertBlock(*converter, from, block, static_cast<std::size_t>(share) + 16);
    all.insert(all.end(), out.begin(), out.end());
  }
  return all;
}

TEST(SoxrConverterTest, JoinsBlocksToTheMeanOfTheirChannelsWithoutASeamAndLosesNothing) {
  const AudioFormat formats[] = {{8000, 1}, {16000, 3}, {32000, 1}, {44100, 1}, {48000, 3}, {96000, 1}};
  for (const AudioFormat& from : formats) {
    SCOPED_TRACE(from.sampleRate);
    const auto output = convertAll(from, test::sine(1000, 0.5, from.sampleRate, 10));
    EXPECT_LE(output.size(), 160000U);
    EXPECT_GT(output.size(), 160000U - 1600); // the last 100 ms at most are still inside
    const auto steady = std::span(output).subspan(1600, output.size() - 3200);
    EXPECT_LT(test::residualBelow(1000, 16000, steady), -90);
    EXPECT_NEAR(test::amplitudeAt(1000, 16000, steady), 0.25 * (from.channelCount + 1), 0.001);
  }
}

TEST(SoxrConverterTest, KeepsOutWhatTheLowerRateCannotHoldAndPassesEqualRatesUntouched) {
  const auto output = convertAll({48000, 1}, test::sine(11000, 0.5, 48000, 1));
  EXPECT_LT(test::amplitudeAt(5000, 16000, std::span(output).subspan(1600)), 1e-4); // where it would fold to
  const auto input = test::sine(440, 0.5, 16000, 1);
  EXPECT_EQ(convertAll(delivered, input), input);
}

TEST(SoxrConverterTest, GivesInTheNextCallsWhatAnOutputHadNoRoomFor) {
  for (const AudioFormat& from : {AudioFormat{16000, 1}, AudioFormat{48000, 1}}) {
    auto tight = SoxrConverter::make(from, delivered);
    auto roomy = SoxrConverter::make(from, delivered);
    const auto input = test::sine(300, 0.5, from.sampleRate, 1);
    const auto expected = convertBlock(*roomy, from, input, 48000);
    std::vector<float> output = convertBlock(*tight, from, input, 100);
    EXPECT_EQ(output.size(), 100U);
    for (int i = 0; i < 400 && output.size() < expected.size(); ++i) {
      const auto more = convertBlock(*tight, from, {}, 100);
      output.insert(output.end(), more.begin(), more.end());
    }
    EXPECT_EQ(output, expected);
  }
}

TEST(SoxrConverterTest, RefusesWhatItCannotDo) {
  EXPECT_EQ(SoxrConverter::make({0, 1}, {16000, 1}), nullptr);
  EXPECT_EQ(SoxrConverter::make({48000, 0}, {16000, 1}), nullptr);
  EXPECT_EQ(SoxrConverter::make({48000, 1}, {16000, 2}), nullptr);
  EXPECT_NE(SoxrConverter::make({24000, 2}, {48000, 2}), nullptr);
}

} // namespace
} // namespace tolvera::adapters
