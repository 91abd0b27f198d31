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
using testing::IsEmpty;

class Dub : public testing::Test {
 protected:
  // True if it speaks until `duration` from now and not at that moment. Time has passed after that.
  bool speaksFor(Duration duration) {
    clock.moveTo(clock.now() + duration - Duration{1});
    const bool speaksBefore = player->isSpeaking();
    clock.moveTo(clock.now() + Duration{1});
    return speaksBefore && !player->isSpeaking();
  }

  test::VirtualClock clock;
  test::InMemoryPlayback playback;
  std::unique_ptr<DubPlayer> player = std::make_unique<DubPlayer>(playback, clock);
};

TEST_F(Dub, SpeaksForLengthOfPiecesWithMargin) {
  player->start();
  EXPECT_EQ(playback.sampleRate, 24'000);
  EXPECT_FALSE(player->isSpeaking());
  player->play(std::vector<float>(12'000));
  player->play(std::vector<float>(12'000));
  EXPECT_TRUE(speaksFor(1800ms));
  clock.moveTo(clock.now() + 1h);
  player->play(std::vector<float>(2'400));
  EXPECT_TRUE(speaksFor(500ms));
}

TEST_F(Dub, PlaysOnlyBetweenStartAndStop) {
  player->play({1.0F});
  player->start();
  player->play({});
  EXPECT_FALSE(player->isSpeaking());
  player->play({0.1F, 0.2F});
  player->play({0.3F});
  player->start(); // does nothing
  EXPECT_THAT(playback.queued, ElementsAre(0.1F, 0.2F, 0.3F));
  player->stop();
  player->play({1.0F});
  EXPECT_FALSE(player->isSpeaking());
  EXPECT_FALSE(playback.playing());
  EXPECT_THAT(playback.queued, IsEmpty());
  player->start();
  EXPECT_FALSE(player->isSpeaking());
  player->play({0.5F});
  EXPECT_THAT(playback.queued, ElementsAre(0.5F));
  player.reset();
  EXPECT_EQ(playback.engines(), 0);
}

TEST_F(Dub, StaysSilentAfterFailedStart) {
  playback.startFailure = platform::PlatformError("Audio", 7, "no output");
  EXPECT_THROW(player->start(), platform::PlatformError);
  player->play(std::vector<float>(24'000));
  EXPECT_FALSE(player->isSpeaking());
  playback.startFailure.reset();
  player->start();
  player->play(std::vector<float>(24'000));
  EXPECT_TRUE(player->isSpeaking());
}

TEST_F(Dub, AnswersCaptureThreadWhilePlaying) {
  player->start();
  std::atomic<bool> ended = false;
  std::atomic<int> spoken = 0;
  std::thread capture([&] {
    while (!ended) {
      if (player->isSpeaking()) ++spoken;
      player->setVolume(player->volume());
    }
  });
  while (spoken < 100) {
    player->play(std::vector<float>(240));
    clock.moveTo(clock.now() + 1ms);
  }
  player->stop();
  EXPECT_FALSE(player->isSpeaking());
  ended = true;
  capture.join();
}

} // namespace
} // namespace tolvera
