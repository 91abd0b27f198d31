#include "TolveraCore/PCMChunker.h"

#include "Harness/PlainEncoding.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>

namespace tolvera {
namespace {

constexpr auto chunkSize = PCMChunker::samplesPerChunk;

TEST(PCMChunker, HoldsSilenceBackAfterTwoSeconds) {
  PCMChunker chunker;
  for (const auto& [count, level, sent] : {std::tuple{21U, 0.0F, 20U}, {1U, 0.5F, 1U}, {25U, 0.0F, 20U}})
    EXPECT_EQ(chunker.push(std::vector(count * chunkSize, level)).size(), sent);
  EXPECT_EQ(chunker.gatedChunks(), 6);
  EXPECT_EQ(chunker.pushedChunks(), 47);
}

TEST(PCMChunker, JudgesSilenceByPeakMagnitude) {
  const float quietest = PCMChunker::silencePeak;
  EXPECT_EQ(std::bit_cast<std::uint32_t>(quietest), 0x38D1B717U);
  const float below = std::nextafter(quietest, 0.0F);
  const float nan = std::numeric_limits<float>::quiet_NaN(); // is never the peak
  for (const auto& [peak, gated] :
       {std::pair{quietest, 0}, {-quietest, 0}, {-INFINITY, 0}, {below, 1}, {-below, 1}, {nan, 1}}) {
    PCMChunker chunker;
    chunker.push(std::vector<float>(20 * chunkSize));
    std::vector<float> chunk(chunkSize);
    chunk[chunkSize / 2 + 3] = peak;
    chunker.push(chunk);
    EXPECT_EQ(chunker.gatedChunks(), gated) << peak;
  }
}

TEST(PCMChunker, DrainsTailOnce) {
  PCMChunker chunker;
  for (const float level : {0.0F, 0.5F}) { // silence is drained as well, and does not come back
    EXPECT_FALSE(chunker.drain());
    chunker.push(std::vector<float>(chunkSize + 800, level));
    std::vector<float> rest(800, level);
    rest.resize(chunkSize);
    EXPECT_EQ(chunker.drain(), test::plainEncode(rest));
  }
}

TEST(PCMChunker, ConvertsSamplesToWireFormat) {
  const auto wire = PCMChunker::encode(std::array{1.0F, -1.0F, 2.0F, -2.0F, 0.5F, -0.5F});
  std::vector<std::int16_t> values(wire.size() / 2);
  std::memcpy(values.data(), wire.data(), wire.size()); // little-endian, as the machine is
  EXPECT_THAT(values, testing::ElementsAre(32767, -32768, 32767, -32768, 16383, -16384));
  EXPECT_THAT(PCMChunker::decode(std::span(wire).first(5)), // half a sample is left out
              testing::ElementsAre(32767.0F / 32768.0F, -1.0F));
}

// Floats of every kind, NaN and denormals too, and the neighbours of each step.
TEST(PCMChunker, EncodesLikePlainLoop) {
  std::vector<float> samples;
  for (std::uint64_t bits = 0; bits < 1ULL << 32U; bits += 9973)
    samples.push_back(std::bit_cast<float>(static_cast<std::uint32_t>(bits)));
  for (int value = -33000; value <= 33000; ++value) {
    for (const float scale : {32767.0F, 32768.0F}) {
      const float step = static_cast<float>(value) / scale;
      for (const float toward : {-2.0F, step, 2.0F}) samples.push_back(std::nextafter(step, toward));
    }
  }
  EXPECT_EQ(PCMChunker::encode(samples), test::plainEncode(samples));
  for (std::size_t length = 0; length < 40; ++length) { // odd lengths reach the end of the vector loop
    const auto part = std::span(samples).subspan(1000 + length, length);
    EXPECT_EQ(PCMChunker::encode(part), test::plainEncode(part));
  }
}

TEST(PCMChunker, GivesSameChunksHoweverSoundIsCut) {
  std::mt19937 random(1);
  std::uniform_real_distribution<float> speech(-1.2F, 1.2F);
  std::vector<float> samples;
  for (int stretch = 0; stretch < 20; ++stretch) { // some below the gate, and longer than it waits
    const float level = stretch % 2 == 0 ? 1.0F : 8e-5F;
    for (auto left = random() % (60 * chunkSize); left > 0; --left) samples.push_back(level * speech(random));
  }
  PCMChunker whole;
  const auto expected = whole.push(samples);
  EXPECT_GT(whole.gatedChunks(), 20);
  for (const std::size_t longest : {10'000U, 512U, 7U}) {
    PCMChunker chunker;
    PCMChunker::Chunks chunks;
    for (auto rest = std::span<const float>(samples); !rest.empty();) {
      const auto count = std::min<std::size_t>(rest.size(), random() % (longest + 1));
      for (auto& chunk : chunker.push(rest.first(count))) chunks.push_back(std::move(chunk));
      rest = rest.subspan(count);
    }
    EXPECT_EQ(chunks, expected) << "blocks of at most " << longest;
    EXPECT_EQ(chunker.drain(), PCMChunker(whole).drain());
  }
}

} // namespace
} // namespace tolvera
