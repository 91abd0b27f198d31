#include "Platform/Linux/SoxrConverter.h"

#include "Support/Spectrum.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <vector>

namespace tolvera::adapters {
namespace {

using platform::AudioConverter;
using platform::AudioFormat;
using platform::AudioPCMBuffer;

std::vector<float> sine(double frequency, double rate, std::size_t frames) {
  std::vector<float> samples(frames);
  for (std::size_t i = 0; i < frames; ++i) {
    samples[i] =
        static_cast<float>(0.5 * std::sin(2 * std::numbers::pi * frequency * static_cast<double>(i) / rate));
  }
  return samples;
}

// One call with one block, whose channels are the samples times 1, 2, 3, ...
std::vector<float> convertBlock(AudioConverter& converter, const AudioFormat& from, const AudioFormat& to,
                                std::span<const float> samples, std::uint32_t capacity) {
  auto block = AudioPCMBuffer::make(from, static_cast<std::uint32_t>(samples.size())).value();
  block.setFrameLength(block.frameCapacity());
  for (std::uint32_t c = 0; c < from.channelCount; ++c) {
    for (std::size_t i = 0; i < samples.size(); ++i) {
      block.channel(c)[i] = samples[i] * static_cast<float>(c + 1);
    }
  }
  auto output = AudioPCMBuffer::make(to, capacity).value();
  bool given = false;
  EXPECT_TRUE(converter.convert(output, [&]() -> AudioConverter::Input {
    if (std::exchange(given, true)) return {};
    return {&block, AudioConverter::InputStatus::haveData};
  }));
  return {output.channel(0), output.channel(0) + output.frameLength()};
}

// As the backends call it: blocks of any size, each with room for its share and 16 frames.
std::vector<float> convertAll(const AudioFormat& from, const AudioFormat& to,
                              std::span<const float> samples) {
  auto converter = SoxrConverter::make(from, to);
  std::mt19937 random(7);
  std::uniform_int_distribution<std::size_t> sizes(1, 1500);
  std::vector<float> all;
  while (!samples.empty()) {
    const auto block = samples.first(std::min(sizes(random), samples.size()));
    samples = samples.subspan(block.size());
    const double share = to.sampleRate / from.sampleRate * static_cast<double>(block.size());
    const auto out = convertBlock(*converter, from, to, block, static_cast<std::uint32_t>(share) + 16);
    all.insert(all.end(), out.begin(), out.end());
  }
  return all;
}

TEST(SoxrConverterTest, JoinsBlocksWithoutASeamAndLosesNothing) {
  const AudioFormat to{16000, 1};
  for (const double rate : {8000.0, 32000.0, 44100.0, 48000.0, 96000.0}) {
    SCOPED_TRACE(rate);
    const auto input = sine(1000, rate, static_cast<std::size_t>(rate) * 10);
    const std::vector<float> output = convertAll({rate, 1}, to, input);
    EXPECT_LE(output.size(), 160000U);
    EXPECT_GT(output.size(), 160000U - 1600); // the last 100 ms at most are still inside
    const auto steady = std::span(output).subspan(1600, output.size() - 3200);
    EXPECT_LT(test::residualBelow(1000, 16000, steady), -90);
    EXPECT_NEAR(test::amplitudeAt(1000, 16000, steady), 0.5, 0.001);
  }
}

TEST(SoxrConverterTest, KeepsOutWhatTheLowerRateCannotHold) {
  const auto output = convertAll({48000, 1}, {16000, 1}, sine(11000, 48000, 48000));
  EXPECT_LT(test::amplitudeAt(5000, 16000, std::span(output).subspan(1600)), 1e-4); // where it would fold to
}

TEST(SoxrConverterTest, ReducesChannelsToTheirMeanAndPassesEqualRatesUntouched) {
  const std::vector<float> input = sine(440, 16000, 5000);
  EXPECT_EQ(convertAll({16000, 1}, {16000, 1}, input), input);
  std::vector<float> twice = input;
  for (float& sample : twice) sample *= 2;
  const auto mean = convertAll({16000, 3}, {16000, 1}, input);
  ASSERT_EQ(mean.size(), twice.size());
  for (std::size_t i = 0; i < mean.size(); ++i) ASSERT_NEAR(mean[i], twice[i], 1e-6);
  const auto converted = convertAll({48000, 3}, {16000, 1}, sine(440, 48000, 48000));
  EXPECT_NEAR(test::amplitudeAt(440, 16000, std::span(converted).subspan(1600, 12000)), 1.0, 0.002);
}

TEST(SoxrConverterTest, GivesInTheNextCallsWhatAnOutputHadNoRoomFor) {
  for (const double rate : {16000.0, 48000.0}) {
    SCOPED_TRACE(rate);
    const AudioFormat from{rate, 1};
    const AudioFormat to{16000, 1};
    auto tight = SoxrConverter::make(from, to);
    auto roomy = SoxrConverter::make(from, to);
    const auto input = sine(300, rate, 24000);
    const auto expected = convertBlock(*roomy, from, to, input, 48000);
    std::vector<float> output = convertBlock(*tight, from, to, input, 100);
    EXPECT_EQ(output.size(), 100U);
    for (int i = 0; i < 400 && output.size() < expected.size(); ++i) {
      const auto more = convertBlock(*tight, from, to, {}, 100);
      output.insert(output.end(), more.begin(), more.end());
    }
    EXPECT_EQ(output, expected);
  }
}

TEST(SoxrConverterTest, RefusesWhatItCannotDo) {
  EXPECT_EQ(SoxrConverter::make({0, 1}, {16000, 1}), nullptr);
  EXPECT_EQ(SoxrConverter::make({48000, 0}, {16000, 1}), nullptr);
  EXPECT_EQ(SoxrConverter::make({48000, 1}, {16000, 2}), nullptr);
  EXPECT_EQ(SoxrConverter::make({48000, 6}, {16000, 2}), nullptr);
  EXPECT_NE(SoxrConverter::make({24000, 2}, {48000, 2}), nullptr);
}

} // namespace
} // namespace tolvera::adapters
