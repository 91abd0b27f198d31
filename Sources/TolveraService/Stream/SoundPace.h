#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>

namespace tolvera::service {

// How fast a run's sound is taken: at most twice as fast as it is spoken over ten seconds, so that one client
// cannot keep a decoder busy for others. One thread.
class SoundPace {
 public:
  // The time to wait before more sound is read, after `samples` at 16,000 Hz.
  std::chrono::milliseconds pauseAfter(std::size_t samples) {
    const auto now = Clock::now();
    const double earned = speed * std::chrono::duration<double>(now - last_).count();
    last_ = now;
    ahead_ = std::max(0.0, ahead_ - earned) + static_cast<double>(samples) / samplesPerSecond;
    const double tooMuch = std::max(0.0, ahead_ - speed * window);
    return std::chrono::milliseconds(static_cast<long>(1000 * tooMuch / speed));
  }

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr double samplesPerSecond = 16000;
  static constexpr double speed = 2;
  static constexpr double window = 10; // s
  Clock::time_point last_ = Clock::now();
  double ahead_ = 0; // seconds of sound
};

} // namespace tolvera::service
