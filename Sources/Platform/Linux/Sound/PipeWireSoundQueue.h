#pragma once

#include "Platform/AudioFormat.h"

#include <atomic>
#include <chrono>
#include <cstdint>

namespace tolvera::adapters {

// Buffers on their way to the real-time thread, back to back: one writer, one reader, no lock. The writer
// frees the buffers that were played.
class PipeWireSoundQueue {
 public:
  PipeWireSoundQueue();
  ~PipeWireSoundQueue(); // the reader must be gone
  PipeWireSoundQueue(const PipeWireSoundQueue&) = delete;
  PipeWireSoundQueue& operator=(const PipeWireSoundQueue&) = delete;

  // Writer. A buffer for which there is no memory is dropped.
  void push(platform::AudioPCMBuffer buffer) noexcept;
  void drop() noexcept; // all that was pushed, the buffer in progress included
  // Any thread: drops what would have been over by now, had it been read in time.
  void dropOverdue() noexcept;
  // Writer. Frames that were pushed and are neither read nor dropped.
  [[nodiscard]] std::uint64_t waiting() const noexcept;
  // Any thread: true if there is sound to read.
  [[nodiscard]] bool hasSound() const noexcept;

  // Reader. Fills `frames` samples of each plane: with sound, then with silence if there is not enough. Gives
  // the number of frames with sound. A channel that a buffer lacks is silent.
  std::size_t read(float* const* planes, std::uint32_t channels, std::size_t frames) noexcept;

 private:
  using Clock = std::chrono::steady_clock;
  struct Item;

  void free() noexcept;

  Item* first_; // writer: the oldest item that is not freed
  Item* last_;
  std::uint64_t framesDropped_ = 0; // writer: all that were pushed before the last drop
  std::atomic<Item*> current_;      // reader: the items before it may be freed
  std::uint32_t position_ = 0;      // reader: frames of the current item that were read
  std::atomic<std::uint64_t> framesRead_{0};
  std::atomic<Clock::time_point> overdue_{Clock::time_point::min()}; // what ends by then is dropped
  // Sequence numbers of the last item that was pushed, that was dropped, that was read to its end.
  std::atomic<std::uint64_t> pushed_{0};
  std::atomic<std::uint64_t> dropped_{0};
  std::atomic<std::uint64_t> completed_{0};
};

} // namespace tolvera::adapters
