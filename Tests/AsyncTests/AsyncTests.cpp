#include "Async/AsyncStream.h"
#include "Async/On.h"
#include "Async/Spawn.h"
#include "Async/SystemClock.h"

#include "Harness/TestLoop.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/thread_pool.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <thread>
#include <vector>

namespace tolvera {
namespace {

using namespace std::chrono_literals;

Task<void> wake() {
  return suspend([](const Resumption& resume) { resume(); });
}
Task<std::thread::id> whereAmI() { co_return std::this_thread::get_id(); }

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
  auto visit = [](Executor target) -> Task<void> {
    const auto there = co_await on(target, whereAmI());
    EXPECT_NE(there, std::this_thread::get_id());
    co_await on(target, []() -> Task<void> { co_return throw std::runtime_error("boom"); }());
  };
  testing::internal::CaptureStderr();
  spawn(main.get_executor(), "visit", visit(away));
  main.run();
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
  for (int i = 0; i < 2000; ++i) {
    const auto handle = spawn(main.get_executor(), "brief", on(away, brief(i % 7)));
    if (i % 3 != 0) std::this_thread::sleep_for(std::chrono::microseconds(i % 50));
    handle.cancel();
  }
  guard.reset(); // the main thread ends with the last task
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
    for (const Duration duration : {-1s, 1s, 3600s}) co_await on.sleep(duration / 100);
  };
  EXPECT_TRUE(cancelled(wait(clock)).finished());
  EXPECT_GE(clock.uptime() - began, 10ms);
  EXPECT_LT(clock.uptime() - began, 10s);
}

using Numbers = AsyncStream<int>;

Task<void> readAll(Numbers stream, std::vector<int>& into) {
  while (auto value = co_await stream.next()) into.push_back(*value);
}

TEST(AsyncStream, DeliversInOrderUntilItEnds) {
  test::TestLoop loop;
  auto [first, stream] = Numbers::make(Numbers::newest(3));
  std::optional second = first;
  std::vector<int> read;
  for (int i = 0; i < 10; ++i) second->yield(i); // the newest three are kept
  auto cancelled = spawn(loop.executor(), "reader", readAll(stream, read));
  loop.settle();
  cancelled.cancel();
  loop.settle();
  EXPECT_TRUE(cancelled.finished());
  second->yield(10);
  auto reader = spawn(loop.executor(), "reader", readAll(stream, read));
  loop.settle();
  second->yield(11);
  second.reset();
  loop.settle();
  EXPECT_FALSE(reader.finished()) << "one writer is left";
  first.finish();
  first.yield(12);
  loop.settle();
  EXPECT_EQ(read, (std::vector{7, 8, 9, 10, 11}));
  EXPECT_TRUE(reader.finished());
}

// The last writer to go ends the stream.
TEST(AsyncStream, CarriesEveryValueBetweenThreads) {
  boost::asio::io_context context;
  std::vector<int> read;
  std::vector<std::jthread> threads;
  {
    const auto [writer, stream] = Numbers::make();
    spawn(context.get_executor(), "reader", readAll(stream, read));
    for (int first = 0; first < 20000; first += 5000) {
      threads.emplace_back([end = writer, first] {
        for (int i = 0; i < 5000; ++i) end.yield(first + i);
      });
    }
  }
  context.run();
  EXPECT_EQ(read.size(), 20000U);
  const auto byThread = [](int a, int b) { return a / 5000 < b / 5000; };
  std::ranges::stable_sort(read, byThread);
  EXPECT_TRUE(std::ranges::is_sorted(read)) << "each thread's values are in its order";
}

} // namespace
} // namespace tolvera
