#include "Async/AsyncStream.h"

#include "Harness/TestLoop.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace tolvera {
namespace {

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
  auto made = Numbers::make();
  std::vector<int> read;
  spawn(context.get_executor(), "reader", readAll(std::move(made.second), read));
  std::optional writer = std::move(made.first);
  std::vector<std::jthread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([end = *writer, t] {
      for (int i = 0; i < 5000; ++i) end.yield(t * 5000 + i);
    });
  }
  writer.reset();
  context.run();
  ASSERT_EQ(read.size(), 20000U);
  for (int t = 0, previous = -1; t < 4; ++t) {
    for (const int value : read) { // each thread's values are in its order
      if (value / 5000 == t) EXPECT_EQ(std::exchange(previous, value), value - 1);
    }
  }
}

} // namespace
} // namespace tolvera
