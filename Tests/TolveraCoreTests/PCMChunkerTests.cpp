#include "TolveraCore/PCMChunker.h"

#include "Harness/PlainEncoding.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <random>

namespace tolvera {
namespace {

using platform::Data;
constexpr auto chunkSize = PCMChunker::samplesPerChunk;

std::vector<float> block(std::size_t count, float value) { return std::vector<float>(count, value); }

Data bytes(std::initializer_list<int> values) {
  Data data;
  for (const int value : values) data.push_back(static_cast<std::byte>(value));
  return data;
}

TEST(PCMChunker, HoldsSilenceBackAfterTwoSeconds) {
  PCMChunker chunker;
  const auto silence = block(chunkSize, 0);
  for (int i = 0; i < 20; ++i) EXPECT_EQ(chunker.push(silence).size(), 1U);
  EXPECT_TRUE(chunker.push(silence).empty());
  EXPECT_EQ(chunker.gatedChunks(), 1);
  EXPECT_EQ(chunker.pushedChunks(), 21);

  auto click = silence;
  click[chunkSize - 1] = 0.5F;
  EXPECT_EQ(chunker.push(click).size(), 1U);
  EXPECT_EQ(chunker.push(block(25 * chunkSize, 0)).size(), 20U);
  EXPECT_EQ(chunker.gatedChunks(), 6);
}

TEST(PCMChunker, JudgesSilenceByPeakMagnitude) {
  const float quietest = PCMChunker::silencePeak;
  EXPECT_EQ(std::bit_cast<std::uint32_t>(quietest), 0x38D1B717U);
  const auto gates = [](float peak) {
    PCMChunker chunker;
    auto chunk = block(chunkSize, 0);
    chunk[chunkSize / 2 + 3] = peak;
    for (int i = 0; i < 30; ++i) chunker.push(chunk);
    return chunker.gatedChunks() > 0;
  };
  EXPECT_FALSE(gates(quietest));
  EXPECT_FALSE(gates(-quietest));
  EXPECT_TRUE(gates(std::nextafter(quietest, 0.0F)));
  EXPECT_TRUE(gates(-std::nextafter(quietest, 0.0F)));
  EXPECT_TRUE(gates(std::numeric_limits<float>::quiet_NaN())) << "NaN is never the peak";
  EXPECT_FALSE(gates(-std::numeric_limits<float>::infinity()));
}

TEST(PCMChunker, DrainsTailOnce) {
  PCMChunker chunker;
  EXPECT_FALSE(chunker.drain());
  EXPECT_EQ(chunker.push(block(30 * chunkSize + 100, 0)).size(), 20U);
  EXPECT_EQ(chunker.drain(), Data(PCMChunker::bytesPerChunk));
  EXPECT_FALSE(chunker.drain());
  EXPECT_EQ(chunker.pushedChunks(), 30);
  EXPECT_EQ(chunker.gatedChunks(), 10);

  chunker.push(block(chunkSize + 800, 0.5F)); // the drained samples do not come back
  auto rest = block(800, 0.5F);
  rest.resize(chunkSize);
  EXPECT_EQ(chunker.drain(), test::plainEncode(rest));
}

TEST(PCMChunker, ConvertsSamplesToWireFormat) {
  constexpr float nan = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(PCMChunker::encode(std::array{1.0F, -1.0F, 2.0F, -2.0F, 0.5F, -0.5F, nan}),
            bytes({0xFF, 0x7F, 0x00, 0x80, 0xFF, 0x7F, 0x00, 0x80, 0xFF, 0x3F, 0x00, 0xC0, 0xFF, 0x7F}));
  EXPECT_THAT(PCMChunker::decode(bytes({0x00, 0x80, 0xFF, 0x7F, 0x55})),
              testing::ElementsAre(-1.0F, 32767.0F / 32768.0F));
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
