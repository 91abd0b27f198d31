#include "Async/Spawn.h"

#include "Async/Printable.h"

#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/dispatch.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/system/system_error.hpp>

#include <atomic>
#include <cstdio>
#include <exception>

namespace tolvera {

namespace detail {

struct SpawnedTask {
  SpawnedTask(Executor on, std::string called) : executor(std::move(on)), name(std::move(called)) {}

  const Executor executor;
  const std::string name;
  boost::asio::cancellation_signal signal; // used on the executor only
  bool started = false;                    // likewise
  std::atomic<bool> cancelled = false;
  std::atomic<bool> finished = false;
};

namespace {

void report(const std::string& name, const char* what) {
  const auto line = "[tolvera] task " + name + " failed: " + printableOnStandardError(what) + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
}

struct Completion {
  std::shared_ptr<SpawnedTask> task;

  using cancellation_slot_type = boost::asio::cancellation_slot;
  [[nodiscard]] cancellation_slot_type get_cancellation_slot() const noexcept { return task->signal.slot(); }

  void operator()(std::exception_ptr failure) const {
    task->finished = true;
    if (!failure) return;
    try {
      std::rethrow_exception(failure);
    } catch (const boost::system::system_error& error) {
      if (!(task->cancelled && error.code() == boost::asio::error::operation_aborted)) {
        report(task->name, error.what());
      }
    } catch (const std::exception& error) {
      report(task->name, error.what());
    } catch (...) {
      report(task->name, "unknown exception");
    }
  }
};

// Asio's frame around a task must not be cancelled outside the task: what it throws there ends the program.
// It waits before the task begins, so a cancellation counts from `started`; and it waits once more after a
// task that never suspended, so nothing throws from then on.
Task<void> run(std::shared_ptr<SpawnedTask> spawned, std::shared_ptr<const void>, Task<void> task) {
  std::exception_ptr failure;
  spawned->started = true;
  try {
    if (!spawned->cancelled) co_await std::move(task);
  } catch (...) {
    failure = std::current_exception();
  }
  co_await boost::asio::this_coro::throw_if_cancelled(false);
  if (failure) std::rethrow_exception(failure);
}

} // namespace
} // namespace detail

void TaskHandle::cancel() const {
  if (!task_ || task_->finished || task_->cancelled.exchange(true)) return;
  boost::asio::dispatch(task_->executor, [task = task_] {
    if (task->started && !task->finished) task->signal.emit(boost::asio::cancellation_type::terminal);
  });
}

bool TaskHandle::finished() const { return !task_ || task_->finished; }

TaskHandle spawn(const Executor& executor, std::string name, std::shared_ptr<const void> self,
                 Task<void> task) {
  auto spawned = std::make_shared<detail::SpawnedTask>(executor, std::move(name));
  auto whole = detail::run(spawned, std::move(self), std::move(task));
  // Posted first, so that the slot is bound on the executor, where `cancel` emits.
  boost::asio::post(executor, [spawned, whole = std::move(whole)]() mutable {
    boost::asio::co_spawn(spawned->executor, std::move(whole), detail::Completion{spawned});
  });
  return TaskHandle(std::move(spawned));
}

} // namespace tolvera
