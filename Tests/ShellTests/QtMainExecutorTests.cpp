#include "Async/On.h"
#include "Async/Spawn.h"
#include "Async/SystemClock.h"
#include "Tolvera/App/QtMainExecutor.h"

#include <boost/asio/dispatch.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTimer>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace tolvera::test {

namespace {

using namespace std::chrono_literals;

// Runs Qt's event loop until the condition holds; false after 10 s.
bool runUntil(const std::function<bool()>& condition) {
  QElapsedTimer timer;
  timer.start();
  while (!condition()) {
    if (timer.elapsed() > 10'000) return false;
    QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 10);
  }
  return true;
}

// A background context with its thread, as the program has one.
struct Background {
  boost::asio::io_context context{1};
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work{context.get_executor()};
  std::thread thread{[this] { context.run(); }};

  void stop() {
    context.stop();
    if (thread.joinable()) thread.join();
  }
  ~Background() { stop(); }
};

TEST(QtMainExecutor, runsOnTheMainThreadInTheOrderOfPosting) {
  QtMainExecutor main;
  const Executor executor = main.executor();
  std::vector<int> order;
  std::thread poster([&] {
    for (int i = 0; i < 1000; ++i) {
      boost::asio::post(executor, [&order, i, mainThread = std::this_thread::get_id()] {
        EXPECT_NE(std::this_thread::get_id(), mainThread);
        order.push_back(i);
      });
    }
  });
  EXPECT_TRUE(runUntil([&] { return order.size() == 1000; }));
  poster.join();
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

TEST(QtMainExecutor, keepsNobodyWaitingHoweverMuchIsPosted) {
  QtMainExecutor main;
  const Executor executor = main.executor();
  int handlers = 0;
  bool ended = false;
  std::function<void()> again = [&] {
    ++handlers;
    if (!ended) boost::asio::post(executor, again);
  };
  again();
  // A timer of the event loop has its turn although there is always a handler to run.
  QTimer::singleShot(0, [&] { ended = true; });
  EXPECT_TRUE(runUntil([&] { return ended; }));
  EXPECT_TRUE(runUntil([&, before = -1]() mutable { return std::exchange(before, handlers) == handlers; }));
}

TEST(QtMainExecutor, runsADispatchInPlaceOnlyInsideAHandler) {
  QtMainExecutor main;
  const Executor executor = main.executor();
  std::vector<int> order;
  boost::asio::dispatch(executor, [&] {
    boost::asio::post(executor, [&] { order.push_back(3); });
    boost::asio::dispatch(executor, [&] { order.push_back(1); });
    order.push_back(2);
  });
  EXPECT_TRUE(order.empty());
  EXPECT_TRUE(runUntil([&] { return order.size() == 3; }));
  EXPECT_EQ(order, std::vector<int>({1, 2, 3}));
}

TEST(QtMainExecutor, goesOnWhileAHandlerRunsAnEventLoop) {
  QtMainExecutor main;
  const Executor executor = main.executor();
  bool inner = false;
  bool outer = false;
  boost::asio::post(executor, [&] { outer = runUntil([&] { return inner; }); });
  boost::asio::post(executor, [&] { inner = true; });
  EXPECT_TRUE(runUntil([&] { return outer; }));
}

Task<void> crossBackAndForth(Executor background, std::atomic<int>& crossings, int count) {
  for (int i = 0; i < count; ++i) {
    auto there = [](std::atomic<int>& crossed) -> Task<void> {
      ++crossed;
      co_return;
    }(crossings);
    co_await on(background, std::move(there));
  }
}

TEST(QtMainExecutor, carriesCoroutinesToAnotherThreadAndBack) {
  QtMainExecutor main;
  Background background;
  std::atomic<int> crossings = 0;
  std::vector<TaskHandle> tasks;
  tasks.reserve(8);
  for (int i = 0; i < 8; ++i) {
    tasks.push_back(spawn(main.executor(), "crossing",
                          crossBackAndForth(background.context.get_executor(), crossings, 200)));
  }
  EXPECT_TRUE(runUntil([&] {
    return std::all_of(tasks.begin(), tasks.end(), [](const auto& task) { return task.finished(); });
  }));
  EXPECT_EQ(crossings, 1600);
}

Task<void> sleepForEver(Clock& clock, std::shared_ptr<int> held) {
  while (true) co_await clock.sleep(1h);
}

Task<void> neverIdle(Executor background, std::shared_ptr<int> held) {
  while (true) {
    auto nothing = []() -> Task<void> { co_return; }();
    co_await on(background, std::move(nothing));
  }
}

// Sleeping, in the midst of a crossing, and not yet begun: what waits at the end of the program goes with it.
TEST(QtMainExecutor, endsWithTasksInEveryStageAndLeavesNothingBehind) {
  const auto held = std::make_shared<int>();
  {
    QtMainExecutor main;
    Background background;
    SystemClock clock(background.context.get_executor());
    for (int i = 0; i < 20; ++i) {
      spawn(main.executor(), "sleeper", sleepForEver(clock, held));
      spawn(main.executor(), "busy", neverIdle(background.context.get_executor(), held));
    }
    EXPECT_TRUE(runUntil([turn = 0]() mutable { return ++turn == 50; }));
    spawn(main.executor(), "late", sleepForEver(clock, held));
    main.stop();
    background.stop();
    main.discard();
    EXPECT_LT(held.use_count(), 42) << "waiting handlers are gone";
  }
  EXPECT_EQ(held.use_count(), 1);
}

TEST(QtMainExecutor, runsNothingAfterItHasStopped) {
  const auto held = std::make_shared<int>();
  QtMainExecutor main;
  boost::asio::post(main.executor(), [held] { FAIL(); });
  main.stop();
  QCoreApplication::processEvents();
  EXPECT_EQ(held.use_count(), 2) << "kept until it is safe to destroy";
  main.discard();
  EXPECT_EQ(held.use_count(), 1);
  boost::asio::post(main.executor(), [held] { FAIL(); });
  EXPECT_EQ(held.use_count(), 1);
}

} // namespace
} // namespace tolvera::test
