#include "TolveraCore/PCMChunker.h"

#include "Support/PlainEncoding.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

Data encoded(float sample) { return PCMChunker::encode(std::array{sample}); }

TEST(PCMChunker, KeepsWhatDoesNotFillAChunk) {
  PCMChunker chunker;
  EXPECT_TRUE(chunker.push({}).empty());
  EXPECT_TRUE(chunker.push(block(chunkSize - 1, 0.5F)).empty());
  EXPECT_EQ(chunker.push(block(1, 0.5F)).size(), 1U);
  EXPECT_EQ(chunker.push(block(4000, 0.25F)).size(), 2U);
  const auto rest = chunker.drain();
  ASSERT_TRUE(rest);
  EXPECT_EQ(*rest, [] {
    auto samples = block(800, 0.25F);
    samples.resize(chunkSize);
    return test::plainEncode(samples);
  }());
}

TEST(PCMChunker, HoldsBackSilenceAfterTwoSecondsAndOpensAtOnce) {
  PCMChunker chunker;
  const auto silence = block(chunkSize, 0);
  for (int i = 0; i < 20; ++i) EXPECT_EQ(chunker.push(silence).size(), 1U);
  EXPECT_TRUE(chunker.push(silence).empty());
  EXPECT_TRUE(chunker.push(silence).empty());
  EXPECT_EQ(chunker.gatedChunks(), 2);
  EXPECT_EQ(chunker.pushedChunks(), 22);

  auto click = silence;
  click[chunkSize - 1] = 0.5F;
  EXPECT_EQ(chunker.push(click).size(), 1U);
  EXPECT_EQ(chunker.push(block(25 * chunkSize, 0)).size(), 20U);
  EXPECT_EQ(chunker.gatedChunks(), 7);
}

TEST(PCMChunker, CallsAChunkSilentByItsPeakMagnitudeAlone) {
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

TEST(PCMChunker, DrainsTheTailOnceWhateverTheGateSays) {
  PCMChunker chunker;
  EXPECT_FALSE(chunker.drain());
  chunker.push(block(30 * chunkSize + 100, 0));
  const auto tail = chunker.drain();
  ASSERT_TRUE(tail);
  EXPECT_EQ(*tail, Data(PCMChunker::bytesPerChunk));
  EXPECT_FALSE(chunker.drain());
  EXPECT_EQ(chunker.pushedChunks(), 30);
  EXPECT_EQ(chunker.gatedChunks(), 10);

  chunker.push(block(chunkSize, 0.5F)); // the drained samples do not come back
  EXPECT_FALSE(chunker.drain());
}

TEST(PCMChunker, EncodesTheEdgesOfTheRange) {
  EXPECT_EQ(encoded(1), bytes({0xFF, 0x7F}));
  EXPECT_EQ(encoded(-1), bytes({0x00, 0x80}));
  EXPECT_EQ(encoded(2), bytes({0xFF, 0x7F}));
  EXPECT_EQ(encoded(-2), bytes({0x00, 0x80}));
  EXPECT_EQ(encoded(0.5), bytes({0xFF, 0x3F}));
  EXPECT_EQ(encoded(-0.5), bytes({0x00, 0xC0}));
  EXPECT_EQ(encoded(std::numeric_limits<float>::quiet_NaN()), bytes({0xFF, 0x7F}));
  EXPECT_TRUE(PCMChunker::encode({}).empty());
}

TEST(PCMChunker, DecodesWholeSamplesOnOneScale) {
  EXPECT_THAT(PCMChunker::decode(bytes({0x00, 0x80, 0xFF, 0x7F, 0x55})),
              testing::ElementsAre(-1.0F, 32767.0F / 32768.0F));
  EXPECT_TRUE(PCMChunker::decode(bytes({0x55})).empty());
  Data all;
  for (int value = 0; value < 65536; ++value) {
    all.push_back(static_cast<std::byte>(value & 0xFF));
    all.push_back(static_cast<std::byte>(value >> 8));
  }
  EXPECT_EQ(PCMChunker::decode(all), test::plainDecode(all));
}

// Every exponent with mantissas at and around its ends, both signs: NaN, infinities, denormals and all.
TEST(PCMChunker, EncodesEveryKindOfFloatAsThePlainLoopDoes) {
  std::vector<float> samples;
  std::mt19937 random(7);
  for (std::uint32_t top = 0; top < 512; ++top) {
    for (const std::uint32_t low : {0U, 1U, 2U, 0x3FFFFFU, 0x400000U, 0x7FFFFEU, 0x7FFFFFU}) {
      samples.push_back(std::bit_cast<float>((top << 23) | low));
    }
    for (int i = 0; i < 200; ++i) {
      samples.push_back(std::bit_cast<float>((top << 23) | (static_cast<std::uint32_t>(random()) >> 9)));
    }
  }
  for (int value = -33000; value <= 33000; ++value) { // either side of each step
    for (const float scale : {32767.0F, 32768.0F}) {
      const float step = static_cast<float>(value) / scale;
      for (const float toward : {-2.0F, 2.0F}) samples.push_back(std::nextafter(step, toward));
      samples.push_back(step);
    }
  }
  EXPECT_EQ(PCMChunker::encode(samples), test::plainEncode(samples));
  for (std::size_t length = 0; length < 40; ++length) { // odd lengths and alignments take the loop's tail
    const auto part = std::span(samples).subspan(1000 + length, length);
    EXPECT_EQ(PCMChunker::encode(part), test::plainEncode(part));
  }
}

// The rules of the chunker, applied to a whole recording at once.
struct Recording {
  std::vector<Data> chunks;
  std::int64_t pushed = 0;
  std::int64_t gated = 0;
};

Recording chunkedAtOnce(std::span<const float> samples) {
  Recording result;
  int silentRun = 0;
  for (; samples.size() >= chunkSize; samples = samples.subspan(chunkSize)) {
    const auto chunk = samples.first(chunkSize);
    float peak = 0;
    for (const float sample : chunk) {
      if (std::fabs(sample) > peak) peak = std::fabs(sample);
    }
    ++result.pushed;
    silentRun = peak < PCMChunker::silencePeak ? silentRun + 1 : 0;
    if (silentRun > PCMChunker::silentChunksToSend) {
      ++result.gated;
    } else {
      result.chunks.push_back(test::plainEncode(chunk));
    }
  }
  return result;
}

TEST(PCMChunker, GivesTheSameChunksHoweverTheSoundIsCutIntoBlocks) {
  for (unsigned seed = 1; seed <= 12; ++seed) {
    std::mt19937 random(seed);
    std::vector<float> samples(90 * chunkSize + random() % chunkSize);
    std::size_t at = 0;
    while (at < samples.size()) { // stretches of speech, of hiss below the gate, and of garbage
      const auto end = std::min<std::size_t>(samples.size(), at + random() % (30 * chunkSize) + 1);
      const auto kind = random() % 3;
      std::uniform_real_distribution<float> speech(-1.2F, 1.2F);
      for (; at < end; ++at) {
        samples[at] = kind == 0   ? speech(random)
                      : kind == 1 ? speech(random) * 8e-5F
                                  : std::bit_cast<float>(static_cast<std::uint32_t>(random()));
      }
    }
    const auto expected = chunkedAtOnce(samples);
    PCMChunker chunker;
    std::vector<Data> chunks;
    const std::size_t longest = seed % 3 == 0 ? 10'000 : seed % 3 == 1 ? 512 : 7;
    for (auto rest = std::span<const float>(samples); !rest.empty();) {
      const auto count = std::min<std::size_t>(rest.size(), random() % (longest + 1));
      for (auto& chunk : chunker.push(rest.first(count))) chunks.push_back(std::move(chunk));
      rest = rest.subspan(count);
    }
    EXPECT_EQ(chunks, expected.chunks) << "seed " << seed;
    EXPECT_EQ(chunker.pushedChunks(), expected.pushed);
    EXPECT_EQ(chunker.gatedChunks(), expected.gated);
  }
}

} // namespace
} // namespace tolvera
