#pragma once

#include "Async/Clock.h"

namespace tolvera {

// The system's clocks. Each wait is a timer descriptor of CLOCK_BOOTTIME on the io_context behind `executor`;
// the caller resumes on its own executor.
class SystemClock final : public Clock {
 public:
  // `executor` belongs to an io_context, or a strand of one, that a thread runs.
  explicit SystemClock(Executor executor) : executor_(std::move(executor)) {}

  [[nodiscard]] WallTime now() const override;
  [[nodiscard]] Duration uptime() const override;
  [[nodiscard]] Duration awakeTime() const override;
  Task<void> sleep(Duration duration) override;

 private:
  Executor executor_;
};

} // namespace tolvera
