#pragma once

#include "Platform/Linux/Network/BeastURLSession.h"

#include <algorithm>
#include <chrono>

namespace tolvera::adapters {

// How fast the messages of one connection are read. What is too much waits in the socket, and then at the
// sender, so that the queues behind the connection stay short. One thread.
class ReadingPace {
 public:
  // Takes note of a message, and gives the time to wait before the next one is read.
  Duration pauseAfter(std::size_t bytes, const BeastOptions& options) {
    const double cost =
        std::max(1 / options.messagesPerSecond, static_cast<double>(bytes) / options.bytesPerSecond);
    const auto now = Clock::now();
    next_ = std::max(next_, now) +
            std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(cost));
    return next_ - now > burst ? next_ - now : Duration::zero();
  }

 private:
  using Clock = std::chrono::steady_clock;
  // Messages come in groups, and a timer for each of them would cost more than the message.
  static constexpr auto burst = std::chrono::milliseconds(50);
  Clock::time_point next_ = Clock::now(); // when all that was read has been paid for
};

} // namespace tolvera::adapters
