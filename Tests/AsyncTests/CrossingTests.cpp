#include "Async/On.h"
#include "Async/Spawn.h"

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

using boost::asio::this_coro::cancellation_state;

// Two real threads: "main" runs here, the pool is somewhere else.
class Crossing : public testing::Test {
 protected:
  boost::asio::io_context main_;
  boost::asio::thread_pool pool_{2};
  boost::asio::strand<boost::asio::thread_pool::executor_type> strand_{pool_.get_executor()};

  Executor main() { return main_.get_executor(); }
  Executor away() { return strand_; }
};

Task<std::thread::id> whereAmI() { co_return std::this_thread::get_id(); }
Task<std::string> failing() {
  throw std::runtime_error("no");
  co_return "";
}

TEST_F(Crossing, RunsAwayAndResumesAtHomeWithTheResultOrTheException) {
  std::thread::id there;
  std::thread::id after;
  std::string failure;
  auto visit = [](Executor target, std::thread::id& thereId, std::thread::id& afterId,
                  std::string& what) -> Task<void> {
    thereId = co_await on(target, whereAmI());
    afterId = std::this_thread::get_id();
    try {
      co_await on(target, failing());
    } catch (const std::runtime_error& error) {
      what = error.what();
    }
  };
  spawn(main(), "visit", visit(away(), there, after, failure));
  main_.run();
  EXPECT_NE(there, std::this_thread::get_id());
  EXPECT_EQ(after, std::this_thread::get_id());
  EXPECT_EQ(failure, "no");
}

TEST_F(Crossing, CancelsTheWorkOnTheOtherSide) {
  std::atomic<bool> sawCancellation = false;
  std::optional<Resumption> never;
  auto waitForever = [](std::optional<Resumption>& kept, std::atomic<bool>& saw) -> Task<void> {
    co_await suspend([&kept](const Resumption& resume) { kept = resume; });
    saw = (co_await cancellation_state).cancelled() != boost::asio::cancellation_type::none;
  };
  auto handle = spawn(main(), "caller", on(away(), waitForever(never, sawCancellation)));
  std::jthread canceller([&handle] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    handle.cancel();
  });
  main_.run();
  EXPECT_TRUE(handle.finished());
  EXPECT_TRUE(sawCancellation);
}

TEST_F(Crossing, ShieldedWorkRunsToItsEndThoughTheCallerIsCancelled) {
  std::atomic<bool> completed = false;
  auto work = [](std::atomic<bool>& done) -> Task<void> {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    co_await suspend([](const Resumption& resume) { resume(); });
    done = (co_await cancellation_state).cancelled() == boost::asio::cancellation_type::none;
  };
  bool wentOn = false;
  auto caller = [](Executor target, Task<void> inner, bool& after) -> Task<void> {
    co_await shielded(target, std::move(inner));
    after = true;
    co_await suspend([](const Resumption& resume) { resume(); }); // the first wait after it throws
    ADD_FAILURE() << "a cancelled task went on past a wait";
  };
  auto handle = spawn(main(), "caller", caller(away(), work(completed), wentOn));
  std::jthread canceller([&handle] {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    handle.cancel();
  });
  main_.run();
  EXPECT_TRUE(completed);
  EXPECT_TRUE(wentOn);
  EXPECT_TRUE(handle.finished());
}

// The cancellation and the end of the work race on purpose; the sanitizers are the judges.
TEST_F(Crossing, SurvivesACancellationAtAnyMoment) {
  auto brief = [](int turns) -> Task<void> {
    for (int i = 0; i < turns; ++i) co_await suspend([](const Resumption& resume) { resume(); });
  };
  auto guard = boost::asio::make_work_guard(main_);
  std::jthread mainThread([this] { main_.run(); });
  std::vector<TaskHandle> handles;
  for (int i = 0; i < 2000; ++i) {
    auto handle = spawn(main(), "brief", on(away(), brief(i % 7)));
    if (i % 3 != 0) std::this_thread::sleep_for(std::chrono::microseconds(i % 50));
    handle.cancel();
    handles.push_back(handle);
  }
  guard.reset();
  mainThread.join();
  for (const auto& handle : handles) EXPECT_TRUE(handle.finished());
}

TEST(Spawn, NamesTheTaskWhoseExceptionEscapes) {
  test::TestLoop loop;
  auto broken = []() -> Task<void> {
    throw std::runtime_error("boom");
    co_return;
  };
  testing::internal::CaptureStderr();
  auto handle = spawn(loop.executor(), "pump", broken());
  loop.settle();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "[tolvera] task pump failed: boom\n");
  EXPECT_TRUE(handle.finished());
}

TEST(Spawn, ATaskCancelledBeforeItsFirstTurnNeverStarts) {
  test::TestLoop loop;
  bool started = false;
  auto task = [](bool& flag) -> Task<void> {
    flag = true;
    co_return;
  };
  auto handle = spawn(loop.executor(), "never", task(started));
  handle.cancel();
  loop.settle();
  EXPECT_FALSE(started);
  EXPECT_TRUE(handle.finished());
}

// Quit cancels the task that asked for it, which may not have suspended yet.
TEST(Spawn, TaskCancelsItself) {
  test::TestLoop loop;
  for (const int waits : {0, 1, 2}) {
    auto held = std::make_shared<int>(0);
    const std::weak_ptr<int> weak = held;
    TaskHandle own;
    auto task = [](const TaskHandle& handle, Clock& clock, int sleeps, bool& ended) -> Task<void> {
      handle.cancel();
      for (int i = 0; i < sleeps; ++i) co_await clock.sleep(std::chrono::seconds(1));
      ended = true;
    };
    bool ended = false;
    own = spawn(loop.executor(), "itself", std::move(held), task(own, loop.clock(), waits, ended));
    EXPECT_FALSE(weak.expired());
    loop.settle();
    EXPECT_TRUE(own.finished());
    EXPECT_EQ(ended, waits == 0) << "the first wait of a cancelled task throws";
    EXPECT_TRUE(weak.expired());
  }
}

TEST(Spawn, ACancelledTaskIsNotReported) {
  test::TestLoop loop;
  auto sleeper = [](Clock& clock) -> Task<void> {
    for (;;) co_await clock.sleep(std::chrono::seconds(1));
  };
  testing::internal::CaptureStderr();
  auto handle = spawn(loop.executor(), "sleeper", sleeper(loop.clock()));
  loop.advance(std::chrono::seconds(3));
  EXPECT_FALSE(handle.finished());
  handle.cancel();
  loop.settle();
  EXPECT_TRUE(handle.finished());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

} // namespace
} // namespace tolvera
