#pragma once

#include "Async/Task.h"

#include <memory>
#include <string>
#include <utility>

namespace tolvera {

namespace detail {
struct SpawnedTask;
}

// A task that was started. Copies stand for the same task, which goes on when they are destroyed.
class TaskHandle {
 public:
  TaskHandle() = default;

  // Asks the task to end: its present wait returns at once, and its next one throws
  // `operation_aborted`. Any thread, at any time, also within the task. Harmless to repeat.
  void cancel() const;
  // True when the task has ended, and for a handle without a task. Any thread.
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
