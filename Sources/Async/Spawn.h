#pragma once

#include "Async/Task.h"

#include <memory>
#include <string>

namespace tolvera {

namespace detail {
struct SpawnedTask;
}

// A task under way. Copies stand for the same task; dropping the handle leaves the task running.
class TaskHandle {
 public:
  TaskHandle() = default;

  // Asks the task to end: its present wait returns at once, and its next one throws
  // `operation_aborted`. Any thread. Harmless to repeat, and after the task's end.
  void cancel() const;
  // True once the task has ended, for whatever reason; true of a default-made handle. Any thread.
  [[nodiscard]] bool finished() const;

 private:
  friend TaskHandle spawn(const Executor&, std::string, Task<void>);
  explicit TaskHandle(std::shared_ptr<detail::SpawnedTask> task) : task_(std::move(task)) {}
  std::shared_ptr<detail::SpawnedTask> task_;
};

// Starts `task` on `executor`. An exception that escapes it is a fault of ours and goes to standard error
// with `name`; the `operation_aborted` of a cancelled task is not one.
TaskHandle spawn(const Executor& executor, std::string name, Task<void> task);

} // namespace tolvera
