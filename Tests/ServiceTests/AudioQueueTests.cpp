#include "TolveraService/Stream/AudioQueue.h"

#include "Harness/TestLoop.h"

#include <gtest/gtest.h>

#include <thread>

namespace tolvera::service {
namespace {

using State = AudioQueue::State;
constexpr std::chrono::milliseconds soon{20};

TEST(AudioQueueTest, GivesSamplesInOrderAndSaysWhenTheyEnd) {
  AudioQueue queue;
  queue.push(std::string_view("\x01\x00\xff\xff\x07", 5)); // the odd byte is nothing
  queue.push(std::string_view("\x00\x80\x02\x00", 4));
  std::vector<std::int16_t> samples;
  EXPECT_EQ(queue.take(samples, 3, soon), State::more);
  EXPECT_EQ(samples, (std::vector<std::int16_t>{1, -1, -32768}));
  EXPECT_EQ(queue.take(samples, 3, soon), State::starved);
  EXPECT_EQ(samples, (std::vector<std::int16_t>{2}));
  queue.finish();
  queue.push("ignored.");
  EXPECT_EQ(queue.take(samples, 3, soon), State::finished);
  EXPECT_TRUE(samples.empty());
}

TEST(AudioQueueTest, HoldsTheNetworkBackUntilTheWorkerHasTakenSomeOrIsGone) {
  test::TestLoop loop;
  AudioQueue queue;
  auto wait = [](AudioQueue& full) -> Task<void> { co_await full.untilRoom(); };
  const auto fill = [&] {
    queue.push(std::string(AudioQueue::capacity * 2, 'x'));
    auto waiting = spawn(loop.executor(), "waiting for room", wait(queue));
    loop.settle();
    EXPECT_FALSE(waiting.finished());
    return waiting;
  };
  const auto waiting = fill();
  std::vector<std::int16_t> samples;
  std::thread([&] { queue.take(samples, 1600, soon); }).join();
  loop.settle();
  EXPECT_TRUE(waiting.finished());

  const auto again = fill();
  queue.abandon();
  loop.settle();
  EXPECT_TRUE(again.finished());
  EXPECT_EQ(queue.take(samples, 1600, soon), State::abandoned);
}

} // namespace
} // namespace tolvera::service
