#include "TolveraCore/DubPlayer.h"

#include "Fakes/InMemoryPlayback.h"
#include "Harness/TestLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace tolvera {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

class Dub : public testing::Test {
 protected:
  test::VirtualClock clock;
  test::InMemoryPlayback playback;
  DubPlayer player{playback, clock};
};

TEST_F(Dub, PlaysOnlyBetweenStartAndStop) {
  for (int run = 0; run < 2; ++run) {
    player.play({1.0F});
    player.start();
    player.play({});
    EXPECT_FALSE(player.isSpeaking());
    player.play({0.1F, 0.2F});
    player.play({0.3F});
    player.start(); // does nothing
    EXPECT_TRUE(player.isSpeaking() && playback.playing());
    EXPECT_EQ(playback.sampleRate, 24'000);
    EXPECT_THAT(playback.queued, ElementsAre(0.1F, 0.2F, 0.3F));
    player.stop();
    EXPECT_FALSE(player.isSpeaking() || playback.playing());
    EXPECT_THAT(playback.queued, ElementsAre());
  }
}

TEST_F(Dub, DropsWhatThePlatformDoesNotTake) {
  playback.queueLimit = 24'000;
  player.start();
  player.play(std::vector<float>(24'000));
  player.play(std::vector<float>(24'000)); // holds the microphone back no longer
  clock.moveTo(clock.now() + 1400ms);
  EXPECT_FALSE(player.isSpeaking());
}

TEST_F(Dub, AnswersCaptureThreadWhilePlaying) {
  player.start();
  std::atomic<int> spoken = 0;
  const std::jthread capture([&](const std::stop_token& end) {
    while (!end.stop_requested()) {
      if (player.isSpeaking()) ++spoken;
      player.setVolume(player.volume());
    }
  });
  while (spoken < 100) {
    player.play(std::vector<float>(240));
    clock.moveTo(clock.now() + 1ms);
  }
  player.stop();
  EXPECT_FALSE(player.isSpeaking());
}

} // namespace
} // namespace tolvera
