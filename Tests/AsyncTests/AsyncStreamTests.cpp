#include "Async/AsyncStream.h"

#include "Harness/TestLoop.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace tolvera {
namespace {

using Numbers = AsyncStream<int>;

Task<void> readAll(Numbers stream, std::vector<int>& into, bool& ended) {
  while (auto value = co_await stream.next()) into.push_back(*value);
  ended = true;
}

TEST(AsyncStream, GivesWhatWasWrittenBeforeAndAfterTheReaderCameAndThenEnds) {
  test::TestLoop loop;
  auto [writer, stream] = Numbers::make();
  std::vector<int> read;
  bool ended = false;

  writer.yield(1);
  auto reader = spawn(loop.executor(), "reader", readAll(std::move(stream), read, ended));
  loop.settle();
  writer.yield(2);
  writer.yield(3);
  loop.settle();
  EXPECT_EQ(read, (std::vector{1, 2, 3}));
  EXPECT_FALSE(ended);

  writer.yield(4);
  writer.finish();
  writer.yield(5);
  loop.settle();
  EXPECT_EQ(read, (std::vector{1, 2, 3, 4}));
  EXPECT_TRUE(ended);
  EXPECT_TRUE(reader.finished());
}

TEST(AsyncStream, KeepsTheNewestAndDropsTheOldest) {
  test::TestLoop loop;
  auto [writer, stream] = Numbers::make(Numbers::newest(3));
  for (int i = 0; i < 10; ++i) writer.yield(i);
  writer.finish();
  std::vector<int> read;
  bool ended = false;
  loop.run(readAll(std::move(stream), read, ended));
  EXPECT_EQ(read, (std::vector{7, 8, 9}));
}

TEST(AsyncStream, EndsWhenTheLastWriterGoes) {
  test::TestLoop loop;
  auto made = Numbers::make();
  std::vector<int> read;
  bool ended = false;
  spawn(loop.executor(), "reader", readAll(std::move(made.second), read, ended));
  std::optional first = std::move(made.first);
  std::optional second = first;
  first.reset();
  loop.settle();
  EXPECT_FALSE(ended);
  second.reset();
  loop.settle();
  EXPECT_TRUE(ended);
}

TEST(AsyncStream, ACancelledReaderEndsAndLosesNothingThatIsBuffered) {
  test::TestLoop loop;
  auto [writer, stream] = Numbers::make();
  std::vector<int> read;
  bool ended = false;
  auto reader = spawn(loop.executor(), "reader", readAll(stream, read, ended));
  loop.settle();
  reader.cancel();
  loop.settle();
  EXPECT_TRUE(ended);

  writer.yield(7);
  auto next = loop.run(stream.next());
  EXPECT_EQ(next, 7);
}

TEST(AsyncStream, CarriesEveryValueFromManyThreadsToOneReader) {
  boost::asio::io_context context;
  auto made = Numbers::make();
  std::vector<int> read;
  bool ended = false;
  auto reader = spawn(context.get_executor(), "reader", readAll(std::move(made.second), read, ended));

  constexpr int perThread = 5000;
  std::vector<std::jthread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([writer = made.first, t] {
      for (int i = 0; i < perThread; ++i) writer.yield(t * perThread + i);
    });
  }
  std::jthread finisher([&threads, writer = made.first] {
    for (auto& thread : threads) thread.join();
    writer.finish();
  });
  context.run();
  ASSERT_EQ(read.size(), 4u * perThread);
  std::vector<int> last(4, -1);
  for (const int value : read) { // each writer's values in its order
    auto& previous = last[static_cast<std::size_t>(value / perThread)];
    EXPECT_LT(previous, value);
    previous = value;
  }
}

} // namespace
} // namespace tolvera
