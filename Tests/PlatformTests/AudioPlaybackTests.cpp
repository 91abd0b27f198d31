#include "Platform/Linux/Sound/Graph/PipeWireOutputs.h"
#include "PlatformTests/AudioGraphFixture.h"
#include "TolveraCore/AudioRoute.h"

namespace tolvera::test {
namespace {

using Output = AudioGraphTest;

TEST_F(Output, OfTheDubHasItsLevelAndRateAndNoSeamBetweenBuffers) {
  const Monitor monitor(graph_, "speaker");
  DubPlayer dub(system_.playback(), clock_);
  dub.start();
  const auto whole = sine(1000, 4);
  for (std::size_t at = 0; at < whole.size(); at += 4001) {
    const auto part = std::span(whole).subspan(at, std::min<std::size_t>(4001, whole.size() - at));
    dub.play({part.begin(), part.end()});
  }
  ASSERT_TRUE(monitor.hears(1000));
  ASSERT_TRUE(eventually([&monitor] { return monitor.level(1000) < 0.01; }));
  const auto heard = purestSecond(1000, Recording::rate, monitor.samples());
  EXPECT_LT(heard.residual, -60);
  EXPECT_NEAR(heard.amplitude, 0.4, 0.01);
}

TEST_F(Output, OfTheDubFallsSilentAtAStopForgetsWhatWasQueuedAndFollowsTheDefault) {
  const Monitor monitor(graph_, "speaker");
  DubPlayer dub(system_.playback(), clock_);
  dub.start();
  dub.play(sine(1000, 30));
  dub.setVolume(0.5F);
  ASSERT_TRUE(eventually([&monitor] { return std::abs(monitor.level(1000) - 0.2) < 0.01; }));
  dub.stop();
  EXPECT_TRUE(eventually([&monitor] { return monitor.level(1000) < 1e-3; }, std::chrono::seconds(2)));
  dub.start();
  dub.play(sine(700, 30));
  EXPECT_TRUE(monitor.hears(700));
  EXPECT_LT(monitor.level(1000), 0.01);
  graph_.createSink("other");
  const Monitor other(graph_, "other");
  EXPECT_LT(other.level(700), 0.01);
  graph_.setDefaultSink("other");
  EXPECT_TRUE(other.hears(700));
}

TEST_F(Output, ThatIsTheDefaultIsNamedAndAChangeIsTold) {
  EXPECT_EQ(AudioRoute::outputName(hardware()), "speaker");
  EXPECT_FALSE(AudioRoute::isBuiltInSpeaker(hardware()));
  const int before = outputChanges_;
  graph_.createSink("card", "[FL FR] device.api=alsa device.bus=pci node.description=Laptop");
  graph_.setDefaultSink("card");
  ASSERT_TRUE(eventually([this] { return AudioRoute::outputName(hardware()) == "Laptop"; }));
  EXPECT_TRUE(AudioRoute::isBuiltInSpeaker(hardware()));
  EXPECT_GT(outputChanges_, before);
  graph_.destroyNode("card");
  EXPECT_TRUE(eventually([this] { return AudioRoute::outputName(hardware()) == "speaker"; }));
  graph_.destroyNode("speaker");
  EXPECT_TRUE(eventually([this] { return AudioRoute::outputName(hardware()).empty(); }));
}

TEST(OutputTransport, IsThatOfTheDeviceBehindIt) {
  const std::pair<adapters::PipeWireOutputs::Properties, std::uint32_t> cases[] = {
      {{{"device.api", "alsa"}, {"device.bus", "pci"}}, fourCharacterCode("bltn")},
      {{{"device.api", "alsa"}}, fourCharacterCode("bltn")},
      {{{"device.api", "alsa"}, {"device.bus", "pci"}, {"device.profile.name", "hdmi-stereo"}},
       fourCharacterCode("hdmi")},
      {{{"device.api", "alsa"}, {"device.bus", "usb"}}, fourCharacterCode("usb ")},
      {{{"device.api", "bluez5"}}, fourCharacterCode("blue")},
      {{{"device.api", "alsa"}, {"device.bus", "firewire"}}, 0},
      {{{"node.name", "virtual"}}, 0},
  };
  for (const auto& [properties, transport] : cases) {
    EXPECT_EQ(adapters::PipeWireOutputs::transport(properties), transport);
  }
}

} // namespace
} // namespace tolvera::test
