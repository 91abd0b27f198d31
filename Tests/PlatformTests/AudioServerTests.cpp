#include "PlatformTests/AudioGraphFixture.h"

#include <thread>

namespace tolvera::test {
namespace {

class SoundServer : public AudioGraphTest {
 protected:
  CoreAudioTapBackend everything_ = tapEverything();
  DubPlayer dub_{system_.playback(), clock_};
};

TEST_F(SoundServer, MayDieDuringRun) {
  plugIn("mic");
  Recording spoken;
  MicBackend microphone(system_);
  microphone.start(spoken.sink());
  everything_.start(recording_.sink());
  dub_.start();
  for (const double frequency : {500.0, 900.0}) {
    graph_.killServer();
    graph_.startServer();
    addSink("speaker");
    plugIn("mic");
    const auto player = play(frequency);
    const auto speaker = sing(frequency + 100, "mic");
    playing(player.pid());
    ASSERT_TRUE(hears(frequency));
    EXPECT_TRUE(eventually([&] { return spoken.hears(frequency + 100); }));
    dub_.play(sine(1500, 1));
    playing(hardware().processIdentifier());
  }
}

TEST_F(SoundServer, PlaysNoDubAfterItsTime) {
  dub_.start();
  graph_.killServer();
  dub_.play(sine(3000, 2));
  std::this_thread::sleep_for(std::chrono::milliseconds(2100));
  graph_.startServer();
  addSink("speaker");
  Recording played;
  const auto ear = overhear("speaker", played);
  dub_.play(sine(1500, 20));
  EXPECT_TRUE(eventually([&played] { return played.hears(1500); }));
  EXPECT_LT(amplitudeAt(3000, Recording::rate, played.samples()), 0.01);
}

// A desktop's outputs belong to the session manager: they go with it, and the new one makes them again.
TEST_F(SoundServer, MayLoseItsSessionManager) {
  everything_.start(recording_.sink());
  const auto before = play(500);
  ASSERT_TRUE(hears(500));
  graph_.destroyNode("speaker");
  graph_.restartSessionManager();
  addSink("other");
  EXPECT_TRUE(eventually([this] { return AudioRoute::outputName(hardware()) == "other"; }));
  const auto after = play(900);
  auto one = tap(after);
  Recording heard;
  one.start(heard.sink());
  EXPECT_TRUE(hears(900));
  EXPECT_TRUE(eventually([&heard] { return heard.hears(900, 0.2); }));
}

TEST_F(SoundServer, MayBeAbsentAtFirst) {
  graph_.killServer();
  EXPECT_TRUE(
      audioProperty<std::vector<AudioObjectID>>(hardware(), systemAudioObject, selectors::processObjectList)
          ->empty());
  EXPECT_THAT([this] { everything_.start(recording_.sink()); },
              failsWith("The sound server (PipeWire) is not running."));
  language_.setChinese(true);
  EXPECT_THAT([this] { MicBackend(system_).start(recording_.sink()); },
              failsWith("声音服务（PipeWire）没有在运行。"));
  EXPECT_THROW(dub_.start(), platform::PlatformError);
  graph_.startServer();
  addSink("speaker");
  everything_.start(recording_.sink());
  dub_.start();
  const auto player = play(600);
  EXPECT_TRUE(hears(600));
}

// The next test runs it in another process: it plays for a moment, and keeps its stream and its tap.
TEST(OtherTolvera, DISABLED_TapsUntilKilled) {
  adapters::PipeWireAudioSystem system;
  boost::asio::io_context context;
  const SystemClock clock(context.get_executor());
  Recording recording;
  CoreAudioTapBackend backend(system.audioHardware(), system, clock,
                              CoreAudioTapBackend::EverythingExceptSelf{});
  backend.start(recording.sink());
  DubPlayer dub(system.playback(), clock);
  dub.start();
  dub.play(std::vector<float>(4800));
  std::this_thread::sleep_for(std::chrono::seconds(40));
}

// The output sleeps although a program that is silent taps it; after a kill nothing of that program stays.
TEST_F(SoundServer, SleepsUnderSilentTaps) {
  const auto before = graph_.objects();
  ChildProcess other({"/proc/self/exe", "--gtest_also_run_disabled_tests", "--gtest_filter=OtherTolvera.*"});
  ASSERT_TRUE(eventually([this] { return graph_.hasNode("tolvera-tap") && graph_.hasNode("tolvera-dub"); }));
  const auto isAsleep = [] {
    return outputOf({"pw-cli", "info", "speaker"}).find("state: \"suspended\"") != std::string::npos;
  };
  EXPECT_TRUE(eventually([&isAsleep] { return !isAsleep(); }));
  EXPECT_TRUE(eventually(isAsleep, std::chrono::seconds(20)));
  EXPECT_TRUE(other.running());
  auto player = play(700);
  ASSERT_TRUE(eventually([this] { return graph_.objects()["Link"] >= 4; })); // to the output and to the tap
  other.kill();
  player.kill();
  EXPECT_TRUE(eventually([this, &before] { return graph_.objects() == before; }));
}

} // namespace
} // namespace tolvera::test
