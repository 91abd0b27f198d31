#pragma once

#include "Async/Clock.h"
#include "Async/On.h"
#include "Async/Spawn.h"
#include "Async/Suspension.h"
#include "Harness/Eventually.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/use_future.hpp>

#include <future>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>

namespace tolvera::test {

// A clock that stands still until the test moves it. Any thread may sleep on it.
class VirtualClock final : public Clock {
 public:
  [[nodiscard]] WallTime now() const override;
  [[nodiscard]] Duration uptime() const override { return now().time_since_epoch(); }
  [[nodiscard]] Duration awakeTime() const override { return uptime() - asleep; }
  Task<void> sleep(Duration duration) override;

  // When the first sleeper wakes; nothing without sleepers.
  [[nodiscard]] std::optional<WallTime> nextDue() const;
  [[nodiscard]] std::size_t sleepers() const;
  // Moves time forward to `time` and wakes the sleepers that are due by then.
  void moveTo(WallTime time);

  Duration asleep{}; // how long the machine has slept; not guarded against other threads

 private:
  mutable std::mutex mutex_;
  WallTime now_{std::chrono::hours(24 * 365 * 50)};
  std::multimap<WallTime, Resumption> sleepers_;
};

// The main thread of a test: an io_context stepped by hand, and virtual time. Strands made on `executor()`
// run here too, so a test is deterministic.
class TestLoop {
 public:
  ~TestLoop() { settle(); }

  [[nodiscard]] Executor executor() { return context_.get_executor(); }
  VirtualClock& clock() { return clock_; }

  // Runs the handlers that are ready, until none is.
  void settle();
  // Lets `duration` of virtual time pass, sleeper by sleeper, settling at each.
  void advance(Duration duration);
  // Runs the task to its end, moving virtual time on as it needs, and gives its result or throws. Fails
  // with std::runtime_error if it waits for something that is neither ready work nor virtual time.
  template<typename T>
  T run(Task<T> task);
  // Settles repeatedly for up to `limit` of real time until `condition` holds; true if it did. For tests
  // with real sockets or threads.
  template<typename Condition>
  bool settleUntil(const Condition& condition, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    const auto settled = [&] {
      settle();
      return condition();
    };
    return eventually(settled, limit);
  }
  // Settles in real time until no coroutine is left on this loop; true if none is left. For use before a
  // context that they wait for is destroyed.
  bool drain() {
    return settleUntil([this] { return context_.stopped(); });
  }

 private:
  boost::asio::io_context context_;
  VirtualClock clock_;
};

template<typename T>
T TestLoop::run(Task<T> task) {
  auto result = boost::asio::co_spawn(context_, std::move(task), boost::asio::use_future);
  settle();
  while (result.wait_for(Duration::zero()) != std::future_status::ready) {
    const auto due = clock_.nextDue();
    if (!due) throw std::runtime_error("the task waits for something that will not come");
    clock_.moveTo(*due);
    settle();
  }
  return result.get();
}

} // namespace tolvera::test
