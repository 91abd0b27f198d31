#include "PlatformTests/AudioGraphFixture.h"

namespace tolvera::test {
namespace {

class Capture : public AudioGraphTest {
 protected:
  platform::AudioFormat format() { return system_.makeEngine()->inputNode().outputFormat(0); }

  MicBackend backend_{system_};
};

TEST_F(Capture, KeepsLevelWithoutSeam) {
  plugIn("mic");
  backend_.start(recording_.sink());
  const auto player = sing(1000, "mic");
  ASSERT_TRUE(hears(1000));
  const auto heard = purestStretch(1000, Recording::rate, listen(3));
  EXPECT_LT(heard.residual, -60);
  EXPECT_NEAR(heard.amplitude, 0.4, 0.004);
}

TEST_F(Capture, IgnoresMonitorOfOutput) {
  graph_.setDefaultSource("speaker");
  const auto start = [this] { backend_.start(recording_.sink()); };
  EXPECT_THAT(start, failsWith("No microphone is plugged in."));
  plugIn("mic");
  start();
  const auto speaking = sing(700, "speaker");
  auto singing = sing(1000, "mic");
  ASSERT_TRUE(hears(1000));
  graph_.setDefaultSource("speaker");
  singing.kill();
  // The monitor would be linked before the server has done all this work.
  ASSERT_TRUE(eventually([this] { return !recording_.hears(1000); }));
  EXPECT_LT(amplitudeAt(700, Recording::rate, listen(0.5)), 1e-4);
}

TEST_F(Capture, FollowsDefaultInput) {
  plugIn("first");
  graph_.createSource("second", "[FL FR]");
  backend_.start(recording_.sink());
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

} // namespace
} // namespace tolvera::test
