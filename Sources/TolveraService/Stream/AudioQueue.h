#pragma once

#include "Async/Gate.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string_view>
#include <vector>

namespace tolvera::service {

// The sound of one run, passed from the network thread to the worker that recognises it. It holds about ten
// seconds. While it is full, the client is not read.
class AudioQueue {
 public:
  static constexpr std::size_t capacity = 160000; // samples, 10 s

  // Network thread. Takes one frame of the client: signed 16-bit little-endian samples at 16,000 Hz. An odd
  // last byte is ignored. A frame is taken whole even if it goes beyond the capacity.
  void push(std::string_view frame);
  // Network thread, one caller at a time: waits until the queue is below its capacity.
  Task<void> untilRoom();
  // No more sound follows; what is queued is still heard. Any thread.
  void finish();
  // As `finish`, and what is queued is not heard either. Any thread.
  void abandon();

  // Between the two calls the worker is told to leave; what comes is kept. Any thread.
  void pause() { setPaused(true); }
  void resume() { setPaused(false); }

  enum class State { more, starved, paused, finished, abandoned };
  // Worker thread. Replaces `samples` by the next ones, at most `most`, waiting until there are `least`.
  // `starved`: fewer came, and no more for `patience`; `finished`: the last ones, perhaps none.
  State take(std::vector<std::int16_t>& samples, std::size_t least, std::size_t most,
             std::chrono::milliseconds patience);
  // Samples that are not taken yet. Any thread.
  [[nodiscard]] std::size_t waiting();
  // True if no more results are wanted. Any thread.
  [[nodiscard]] bool isAbandoned() const { return abandoned_; }

 private:
  [[nodiscard]] bool isFull();
  void setPaused(bool paused);

  std::mutex mutex_;
  std::condition_variable arrived_;
  std::vector<std::int16_t> samples_;
  std::size_t start_ = 0; // samples before it are taken
  bool finished_ = false;
  bool paused_ = false;
  std::atomic<bool> abandoned_ = false;
  Gate room_;

  [[nodiscard]] std::size_t count() const { return samples_.size() - start_; }
};

} // namespace tolvera::service
