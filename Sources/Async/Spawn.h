#pragma once

#include "Async/Task.h"

#include <memory>
#include <string>
#include <utility>

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
  friend TaskHandle spawn(const Executor&, std::string, std::shared_ptr<const void>, Task<void>);
  explicit TaskHandle(std::shared_ptr<detail::SpawnedTask> task) : task_(std::move(task)) {}
  std::shared_ptr<detail::SpawnedTask> task_;
};

// Starts `task` on `executor`. It holds `self`, the object whose members the task uses, until the task has
// ended; null holds nothing. An exception that escapes the task goes to standard error with `name`; the
// `operation_aborted` of a cancelled task is expected and is not written.
TaskHandle spawn(const Executor& executor, std::string name, std::shared_ptr<const void> self,
                 Task<void> task);

// The same for a task that needs no object.
inline TaskHandle spawn(const Executor& executor, std::string name, Task<void> task) {
  return spawn(executor, std::move(name), nullptr, std::move(task));
}

} // namespace tolvera
