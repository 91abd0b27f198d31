#pragma once

#include "Async/Clock.h"

namespace tolvera {

// The system's clocks. Waits run on CLOCK_BOOTTIME by a timer descriptor each, on the io_context behind
// `executor`, and resume the caller on its own executor.
class SystemClock final : public Clock {
 public:
  // `executor` must belong to an io_context (or a strand of one) that somebody runs.
  explicit SystemClock(Executor executor) : executor_(std::move(executor)) {}

  [[nodiscard]] WallTime now() const override;
  Task<void> sleep(Duration duration) override;

 private:
  Executor executor_;
};

} // namespace tolvera
