#pragma once

#include "Async/Task.h"

#include <chrono>

namespace tolvera {

using Duration = std::chrono::nanoseconds;

// A point of wall-clock time. Points are compared with one another and subtracted; `distantPast` is only
// ever compared, since its distance to anything else overflows.
using WallTime = std::chrono::time_point<std::chrono::system_clock, Duration>;
inline constexpr WallTime distantPast = WallTime::min();

// Both kinds of time: the wall clock, and waits on a monotonic clock that goes on while the machine
// sleeps. Any thread.
class Clock {
 public:
  virtual ~Clock() = default;

  [[nodiscard]] virtual WallTime now() const = 0;
  // Waits for `duration`; none or less gives other work one turn. Cancelling the caller ends the wait
  // early and without an exception.
  virtual Task<void> sleep(Duration duration) = 0;
};

} // namespace tolvera
