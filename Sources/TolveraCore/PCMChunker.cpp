#include "TolveraCore/PCMChunker.h"

#include <bit>
#include <cmath>
#include <cstring>

// The loops below have no branches and one exit, so that the compiler turns them into vector code. The order
// of the operands in each selection decides what becomes of NaN.

namespace tolvera {

namespace {

static_assert(std::endian::native == std::endian::little,
              "samples are copied to the wire as they lie in memory");

std::int16_t quantize(float sample) {
  const float scale = sample < 0.0F ? 32768.0F : 32767.0F;
  const float below = sample < 1.0F ? sample : 1.0F;
  const float clipped = below < -1.0F ? -1.0F : below;
  return static_cast<std::int16_t>(clipped * scale);
}

bool isSilent(std::span<const float> chunk) {
  std::uint32_t loud = 0;
  for (const float sample : chunk)
    loud |= static_cast<std::uint32_t>(std::fabs(sample) >= PCMChunker::silencePeak);
  return loud == 0;
}

} // namespace

PCMChunker::Chunks PCMChunker::push(std::span<const float> samples) {
  Chunks chunks;
  pending_.reserve(samplesPerChunk);
  while (pending_.size() + samples.size() >= samplesPerChunk) {
    const auto taken = samplesPerChunk - pending_.size();
    if (pending_.empty()) {
      cut(samples.first(taken), chunks);
    } else {
      pending_.insert(pending_.end(), samples.begin(), samples.begin() + static_cast<std::ptrdiff_t>(taken));
      cut(pending_, chunks);
      pending_.clear();
    }
    samples = samples.subspan(taken);
  }
  pending_.insert(pending_.end(), samples.begin(), samples.end());
  return chunks;
}

void PCMChunker::cut(std::span<const float> chunk, Chunks& into) {
  ++pushedChunks_;
  silentRun_ = isSilent(chunk) ? silentRun_ + 1 : 0;
  if (silentRun_ > silentChunksToSend) {
    ++gatedChunks_;
    return;
  }
  into.push_back(encode(chunk));
}

std::optional<platform::Data> PCMChunker::drain() {
  if (pending_.empty()) return std::nullopt;
  pending_.resize(samplesPerChunk);
  auto chunk = encode(pending_);
  pending_.clear();
  return chunk;
}

platform::Data PCMChunker::encode(std::span<const float> samples) {
  platform::Data bytes(2 * samples.size());
  std::byte* to = bytes.data();
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const auto value = quantize(samples[i]);
    std::memcpy(to + 2 * i, &value, sizeof value);
  }
  return bytes;
}

std::vector<float> PCMChunker::decode(std::span<const std::byte> data) {
  std::vector<float> samples(data.size() / 2);
  const std::byte* from = data.data();
  for (std::size_t i = 0; i < samples.size(); ++i) {
    std::int16_t value = 0;
    std::memcpy(&value, from + 2 * i, sizeof value);
    samples[i] = static_cast<float>(value) / 32768.0F;
  }
  return samples;
}

} // namespace tolvera
