#include "PlatformTests/AudioGraphFixture.h"

namespace tolvera::test {
namespace {

using Tap = AudioGraphTest;

TEST_F(Tap, OfOneProcessHearsNeitherOtherProgramsNorUs) {
  graph_.startPulse();
  const auto native = play(440);
  const auto pulse = graph_.pulseApplication(graph_.tone(1000, 0.4, 60));
  DubPlayer ours(system_.playback(), clock_);
  ours.start();
  ours.play(sine(2000, 0.4, 60));
  const struct {
    const ChildProcess& tapped;
    double frequency;
    double other;
  } cases[] = {{native, 440, 1000}, {pulse, 1000, 440}};
  for (const auto& [tapped, frequency, other] : cases) {
    auto backend = tap(processes({playing(tapped)}));
    backend.start(recording_.sink());
    ASSERT_TRUE(hears(frequency));
    const auto heard = listen(3);
    EXPECT_LE(separation(heard, frequency, other), -100);
    EXPECT_LE(separation(heard, frequency, 2000), -100);
  }
}

TEST_F(Tap, OfEverythingHearsAllButUsAlsoBesideAnEffect) {
  graph_.startPulse();
  // An effect that takes all that the speaker plays, ours too, and plays it on.
  graph_.createSink("elsewhere");
  const ChildProcess effect({"pw-loopback", "--capture=speaker", "--playback=elsewhere",
                             "--capture-props={stream.capture.sink=true}"});
  const auto native = play(440);
  const auto pulse = graph_.pulseApplication(graph_.tone(1000, 0.4, 60));
  DubPlayer ours(system_.playback(), clock_);
  ours.start();
  ours.play(sine(2000, 0.4, 60));
  playing(native);
  playing(pulse);
  auto backend = tap(everything());
  backend.start(recording_.sink());
  ASSERT_TRUE(hears(440));
  ASSERT_TRUE(hears(1000));
  const auto heard = listen(3);
  EXPECT_LE(separation(heard, 440, 2000), -100);
  EXPECT_LE(separation(heard, 1000, 2000), -100);
  const Monitor effects(graph_, "elsewhere");
  EXPECT_TRUE(eventually([&effects] { return effects.level(2000) > 0.2; })) << "there is no effect";
}

TEST_F(Tap, FollowsTheStreamsOfItsProcessesAsTheyComeAndGo) {
  auto backend = tap(everything());
  backend.start(recording_.sink());
  EXPECT_TRUE(recording_.samples().empty());
  auto first = play(500);
  ASSERT_TRUE(hears(500));
  const auto second = play(800);
  ASSERT_TRUE(hears(800));
  first.kill();
  EXPECT_TRUE(eventually([this] { return recording_.hears(800, 0.2) && !recording_.hears(500, 0.01); }));
}

// A shell that plays one file after the other is one process for each, and a program that comes back to
// another server is the one it was; neither takes the object of another.
TEST_F(Tap, HasAnObjectOfItsOwnForEveryProcess) {
  auto first = play(500);
  const auto object = playing(first);
  EXPECT_EQ(audioProperty<std::int32_t>(hardware(), object, platform::fourCharacterCode("ppid")),
            first.pid());
  EXPECT_EQ(AudioProcesses::string(hardware(), object, platform::fourCharacterCode("pbid")),
            "test." + std::to_string(first.pid()));
  first.kill();
  EXPECT_TRUE(eventually([this, object] {
    return hardware().property(object, {.selector = platform::fourCharacterCode("ppid")}).status ==
           platform::noSuchObject;
  }));
  const auto second = play(600);
  EXPECT_NE(playing(second), object);
}

TEST_F(Tap, LeavesWhatItTapsAsItIs) {
  const auto player = play(1000);
  const auto object = playing(player);
  const Monitor monitor(graph_, "speaker");
  const auto steadyLevel = [&monitor] {
    const std::size_t from = monitor.samples().size();
    EXPECT_TRUE(eventually([&monitor, from] { return monitor.samples().size() >= from + 48000; }));
    const auto heard = monitor.samples();
    double best = 0;
    double level = 0;
    for (std::size_t at = from; at + 16000 <= heard.size(); at += 4000) {
      const auto stretch = std::span(heard).subspan(at, 16000);
      const double residual = residualBelow(1000, Recording::rate, stretch);
      if (residual < best) level = amplitudeAt(1000, Recording::rate, stretch);
      best = std::min(best, residual);
    }
    return level;
  };
  const double before = steadyLevel();
  auto backend = tap(processes({object}));
  backend.start(recording_.sink());
  ASSERT_TRUE(hears(1000));
  const double during = steadyLevel();
  EXPECT_NEAR(before, 0.4, 0.01);
  EXPECT_LT(std::abs(20 * std::log10(during / before)), 0.1);
}

TEST_F(Tap, GoesOnWhenTheOutputChangesOrVanishes) {
  graph_.createSink("other");
  const auto player = play(700);
  auto backend = tap(processes({playing(player)}));
  backend.start(recording_.sink());
  ASSERT_TRUE(hears(700));
  graph_.setDefaultSink("other");
  listen(1);
  EXPECT_TRUE(hears(700));
  graph_.destroyNode("other");
  listen(1);
  EXPECT_TRUE(hears(700));
  graph_.destroyNode("speaker"); // none is left
  listen(1);
  EXPECT_TRUE(hears(700));
}

TEST_F(Tap, HearsAtItsOwnRateWhateverTheRateOfTheGraph) {
  const auto player = play(700);
  auto backend = tap(processes({playing(player)}));
  backend.start(recording_.sink());
  ASSERT_TRUE(hears(700));
  outputOf({"pw-metadata", "-n", "settings", "0", "clock.force-rate", "44100"});
  EXPECT_TRUE(eventually([this] {
    const auto heard = listen(2);
    return residualBelow(700, Recording::rate, std::span(heard).last(8000)) < -60;
  }));
}

} // namespace
} // namespace tolvera::test
