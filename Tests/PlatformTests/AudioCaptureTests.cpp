#include "PlatformTests/AudioGraphFixture.h"

namespace tolvera::test {
namespace {

class Sound : public AudioGraphTest {
 protected:
  void plugIn(const std::string& name = "mic", const std::string& positions = "[MONO]") {
    graph_.createSource(name, positions);
    graph_.setDefaultSource(name);
  }
  ChildProcess sing(double frequency, const std::string& node) {
    return graph_.play(graph_.tone(frequency, 0.5, 60), node);
  }
  platform::AudioFormat format() { return system_.makeEngine()->inputNode().outputFormat(0); }
  int codeOfStart() {
    MicBackend backend(system_);
    try {
      backend.start(recording_.sink());
    } catch (const platform::PlatformError& error) {
      return error.code();
    }
    return 0;
  }
};

TEST_F(Sound, OfTheMicrophoneArrivesAtItsLevelAndWithoutASeam) {
  plugIn();
  EXPECT_EQ(format(), (platform::AudioFormat{48000, 1}));
  MicBackend backend(system_);
  backend.start(recording_.sink());
  const auto player = sing(1000, "mic");
  ASSERT_TRUE(hears(1000));
  const auto heard = purestSecond(1000, Recording::rate, listen(3));
  EXPECT_LT(heard.residual, -60);
  EXPECT_NEAR(heard.amplitude, 0.5, 0.005);
}

TEST_F(Sound, NeedsAServerAndAMicrophoneThatIsNoSinksMonitor) {
  graph_.setDefaultSource("speaker");
  EXPECT_EQ(format().sampleRate, 0);
  EXPECT_EQ(codeOfStart(), 10);
  graph_.killServer();
  EXPECT_EQ(codeOfStart(), 10);
  graph_.startServer();
  addSink("speaker");
  plugIn();
  ASSERT_TRUE(eventually([this] { return format().sampleRate > 0; }));
  MicBackend backend(system_);
  backend.start(recording_.sink());
  const auto speaking = sing(700, "speaker");
  auto singing = sing(1000, "mic");
  ASSERT_TRUE(hears(1000));
  graph_.setDefaultSource("speaker");
  singing.kill();
  // The monitor would have been linked by the time that the server has done more work than this.
  ASSERT_TRUE(eventually([this] { return !recording_.hears(1000); }));
  EXPECT_LT(amplitudeAt(700, Recording::rate, listen(0.5)), 1e-4);
}

TEST_F(Sound, FollowsTheDefaultAndComesBackWithAMicrophoneThatWasUnplugged) {
  plugIn("first");
  graph_.createSource("second", "[FL FR]");
  MicBackend backend(system_);
  backend.start(recording_.sink());
  {
    const auto one = sing(700, "first");
    const auto two = sing(1300, "second");
    ASSERT_TRUE(hears(700));
    graph_.setDefaultSource("second");
    EXPECT_TRUE(eventually([this] { return recording_.hears(1300) && !recording_.hears(700, 0.01); }));
    EXPECT_EQ(format(), (platform::AudioFormat{48000, 2}));
  }
  graph_.destroyNode("first");
  graph_.destroyNode("second");
  plugIn("second");
  const auto player = sing(1500, "second");
  EXPECT_TRUE(hears(1500));
}

TEST_F(Sound, ComesBackWithASoundServerThatDied) {
  plugIn();
  MicBackend backend(system_);
  backend.start(recording_.sink());
  for (const double frequency : {800.0, 1200.0}) {
    restartServer();
    plugIn();
    const auto player = sing(frequency, "mic");
    ASSERT_TRUE(hears(frequency));
  }
}

TEST_F(Sound, IsStartedAndStoppedManyTimesWithoutALeak) {
  plugIn();
  expectNoLeak(120, [this](int i) {
    recording_.clear();
    MicBackend backend(system_);
    backend.start(recording_.sink());
    EXPECT_TRUE(i % 8 != 0 || eventually([this] { return !recording_.samples().empty(); }));
    backend.stop();
  });
}

} // namespace
} // namespace tolvera::test
