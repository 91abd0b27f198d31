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

class QtMainExecutorRun : public testing::Test {
 protected:
  QtMainExecutor main_;
  const Executor executor_ = main_.executor();
  std::vector<int> order_;
};

TEST_F(QtMainExecutorRun, KeepsTheOrderOfPosting) {
  std::thread poster([this, mainThread = std::this_thread::get_id()] {
    for (int i = 0; i < 1000; ++i) {
      boost::asio::post(executor_, [this, i, mainThread] {
        EXPECT_EQ(std::this_thread::get_id(), mainThread);
        order_.push_back(i);
      });
    }
  });
  EXPECT_TRUE(runUntil([this] { return order_.size() == 1000; }));
  poster.join();
  EXPECT_TRUE(std::is_sorted(order_.begin(), order_.end()));
}

TEST_F(QtMainExecutorRun, LeavesTurnsToTheEventLoop) {
  bool ended = false;
  int handlers = 0;
  std::function<void()> again = [&] {
    std::this_thread::sleep_for(1ms);
    ++handlers;
    if (!ended) boost::asio::post(executor_, again);
  };
  again();
  // A timer of the event loop has its turn although there is always a handler to run.
  QTimer::singleShot(0, [&] { ended = true; });
  EXPECT_TRUE(runUntil([&] { return ended; }));
  EXPECT_LT(handlers, 20) << "a turn ends after some milliseconds";
  QCoreApplication::processEvents();
}

TEST_F(QtMainExecutorRun, DispatchesInPlaceInsideHandlers) {
  boost::asio::dispatch(executor_, [this] {
    boost::asio::post(executor_, [this] { order_.push_back(3); });
    boost::asio::dispatch(executor_, [this] { order_.push_back(1); });
    order_.push_back(2);
  });
  EXPECT_TRUE(order_.empty());
  EXPECT_TRUE(runUntil([this] { return order_.size() == 3; }));
  EXPECT_EQ(order_, std::vector<int>({1, 2, 3}));
}

TEST_F(QtMainExecutorRun, RunsInsideANestedEventLoop) {
  bool inner = false;
  bool outer = false;
  boost::asio::post(executor_, [&] { outer = runUntil([&] { return inner; }); });
  boost::asio::post(executor_, [&] { inner = true; });
  EXPECT_TRUE(runUntil([&] { return outer; }));
}

Task<void> nothing() { co_return; }

Task<void> sleepForEver(Clock& clock, std::shared_ptr<int> held) {
  while (true) co_await clock.sleep(1h);
}

// Crosses to the other thread and back, and counts.
Task<void> cross(Executor background, std::shared_ptr<int> crossings) {
  while (true) {
    auto there = nothing();
    co_await on(background, std::move(there));
    ++*crossings;
  }
}

// Tasks that sleep, cross to another thread or have not begun all end with the program.
TEST(QtMainExecutor, EndsWithTasksInEveryStage) {
  const auto held = std::make_shared<int>();
  {
    QtMainExecutor main;
    Background background;
    SystemClock clock(background.context.get_executor());
    for (int i = 0; i < 20; ++i) {
      spawn(main.executor(), "sleeper", sleepForEver(clock, held));
      spawn(main.executor(), "busy", cross(background.context.get_executor(), held));
    }
    EXPECT_TRUE(runUntil([&] { return *held > 1000; }));
    spawn(main.executor(), "late", sleepForEver(clock, held));
    main.stop();
    background.stop();
    main.discard();
    EXPECT_LT(held.use_count(), 42) << "waiting handlers are gone";
  }
  EXPECT_EQ(held.use_count(), 1);
}

TEST_F(QtMainExecutorRun, RunsNothingAfterItsStop) {
  const auto held = std::make_shared<int>();
  boost::asio::post(executor_, [held] { FAIL(); });
  main_.stop();
  QCoreApplication::processEvents();
  EXPECT_EQ(held.use_count(), 2) << "kept until it is safe to destroy";
  main_.discard();
  boost::asio::post(executor_, [held] { FAIL(); });
  EXPECT_EQ(held.use_count(), 1);
}

} // namespace
} // namespace tolvera::test
