#include "Async/On.h"
#include "Async/Spawn.h"
#include "Async/SystemClock.h"

#include "Harness/TestLoop.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/thread_pool.hpp>
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>

namespace tolvera {
namespace {

using namespace std::chrono_literals;

Task<void> wake() {
  return suspend([](const Resumption& resume) { resume(); });
}
Task<std::thread::id> whereAmI() { co_return std::this_thread::get_id(); }
Task<void> failing() {
  throw std::runtime_error("boom");
  co_return;
}

// Two real threads: "main" runs here, the pool is somewhere else.
struct Crossing : testing::Test {
  boost::asio::io_context main;
  boost::asio::thread_pool pool{2};
  Executor away = boost::asio::make_strand(pool);

  // Runs the task here while another thread cancels it after 20 ms.
  TaskHandle cancelled(Task<void> task) {
    auto handle = spawn(main.get_executor(), "cancelled", std::move(task));
    const std::jthread canceller([&handle] {
      std::this_thread::sleep_for(20ms);
      handle.cancel();
    });
    main.run();
    return handle;
  }
};

TEST_F(Crossing, ReturnsHomeWithItsOutcome) {
  bool home = false;
  auto visit = [](Executor target, bool& isHome) -> Task<void> {
    const auto there = co_await on(target, whereAmI());
    isHome = there != std::this_thread::get_id();
    co_await on(target, failing());
  };
  testing::internal::CaptureStderr();
  spawn(main.get_executor(), "visit", visit(away, home));
  main.run();
  EXPECT_TRUE(home);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "[tolvera] task visit failed: boom\n");
}

TEST_F(Crossing, ShieldsItsWork) {
  std::atomic<int> steps = 0;
  auto work = [](std::atomic<int>& done) -> Task<void> {
    std::this_thread::sleep_for(60ms);
    for (; done < 3; ++done) co_await wake();
  };
  auto caller = [](Executor target, Task<void> inner, std::atomic<int>& done) -> Task<void> {
    co_await shielded(target, std::move(inner));
    ++done;
    co_await wake(); // the first wait after a cancellation throws
    ADD_FAILURE();
  };
  EXPECT_TRUE(cancelled(caller(away, work(steps), steps)).finished());
  EXPECT_EQ(steps, 4);
}

// The cancellation and the end of the work race on purpose; the sanitizers judge.
TEST_F(Crossing, SurvivesACancellationAtAnyMoment) {
  auto brief = [](int turns) -> Task<void> {
    for (int i = 0; i < turns; ++i) co_await wake();
  };
  auto guard = boost::asio::make_work_guard(main);
  std::jthread mainThread([this] { main.run(); });
  std::vector<TaskHandle> handles;
  for (int i = 0; i < 2000; ++i) {
    handles.push_back(spawn(main.get_executor(), "brief", on(away, brief(i % 7))));
    if (i % 3 != 0) std::this_thread::sleep_for(std::chrono::microseconds(i % 50));
    handles.back().cancel();
  }
  guard.reset();
  mainThread.join();
  for (const auto& handle : handles) EXPECT_TRUE(handle.finished());
}

// Quit cancels the task that asked for it, before or after that task's first wait.
TEST(Spawn, EndsACancelledTaskQuietly) {
  test::TestLoop loop;
  testing::internal::CaptureStderr();
  for (const auto& [before, after] : {std::pair{-1, 0}, {0, 0}, {0, 1}, {2, 0}, {2, 1}}) {
    auto object = std::make_shared<int>();
    const std::weak_ptr held = object;
    TaskHandle own;
    auto task = [](const TaskHandle& handle, Clock& clock, int first, int then) -> Task<void> {
      for (int i = 0; i < first; ++i) co_await clock.sleep(1s);
      handle.cancel();
      for (int i = 0; i < then; ++i) co_await clock.sleep(1s);
      EXPECT_TRUE(first >= 0 && then == 0) << "it went on after its cancellation";
    };
    own = spawn(loop.executor(), "itself", std::move(object), task(own, loop.clock(), before, after));
    EXPECT_FALSE(held.expired());
    if (before < 0) own.cancel();
    loop.advance(3s);
    EXPECT_TRUE(own.finished() && held.expired());
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(Crossing, WaitsOnTheSystemClock) {
  SystemClock clock(pool.get_executor());
  const auto began = clock.uptime();
  auto wait = [](Clock& on) -> Task<void> {
    for (const auto& duration : {Duration(-1s), Duration(10ms), Duration(1h)}) co_await on.sleep(duration);
  };
  EXPECT_TRUE(cancelled(wait(clock)).finished());
  EXPECT_GE(clock.uptime() - began, 10ms);
  EXPECT_LT(clock.uptime() - began, 10s);
}

} // namespace
} // namespace tolvera
