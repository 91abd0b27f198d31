#include "Async/Spawn.h"

#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/dispatch.hpp>
#include <boost/asio/error.hpp>
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
  boost::asio::cancellation_signal signal; // touched on the executor alone
  std::atomic<bool> cancelled = false;
  std::atomic<bool> finished = false;
};

namespace {

void report(const std::string& name, const char* what) {
  const auto line = "[tolvera] task " + name + " failed: " + what + "\n";
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

} // namespace
} // namespace detail

void TaskHandle::cancel() const {
  if (!task_ || task_->finished || task_->cancelled.exchange(true)) return;
  boost::asio::dispatch(task_->executor, [task = task_] {
    if (!task->finished) task->signal.emit(boost::asio::cancellation_type::terminal);
  });
}

bool TaskHandle::finished() const { return !task_ || task_->finished; }

TaskHandle spawn(const Executor& executor, std::string name, Task<void> task) {
  auto spawned = std::make_shared<detail::SpawnedTask>(executor, std::move(name));
  // Posted first, so that the slot is bound on the executor, where `cancel` emits.
  boost::asio::post(executor, [spawned, task = std::move(task)]() mutable {
    if (spawned->cancelled) {
      spawned->finished = true;
      return;
    }
    boost::asio::co_spawn(spawned->executor, std::move(task), detail::Completion{spawned});
  });
  return TaskHandle(std::move(spawned));
}

} // namespace tolvera
