#include "TolveraService/Stream/AudioQueue.h"
#include "TolveraService/Stream/DubStream.h"

#include "Harness/TestLoop.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <iterator>

namespace tolvera::service {
namespace {

using namespace std::chrono_literals;
using Samples = std::vector<std::int16_t>;

constexpr std::size_t second = 24000;

class DubStreamTest : public testing::Test {
 protected:
  void TearDown() override {
    dub_->drop();
    output_->sendLast({});
    loop_.advance(1s);
    EXPECT_TRUE(sending_.finished());
  }
  void readOutput() {
    auto reading = [](DubStreamTest& test) -> Task<void> {
      while (auto frame = co_await test.output_->next()) {
        if (frame->last) break;
        Samples samples(frame->payload.size() / 2);
        std::memcpy(samples.data(), frame->payload.data(), samples.size() * 2);
        test.sent_.insert(test.sent_.end(), samples.begin(), samples.end());
      }
    };
    reading_ = spawn(loop_.executor(), "reading", reading(*this));
  }
  // Says a sentence of one value.
  void say(std::size_t size, std::int16_t value) { dub_->say(Samples(size, value)); }
  // The sent samples, each stretch of one value as one.
  [[nodiscard]] Samples stretches() const {
    Samples values;
    std::unique_copy(sent_.begin(), sent_.end(), std::back_inserter(values));
    return values;
  }

  test::TestLoop loop_;
  std::shared_ptr<StreamOutput> output_ = std::make_shared<StreamOutput>();
  std::shared_ptr<DubStream> dub_ = std::make_shared<DubStream>(loop_.clock(), output_);
  TaskHandle sending_ = spawn(loop_.executor(), "sending", DubStream::send(dub_));
  TaskHandle reading_;
  Samples sent_;
};

TEST_F(DubStreamTest, SentencesArePaced) {
  readOutput();
  say(2 * second + 77, -2);
  say(second, 300);
  loop_.settle();
  EXPECT_GT(sent_.size(), 0U) << "the first frame comes at once";
  for (std::size_t tenths = 0; tenths < 20; ++tenths) { // twice as fast as they are heard, and one frame
    EXPECT_LE(sent_.size(), 2 * tenths * second / 10 + DubStream::frameSamples);
    loop_.advance(100ms);
  }
  EXPECT_EQ(stretches(), (Samples{-2, 300}));
  EXPECT_EQ(sent_.size(), 3 * second + 77);
  loop_.advance(10s);
  for (std::size_t heard = 1; heard <= 60; ++heard) { // a minute of talk that takes longer in this language
    say(second * 5 / 4, static_cast<std::int16_t>(heard));
    loop_.advance(1s);
    EXPECT_LT(sent_.size(), 3 * second + 77 + heard * second + second * 13 / 2)
        << "far ahead of the listener";
  }
}

TEST_F(DubStreamTest, DroppedSoundIsNeverSent) {
  readOutput();
  say(10 * second, 1);
  say(second, 2);
  loop_.advance(1050ms);
  dub_->drop();
  const std::size_t before = sent_.size();
  EXPECT_LE(before, 3 * second);
  say(second, 3);
  loop_.advance(20s);
  EXPECT_EQ(sent_.size(), before);
  EXPECT_TRUE(sending_.finished());
}

TEST_F(DubStreamTest, UnreadSoundLosesTheOldest) {
  say(12 * second, 1000);
  loop_.settle();
  for (std::int16_t i = 1; i <= 100; ++i) {
    say(4 * second, i);
    loop_.advance(1s);
  }
  EXPECT_LE(output_->waiting(), 52U);
  readOutput();
  loop_.advance(60s);
  EXPECT_EQ(stretches(), (Samples{1000, 98, 99, 100})) << "sentences are sent whole";
  EXPECT_EQ(sent_.size(), 24 * second);
}

TEST(AudioQueue, FullQueueHoldsTheNetworkBack) {
  test::TestLoop loop;
  AudioQueue queue;
  auto wait = [](AudioQueue& full) -> Task<void> { co_await full.untilRoom(); };
  queue.push(std::string(AudioQueue::capacity * 2, 'x'));
  const auto waiting = spawn(loop.executor(), "waiting for room", wait(queue));
  loop.settle();
  EXPECT_FALSE(waiting.finished());
  Samples samples;
  EXPECT_EQ(queue.take(samples, 1600, 20ms), AudioQueue::State::more);
  loop.settle();
  EXPECT_TRUE(waiting.finished());
}

} // namespace
} // namespace tolvera::service
