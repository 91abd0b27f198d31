#include "PlatformTests/AudioGraphFixture.h"

namespace tolvera::test {
namespace {

using Tap = AudioGraphTest;

TEST_F(Tap, HearsOnlyWhatItTaps) {
  // An effect that takes all that the speaker plays, this program's sound too, and plays it again.
  graph_.createSink("elsewhere");
  const ChildProcess effect({"pw-loopback", "--capture=speaker", "--playback=elsewhere",
                             "--capture-props={stream.capture.sink=true}"});
  auto everything = tapEverything();
  everything.start(recording_.sink()); // before this program has an object to leave out
  const auto native = play(440);
  const auto pulse = play(1000, "paplay");
  DubPlayer dub(system_.playback(), clock_);
  dub.start();
  dub.play(sine(2000, 60));
  Recording effects;
  const auto ear = overhear("elsewhere", effects);
  EXPECT_TRUE(eventually([&] { return effects.hears(2000); })) << "there is no effect";
  ASSERT_TRUE(hears(440));
  ASSERT_TRUE(hears(1000));
  EXPECT_LE(separation(listen(3), 440, 2000), -100);
  everything.stop();

  for (const bool isNative : {true, false}) {
    auto backend = tap(isNative ? native : pulse);
    backend.start(recording_.sink());
    const auto [frequency, other] = isNative ? std::pair(440, 1000) : std::pair(1000, 440);
    ASSERT_TRUE(hears(frequency));
    const auto heard = listen(3);
    EXPECT_LE(separation(heard, frequency, other), -100);
    EXPECT_LE(separation(heard, frequency, 2000), -100);
  }
}

TEST_F(Tap, GivesEachProcessOneObject) {
  auto first = play(500);
  const auto object = playing(first.pid());
  EXPECT_EQ(audioProperty<std::int32_t>(hardware(), object, selectors::processID), first.pid());
  EXPECT_EQ(AudioProcesses::string(hardware(), object, selectors::bundleID),
            "test." + std::to_string(first.pid()));
  first.kill();
  EXPECT_TRUE(eventually([this, object] {
    return hardware().property(object, {.selector = selectors::processID}).status == platform::noSuchObject;
  }));
  EXPECT_THROW(
      CoreAudioTapBackend(hardware(), system_, clock_, CoreAudioTapBackend::Processes{{4'000'000'000}})
          .start(recording_.sink()),
      CoreAudioTapBackend::Failure);
  const auto second = play(600);
  EXPECT_NE(playing(second.pid()), object);
}

TEST_F(Tap, FindsSandboxedApplication) {
  const ChildProcess player({TOLVERA_SANDBOX, "org.example.Browser", "paplay", graph_.tone(500, 0.4, 60)});
  AudioObjectID found = platform::noAudioObject;
  ASSERT_TRUE(eventually([this, &found] {
    const auto objects = audioProperty<std::vector<AudioObjectID>>(hardware(), systemAudioObject,
                                                                   selectors::processObjectList);
    for (const auto object : objects.value_or(std::vector<AudioObjectID>{}))
      if (AudioProcesses::string(hardware(), object, selectors::bundleID) == "org.example.Browser")
        found = object;
    return found != platform::noAudioObject;
  }));
  const auto pid = audioProperty<std::int32_t>(hardware(), found, selectors::processID);
  EXPECT_GT(pid, 1 << 22) << "the number may be another process's";
  CoreAudioTapBackend backend{hardware(), system_, clock_, CoreAudioTapBackend::Processes{{found}}};
  backend.start(recording_.sink());
  EXPECT_TRUE(hears(500));
}

TEST_F(Tap, SurvivesChangesOfOutput) {
  graph_.createSink("other");
  const auto player = play(700);
  auto backend = tap(player);
  backend.start(recording_.sink());
  ASSERT_TRUE(hears(700));
  const std::function<void()> changes[] = {
      [this] { graph_.setDefaultSink("other"); },
      [this] { addSink("third"); },
      [] { outputOf({"pw-metadata", "-n", "settings", "0", "clock.force-rate", "44100"}); },
      [this] { graph_.destroyNode("third"); },
      [this] { graph_.destroyNode("other"); },
      [this] { graph_.destroyNode("speaker"); }, // the last output
  };
  for (const auto& change : changes) {
    change();
    EXPECT_TRUE(eventually([this] { return purestStretch(700, Recording::rate, listen(2)).residual < -60; }));
  }
}

} // namespace
} // namespace tolvera::test
