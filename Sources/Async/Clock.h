#pragma once

#include "Async/Task.h"

#include <chrono>

namespace tolvera {

using Duration = std::chrono::nanoseconds;

// A point of wall-clock time. Points are compared and subtracted; `distantPast` is only compared, since its
// distance to any other point overflows.
using WallTime = std::chrono::time_point<std::chrono::system_clock, Duration>;
inline constexpr WallTime distantPast = WallTime::min();

// The wall clock, and a monotonic clock for waits that goes on while the machine sleeps. Any thread.
class Clock {
 public:
  virtual ~Clock() = default;

  [[nodiscard]] virtual WallTime now() const = 0;
  // The time on the clock that `sleep` waits on. Its zero means nothing.
  [[nodiscard]] virtual Duration uptime() const = 0;
  // As `uptime`, on a clock that stands still while the machine sleeps.
  [[nodiscard]] virtual Duration awakeTime() const = 0;
  // Waits for `duration`; zero or less gives other work one turn. Cancelling the caller ends the wait early,
  // without an exception.
  virtual Task<void> sleep(Duration duration) = 0;
};

} // namespace tolvera
