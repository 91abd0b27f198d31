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
        EXPECT_TRUE(frame->binary);
        EXPECT_LE(frame->payload.size(), 9600U);
        EXPECT_EQ(frame->payload.size() % 2, 0U);
        Samples samples(frame->payload.size() / 2);
        std::memcpy(samples.data(), frame->payload.data(), samples.size() * 2);
        test.sent_.insert(test.sent_.end(), samples.begin(), samples.end());
      }
    };
    reading_ = spawn(loop_.executor(), "reading", reading(*this));
  }
  // A sentence of so many samples of one value.
  void say(std::size_t size, std::int16_t value) { dub_->say(Samples(size, value)); }
  // Values of the samples that were sent, each stretch of the same once.
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

TEST_F(DubStreamTest, SentencesComeWholeInShortFramesNoFasterThanTwiceRealTime) {
  readOutput();
  say(2 * second + 77, -2);
  say(second, 300);
  loop_.settle();
  EXPECT_GT(sent_.size(), 0U); // the first frame at once
  for (std::size_t tenths = 0; tenths < 20; ++tenths) {
    EXPECT_LE(sent_.size(), 2 * tenths * second / 10 + 4800);
    loop_.advance(100ms);
  }
  EXPECT_EQ(stretches(), (Samples{-2, 300}));
  EXPECT_EQ(sent_.size(), 3 * second + 77);
  loop_.advance(10s);
  say(100, 5);
  loop_.settle();
  EXPECT_EQ(stretches().back(), 5);
}

TEST_F(DubStreamTest, AClientThatIsSecondsBehindGetsNoMoreThanItHears) {
  readOutput();
  for (std::size_t heard = 1; heard <= 60; ++heard) { // a minute of talk that takes longer in this language
    say(second * 5 / 4, static_cast<std::int16_t>(heard));
    loop_.advance(1s);
    EXPECT_LT(sent_.size(), heard * second + second * 11 / 2);
  }
  EXPECT_GT(sent_.size(), 60 * second);
}

TEST_F(DubStreamTest, WhatIsNotSentWhenItIsDroppedNeverIs) {
  readOutput();
  say(10 * second, 1);
  say(second, 2);
  loop_.advance(1050ms);
  dub_->drop();
  const std::size_t before = sent_.size();
  EXPECT_EQ(before, 11U * 4800);
  say(second, 3);
  loop_.advance(20s);
  EXPECT_EQ(sent_.size(), before);
  EXPECT_TRUE(sending_.finished());
}

TEST_F(DubStreamTest, AClientThatDoesNotReadLosesWholeSentencesTheOldestFirst) {
  say(12 * second, 1000);
  loop_.settle();
  for (std::int16_t i = 1; i <= 100; ++i) {
    say(4 * second, i);
    loop_.advance(1s);
  }
  EXPECT_LE(output_->waiting(), 52U); // some 10 s of sound
  readOutput();
  loop_.advance(60s);
  EXPECT_EQ(stretches(), (Samples{1000, 98, 99, 100}));
  EXPECT_EQ(sent_.size(), 24 * second);
}

} // namespace
} // namespace tolvera::service
