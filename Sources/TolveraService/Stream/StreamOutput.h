#pragma once

#include "Async/AsyncStream.h"

#include <atomic>
#include <cstddef>
#include <optional>
#include <string>

namespace tolvera::service {

// The queue of a run's frames for its socket. Workers write from any thread; the connection reads.
class StreamOutput {
 public:
  struct Frame {
    std::string payload;
    bool binary = false;
    bool last = false; // the socket is closed after it; an empty payload is not sent
  };

  void send(std::string text) { put({std::move(text), false, false}); }
  // Signed 16-bit little-endian samples at 24,000 Hz.
  void sendBinary(std::string samples) { put({std::move(samples), true, false}); }
  void sendLast(std::string text) { put({std::move(text), false, true}); }

  // The next frame, waiting for it.
  Task<std::optional<Frame>> next() {
    std::optional<Frame> frame = co_await ends_.second.next();
    if (frame) --waiting_;
    co_return frame;
  }
  // Frames that are not sent yet. Their number grows while the client does not read.
  [[nodiscard]] std::size_t waiting() const { return waiting_; }

 private:
  void put(Frame frame) {
    ++waiting_;
    ends_.first.yield(std::move(frame));
  }

  std::pair<AsyncStream<Frame>::Writer, AsyncStream<Frame>> ends_ = AsyncStream<Frame>::make();
  std::atomic<std::size_t> waiting_ = 0;
};

} // namespace tolvera::service
