#include "Async/SystemClock.h"

#include "Async/Spawn.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/thread_pool.hpp>
#include <gtest/gtest.h>

#include <thread>

namespace tolvera {
namespace {

using namespace std::chrono_literals;

TEST(SystemClock, WaitsAtLeastAsLongAsAskedAndResumesTheCallerAtHome) {
  boost::asio::io_context main;
  boost::asio::io_context timers;
  auto guard = boost::asio::make_work_guard(timers);
  std::jthread timerThread([&timers] { timers.run(); });
  SystemClock clock(timers.get_executor());

  std::thread::id after;
  auto wait = [](Clock& on, std::thread::id& id) -> Task<void> {
    co_await on.sleep(30ms);
    co_await on.sleep(-1s);
    id = std::this_thread::get_id();
  };
  const auto began = std::chrono::steady_clock::now();
  spawn(main.get_executor(), "wait", wait(clock, after));
  main.run();
  EXPECT_GE(std::chrono::steady_clock::now() - began, 30ms);
  EXPECT_EQ(after, std::this_thread::get_id());
  guard.reset();
}

TEST(SystemClock, ACancelledWaitEndsAtOnce) {
  boost::asio::io_context context;
  SystemClock clock(context.get_executor());
  const auto began = std::chrono::steady_clock::now();
  auto handle = spawn(context.get_executor(), "wait", clock.sleep(1h));
  std::jthread canceller([&handle] {
    std::this_thread::sleep_for(10ms);
    handle.cancel();
  });
  context.run();
  EXPECT_LT(std::chrono::steady_clock::now() - began, 10s);
  EXPECT_TRUE(handle.finished());
}

} // namespace
} // namespace tolvera
