#include "TolveraService/AudioQueue.h"

#include "Support/TestLoop.h"

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

TEST(AudioQueueTest, HoldsTheNetworkBackUntilTheWorkerHasTakenSome) {
  test::TestLoop loop;
  AudioQueue queue;
  bool room = false;
  auto wait = [](AudioQueue& full, bool& result) -> Task<void> {
    co_await full.untilRoom();
    result = true;
  };
  queue.push(std::string(AudioQueue::capacity * 2, 'x'));
  spawn(loop.executor(), "waiting for room", wait(queue, room));
  loop.settle();
  EXPECT_FALSE(room);
  std::vector<std::int16_t> samples;
  std::thread worker([&] { queue.take(samples, 1600, soon); });
  worker.join();
  loop.settle();
  EXPECT_TRUE(room);

  room = false;
  queue.push(std::string(AudioQueue::capacity * 2, 'x'));
  spawn(loop.executor(), "waiting for room", wait(queue, room));
  queue.abandon();
  loop.settle();
  EXPECT_TRUE(room);
  EXPECT_EQ(queue.take(samples, 1600, soon), State::abandoned);
}

} // namespace
} // namespace tolvera::service
