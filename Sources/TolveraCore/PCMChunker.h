#pragma once

#include "Platform/URLSession.h"

#include <boost/container/small_vector.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace tolvera {

// Cuts captured sound into the chunks that are sent, and holds back long digital silence. A plain value that
// the audio pump makes for one run; one thread at a time.
class PCMChunker {
 public:
  static constexpr int sampleRate = 16'000; // Hz, mono
  static constexpr std::size_t samplesPerChunk = 1'600;
  static constexpr std::size_t bytesPerChunk = 2 * samplesPerChunk;
  static constexpr float silencePeak = 0.0001F; // a chunk whose peak magnitude is below this is silent
  static constexpr int silentChunksToSend = 20; // silent chunks in a row that still go out

  // Has room for the chunks of one block of any backend, so that the list itself is not allocated.
  using Chunks = boost::container::small_vector<platform::Data, 4>;

  // Takes a block of samples, nominally -1 to 1, of any length. Gives the chunks that are now complete and
  // pass the silence gate, oldest first, each of `bytesPerChunk` bytes.
  Chunks push(std::span<const float> samples);
  // The samples not yet given, padded with zeros to one chunk. The silence gate does not apply. Absent if
  // there are no samples.
  std::optional<platform::Data> drain();

  // Full chunks cut so far, and how many of them the silence gate held back.
  [[nodiscard]] std::int64_t pushedChunks() const { return pushedChunks_; }
  [[nodiscard]] std::int64_t gatedChunks() const { return gatedChunks_; }

  // Floats to signed 16-bit little-endian samples and back. Encoding truncates toward zero, clips what is
  // out of range and reads NaN as 1. Decoding ignores a trailing odd byte. Any thread.
  static platform::Data encode(std::span<const float> samples);
  static std::vector<float> decode(std::span<const std::byte> data);

 private:
  void cut(std::span<const float> chunk, Chunks& into);

  std::vector<float> pending_; // always less than a chunk between calls
  std::int64_t silentRun_ = 0;
  std::int64_t pushedChunks_ = 0;
  std::int64_t gatedChunks_ = 0;
};

} // namespace tolvera
