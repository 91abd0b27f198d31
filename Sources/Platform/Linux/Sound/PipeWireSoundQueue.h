#pragma once

#include "Platform/AudioFormat.h"

#include <atomic>
#include <cstdint>

namespace tolvera::adapters {

// Buffers on their way to the real-time thread, back to back: one writer, one reader, no lock, and what was
// played is freed by the writer.
class PipeWireSoundQueue {
 public:
  PipeWireSoundQueue();
  ~PipeWireSoundQueue(); // the reader must be gone
  PipeWireSoundQueue(const PipeWireSoundQueue&) = delete;
  PipeWireSoundQueue& operator=(const PipeWireSoundQueue&) = delete;

  // Writer. A buffer for which there is no memory is dropped.
  void push(platform::AudioPCMBuffer buffer) noexcept;
  void drop() noexcept; // all that was pushed, the buffer in progress included
  // Any thread: something is left to be read.
  [[nodiscard]] bool hasSound() const noexcept;

  // Reader. Fills `frames` samples of each plane from what comes next; how many are sound, and silence
  // after these. A channel that a buffer lacks is silent.
  std::size_t read(float* const* planes, std::uint32_t channels, std::size_t frames) noexcept;

 private:
  struct Item;

  void free() noexcept;

  Item* first_; // writer: the oldest one not freed
  Item* last_;
  std::atomic<Item*> current_;              // reader: those before it may be freed
  std::uint32_t position_ = 0;              // reader: frames of it that are done
  std::atomic<std::uint64_t> pushed_{0};    // sequence number of the last one
  std::atomic<std::uint64_t> dropped_{0};   // of the last one that is void
  std::atomic<std::uint64_t> completed_{0}; // of the last one that was read to its end
};

} // namespace tolvera::adapters
