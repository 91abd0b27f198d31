#include "PlatformTests/AudioGraphFixture.h"

namespace tolvera::test {
namespace {

using Tap = AudioGraphTest;

TEST_F(Tap, HearsWhatItTapsAndNeitherOtherProgramsNorUsAlsoBesideAnEffect) {
  graph_.startPulse();
  // An effect that takes all that the speaker plays, ours too, and plays it on.
  graph_.createSink("elsewhere");
  const ChildProcess effect({"pw-loopback", "--capture=speaker", "--playback=elsewhere",
                             "--capture-props={stream.capture.sink=true}"});
  auto everything = tapEverything();
  everything.start(recording_.sink()); // before there is anything of ours to leave out
  const auto native = play(440);
  const auto pulse = graph_.pulseApplication(graph_.tone(1000, 0.4, 60));
  DubPlayer ours(system_.playback(), clock_);
  ours.start();
  ours.play(sine(2000, 60));
  const Monitor effects(graph_, "elsewhere");
  EXPECT_TRUE(effects.hears(2000)) << "there is no effect";
  ASSERT_TRUE(hears(440));
  ASSERT_TRUE(hears(1000));
  EXPECT_LE(separation(listen(3), 440, 2000), -100);
  everything.stop();

  const struct {
    const ChildProcess& tapped;
    double frequency;
    double other;
  } cases[] = {{native, 440, 1000}, {pulse, 1000, 440}};
  for (const auto& [tapped, frequency, other] : cases) {
    auto backend = tap(tapped);
    backend.start(recording_.sink());
    ASSERT_TRUE(hears(frequency));
    const auto heard = listen(3);
    EXPECT_LE(separation(heard, frequency, other), -100);
    EXPECT_LE(separation(heard, frequency, 2000), -100);
  }
}

// A shell that plays one file after the other is one process for each, and a program that comes back to
// another server is the one it was; neither takes the object of another.
TEST_F(Tap, HasAnObjectOfItsOwnForEveryProcess) {
  auto first = play(500);
  const auto object = playing(first);
  EXPECT_EQ(audioProperty<std::int32_t>(hardware(), object, fourCharacterCode("ppid")), first.pid());
  EXPECT_EQ(AudioProcesses::string(hardware(), object, fourCharacterCode("pbid")),
            "test." + std::to_string(first.pid()));
  first.kill();
  EXPECT_TRUE(eventually([this, object] {
    return hardware().property(object, {.selector = fourCharacterCode("ppid")}).status ==
           platform::noSuchObject;
  }));
  const auto second = play(600);
  EXPECT_NE(playing(second), object);
}

TEST_F(Tap, LeavesWhatItTapsAsItIs) {
  const auto player = play(1000);
  const Monitor monitor(graph_, "speaker");
  const auto steadyLevel = [&monitor] {
    const std::size_t from = monitor.samples().size();
    EXPECT_TRUE(eventually([&monitor, from] { return monitor.samples().size() >= from + 48000; }));
    const auto heard = monitor.samples();
    return purestSecond(1000, Recording::rate, std::span(heard).subspan(from)).amplitude;
  };
  auto backend = tap(player);
  const double before = steadyLevel();
  backend.start(recording_.sink());
  ASSERT_TRUE(hears(1000));
  EXPECT_NEAR(before, 0.4, 0.01);
  EXPECT_LT(std::abs(20 * std::log10(steadyLevel() / before)), 0.1);
}

TEST_F(Tap, GoesOnWhenTheOutputChangesOrVanishesAndWhateverTheRateOfTheGraph) {
  graph_.createSink("other");
  const auto player = play(700);
  auto backend = tap(player);
  backend.start(recording_.sink());
  ASSERT_TRUE(hears(700));
  const std::function<void()> changes[] = {
      [this] { graph_.setDefaultSink("other"); },
      [] { outputOf({"pw-metadata", "-n", "settings", "0", "clock.force-rate", "44100"}); },
      [this] { graph_.destroyNode("other"); }, [this] { graph_.destroyNode("speaker"); }, // none is left
  };
  for (const auto& change : changes) {
    change();
    EXPECT_TRUE(eventually([this] { return purestSecond(700, Recording::rate, listen(2)).residual < -60; }));
  }
}

} // namespace
} // namespace tolvera::test
