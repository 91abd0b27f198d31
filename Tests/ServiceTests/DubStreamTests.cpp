#include "TolveraService/DubStream.h"

#include "Support/TestLoop.h"

#include <gtest/gtest.h>

namespace tolvera::service {
namespace {

using namespace std::chrono_literals;
using Samples = std::vector<std::int16_t>;

constexpr std::size_t second = 24000;

class DubStreamTest : public testing::Test {
 protected:
  struct Sent {
    WallTime when;
    std::string bytes;
  };

  void start() {
    dub_ = std::make_shared<DubStream>(loop_.clock(), output_);
    sending_ = spawn(loop_.executor(), "sending", DubStream::send(dub_));
  }
  void readOutput() {
    auto reading = [](DubStreamTest& test) -> Task<void> {
      while (auto frame = co_await test.output_->next()) {
        if (frame->last) break;
        EXPECT_TRUE(frame->binary);
        test.sent_.push_back({test.loop_.clock().now(), std::move(frame->payload)});
      }
    };
    reading_ = spawn(loop_.executor(), "reading", reading(*this));
  }
  void TearDown() override {
    dub_->drop();
    output_->sendLast({});
    loop_.advance(1s);
    EXPECT_TRUE(sending_.finished());
  }

  static Samples sentence(std::size_t size, std::int16_t value) { return Samples(size, value); }
  // Values of the samples that were sent, each stretch of the same once.
  [[nodiscard]] std::vector<std::int16_t> stretches() const {
    std::vector<std::int16_t> values;
    for (const Sent& frame : sent_)
      for (std::size_t i = 0; i + 1 < frame.bytes.size(); i += 2) {
        const auto value = static_cast<std::int16_t>(static_cast<std::uint8_t>(frame.bytes[i]) |
                                                     (static_cast<std::uint8_t>(frame.bytes[i + 1]) << 8));
        if (values.empty() || values.back() != value) values.push_back(value);
      }
    return values;
  }
  [[nodiscard]] std::size_t samplesSent() const {
    std::size_t count = 0;
    for (const Sent& frame : sent_) count += frame.bytes.size() / 2;
    return count;
  }

  test::TestLoop loop_;
  std::shared_ptr<StreamOutput> output_ = std::make_shared<StreamOutput>();
  std::shared_ptr<DubStream> dub_;
  TaskHandle sending_;
  TaskHandle reading_;
  std::vector<Sent> sent_;
};

TEST_F(DubStreamTest, SentencesComeWholeInShortFramesNoFasterThanTwiceRealTime) {
  start();
  readOutput();
  const WallTime began = loop_.clock().now();
  dub_->say(sentence(2 * second + 77, -2));
  dub_->say(sentence(second, 300));
  loop_.settle();
  EXPECT_EQ(sent_.size(), 1U); // the first at once
  loop_.advance(3s);
  EXPECT_EQ(stretches(), (std::vector<std::int16_t>{-2, 300}));
  EXPECT_EQ(samplesSent(), 3 * second + 77);
  std::size_t before = 0;
  for (const Sent& frame : sent_) {
    EXPECT_LE(frame.bytes.size(), 9600U);
    EXPECT_EQ(frame.bytes.size() % 2, 0U);
    EXPECT_LE(static_cast<double>(before) / second,
              2 * std::chrono::duration<double>(frame.when - began).count() + 1e-6);
    before += frame.bytes.size() / 2;
  }
  loop_.advance(10s);
  dub_->say(sentence(100, 5));
  loop_.settle();
  EXPECT_EQ(stretches().back(), 5);
}

TEST_F(DubStreamTest, AClientThatIsSecondsBehindGetsNoMoreThanItHears) {
  start();
  readOutput();
  const WallTime began = loop_.clock().now();
  for (int i = 0; i < 60; ++i) { // a minute of talk that takes longer in this language
    dub_->say(sentence(second * 5 / 4, static_cast<std::int16_t>(i)));
    loop_.advance(1s);
    const double heard = std::chrono::duration<double>(loop_.clock().now() - began).count();
    EXPECT_LT(static_cast<double>(samplesSent()) / second - heard, 5.5);
  }
  EXPECT_GT(samplesSent(), 60 * second);
}

TEST_F(DubStreamTest, WhatIsNotSentWhenItIsDroppedNeverIs) {
  start();
  readOutput();
  dub_->say(sentence(10 * second, 1));
  dub_->say(sentence(second, 2));
  loop_.advance(1050ms);
  dub_->drop();
  const std::size_t before = sent_.size();
  EXPECT_EQ(before, 11U);
  dub_->say(sentence(second, 3));
  loop_.advance(20s);
  EXPECT_EQ(sent_.size(), before);
  EXPECT_TRUE(sending_.finished());
}

TEST_F(DubStreamTest, AClientThatDoesNotReadLosesWholeSentencesTheOldestFirst) {
  start();
  dub_->say(sentence(12 * second, 1000));
  loop_.settle();
  for (std::int16_t i = 1; i <= 100; ++i) {
    dub_->say(sentence(4 * second, i));
    loop_.advance(1s);
  }
  EXPECT_LE(output_->waiting(), 52U); // some 10 s of sound
  readOutput();
  loop_.advance(60s);
  EXPECT_EQ(stretches(), (std::vector<std::int16_t>{1000, 98, 99, 100}));
  EXPECT_EQ(samplesSent(), 24 * second);
}

} // namespace
} // namespace tolvera::service
