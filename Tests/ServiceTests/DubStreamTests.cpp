#include "TolveraService/Stream/DubStream.h"

#include "Harness/TestLoop.h"

#include <gtest/gtest.h>

#include <cstring>

namespace tolvera::service {
namespace {

using namespace std::chrono_literals;
using Samples = std::vector<std::int16_t>;

constexpr std::size_t second = 24000;

// What a client has read so far.
Task<void> readInto(std::shared_ptr<StreamOutput> output, Samples* sent) {
  while (auto frame = co_await output->next()) {
    const std::size_t before = sent->size();
    sent->resize(before + frame->payload.size() / 2);
    std::memcpy(sent->data() + before, frame->payload.data(), frame->payload.size());
  }
}

TEST(DubStream, SoundIsPacedAndWhole) {
  test::TestLoop loop;
  Samples sent;
  const auto output = std::make_shared<StreamOutput>();
  const auto dub = std::make_shared<DubStream>(loop.clock(), output);
  const auto sending = spawn(loop.executor(), "sending", DubStream::send(dub));
  const auto say = [&](std::size_t size, std::int16_t value) { dub->say(Samples(size, value)); };

  // A client that does not read loses whole sentences, the oldest first.
  say(12 * second, 1000);
  loop.settle();
  for (std::int16_t i = 1; i <= 100; ++i) {
    say(4 * second, i);
    loop.advance(1s);
  }
  auto reading = spawn(loop.executor(), "reading", readInto(output, &sent));
  loop.advance(60s);
  Samples sentences;
  std::unique_copy(sent.begin(), sent.end(), std::back_inserter(sentences));
  EXPECT_EQ(sentences, (Samples{1000, 98, 99, 100}));
  EXPECT_EQ(sent.size(), 24 * second);

  sent.clear();
  for (std::size_t heard = 1; heard <= 60; ++heard) { // a minute of talk that takes longer in this language
    say(second * 5 / 4, 1);
    loop.settle();
    EXPECT_GT(sent.size(), 0U) << "the first frame comes at once";
    loop.advance(1s);
    EXPECT_LT(sent.size(), heard * second + 7 * second) << "far ahead of the listener";
  }
  dub->drop();
  const std::size_t before = sent.size();
  say(second, 3);
  loop.advance(20s);
  EXPECT_EQ(sent.size(), before) << "dropped sound is sent";
  reading.cancel();
  loop.settle();
}

} // namespace
} // namespace tolvera::service
