#pragma once

#include "Async/Clock.h"
#include "Async/On.h"
#include "Async/Spawn.h"
#include "Async/Suspension.h"

#include <boost/asio/io_context.hpp>

#include <functional>
#include <map>
#include <mutex>
#include <optional>

namespace tolvera::test {

// A clock that stands still until the test moves it. Any thread may sleep on it.
class VirtualClock final : public Clock {
 public:
  [[nodiscard]] WallTime now() const override;
  [[nodiscard]] Duration uptime() const override { return now().time_since_epoch(); }
  Task<void> sleep(Duration duration) override;

  // When the first sleeper wakes; nothing without sleepers.
  [[nodiscard]] std::optional<WallTime> nextDue() const;
  [[nodiscard]] std::size_t sleepers() const;
  // Moves time forward to `time` and wakes the sleepers that are due by then.
  void moveTo(WallTime time);

 private:
  mutable std::mutex mutex_;
  WallTime now_{std::chrono::hours(24 * 365 * 50)};
  std::multimap<WallTime, Resumption> sleepers_;
};

// The main thread of a test: an io_context stepped by hand, and virtual time. Strands made on `executor()`
// run here too, so a test is deterministic.
class TestLoop {
 public:
  ~TestLoop();

  [[nodiscard]] Executor executor() { return context_.get_executor(); }
  boost::asio::io_context& context() { return context_; }
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
  bool settleUntil(const std::function<bool()>& condition,
                   std::chrono::milliseconds limit = std::chrono::seconds(10));
  // Runs in real time until no coroutine is left on this loop, for up to `limit`; true if none is left. For
  // use before a context that they wait for is destroyed.
  bool drain(std::chrono::milliseconds limit = std::chrono::seconds(10));

 private:
  void runUntil(const bool& ended);

  boost::asio::io_context context_;
  VirtualClock clock_;
};

template<typename T>
T TestLoop::run(Task<T> task) {
  auto crossing = std::make_shared<detail::Crossing<T>>();
  bool ended = false;
  boost::asio::co_spawn(context_, detail::runInto<T>(crossing, std::move(task)),
                        [&ended, crossing](std::exception_ptr failure) {
                          crossing->failure = std::move(failure);
                          ended = true;
                        });
  runUntil(ended);
  if (crossing->failure) std::rethrow_exception(crossing->failure);
  if constexpr (!std::is_void_v<T>) return std::move(*crossing->value);
}

} // namespace tolvera::test
