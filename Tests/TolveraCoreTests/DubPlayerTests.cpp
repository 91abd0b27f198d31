#include "TolveraCore/DubPlayer.h"

#include "Fakes/InMemoryPlayback.h"
#include "Harness/TestLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

namespace tolvera {

namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr Duration tick{1};

class DubPlayerTest : public ::testing::Test {
 protected:
  void pass(Duration duration) { clock.moveTo(clock.now() + duration); }
  // True if it speaks until `duration` from now and not at that moment. Time has passed after that.
  bool speaksFor(Duration duration) {
    pass(duration - tick);
    const bool speaksBefore = player->isSpeaking();
    pass(tick);
    return speaksBefore && !player->isSpeaking();
  }

  test::VirtualClock clock;
  test::InMemoryPlayback playback;
  std::unique_ptr<DubPlayer> player = std::make_unique<DubPlayer>(playback, clock);
};

TEST_F(DubPlayerTest, PlaysWhatItIsGivenInOrderAtTheDubsRate) {
  EXPECT_THAT(playback.calls, IsEmpty());
  player->start();
  player->play({0.1F, 0.2F});
  player->play({0.3F});
  EXPECT_THAT(playback.calls,
              ElementsAre("attach", "connect 24000/1", "start", "play", "schedule 2", "schedule 1"));
  EXPECT_THAT(playback.queued, ElementsAre(0.1F, 0.2F, 0.3F));
}

TEST_F(DubPlayerTest, SpeaksForTheLengthOfEachPieceAndAMarginFromTheEndOrThePresent) {
  player->start();
  EXPECT_FALSE(player->isSpeaking());
  player->play(std::vector<float>(12'000));
  player->play(std::vector<float>(12'000));
  EXPECT_TRUE(speaksFor(1800ms));
  pass(1h);
  player->play(std::vector<float>(2'400));
  EXPECT_TRUE(speaksFor(500ms));
}

TEST_F(DubPlayerTest, DropsWhatComesBeforeTheStartOrAfterTheStopOrEmpty) {
  player->play({1.0F});
  EXPECT_FALSE(player->isSpeaking());
  player->start();
  player->play({});
  EXPECT_FALSE(player->isSpeaking());
  player->stop();
  player->play({1.0F});
  EXPECT_FALSE(player->isSpeaking());
  EXPECT_THAT(playback.queued, IsEmpty());
}

TEST_F(DubPlayerTest, AStopSilencesAtOnceAndTheNextStartBeginsAfresh) {
  player->start();
  player->start();
  EXPECT_EQ(playback.calls.size(), 4U) << "a second start does nothing";
  player->play(std::vector<float>(240'000));
  playback.calls.clear();
  player->stop();
  player->stop();
  EXPECT_FALSE(player->isSpeaking());
  EXPECT_THAT(playback.queued, IsEmpty());
  EXPECT_THAT(playback.calls, ElementsAre("stopNode", "stopEngine", "detach"));

  player->start();
  EXPECT_FALSE(player->isSpeaking());
  player->play({0.5F});
  EXPECT_THAT(playback.queued, ElementsAre(0.5F));
}

TEST_F(DubPlayerTest, AFailedStartIsReportedAndLeavesAPlayerThatNeverSpeaksUntilOneWorks) {
  playback.startFailure = platform::PlatformError("Audio", 7, "no output");
  EXPECT_THROW(player->start(), platform::PlatformError);
  EXPECT_EQ(playback.calls.back(), "detach");
  player->play(std::vector<float>(24'000));
  EXPECT_FALSE(player->isSpeaking());

  playback.startFailure.reset();
  player->start();
  player->play(std::vector<float>(24'000));
  EXPECT_TRUE(player->isSpeaking());
}

TEST_F(DubPlayerTest, TheVolumeIsTheNodesAndTheEndReleasesEverything) {
  player->start();
  playback.volume = 0.25F;
  EXPECT_EQ(player->volume(), 0.25F);
  player->setVolume(0.75F);
  EXPECT_EQ(playback.volume, 0.75F);
  playback.calls.clear();
  player.reset();
  EXPECT_THAT(playback.calls, ElementsAre("stopNode", "stopEngine", "detach"));
  EXPECT_EQ(playback.engines() + playback.nodes(), 0);
}

TEST_F(DubPlayerTest, TheCaptureThreadMayAskWhileTheMainThreadPlays) {
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
    pass(1ms);
  }
  player->stop();
  EXPECT_FALSE(player->isSpeaking());
  ended = true;
  capture.join();
}

} // namespace

} // namespace tolvera
