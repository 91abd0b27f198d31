#include "Platform/Linux/Sound/PipeWireSoundQueue.h"
#include "PlatformTests/AudioGraphFixture.h"

namespace tolvera::test {
namespace {

class Playback : public AudioGraphTest {
 protected:
  std::unique_ptr<MicBackend> ear_ = overhear("speaker", recording_);
  DubPlayer dub_{system_.playback(), clock_};
};

TEST_F(Playback, JoinsBuffersWithoutSeam) {
  dub_.start();
  const auto whole = sine(1000, 4);
  for (std::size_t at = 0; at < whole.size(); at += 4001) {
    const auto part = std::span(whole).subspan(at, std::min<std::size_t>(4001, whole.size() - at));
    dub_.play({part.begin(), part.end()});
  }
  ASSERT_TRUE(hears(1000));
  ASSERT_TRUE(eventually([this] { return !recording_.hears(1000, 0.01); }));
  const auto heard = purestStretch(1000, Recording::rate, recording_.samples());
  EXPECT_LT(heard.residual, -60);
  EXPECT_NEAR(heard.amplitude, 0.4, 0.01);
}

TEST_F(Playback, DropsQueueWhenStopped) {
  dub_.start();
  dub_.play(sine(1000, 30));
  dub_.setVolume(0.5F);
  ASSERT_TRUE(eventually([this] { return recording_.hears(1000, 0.19) && !recording_.hears(1000, 0.21); }));
  dub_.stop();
  EXPECT_TRUE(eventually([this] { return !recording_.hears(1000, 1e-3); }, std::chrono::seconds(2)));
  dub_.start();
  dub_.play(sine(700, 30));
  EXPECT_TRUE(eventually([this] { return recording_.hears(700, 0.15) && !recording_.hears(1000, 0.01); }));
}

TEST_F(Playback, QueuesAMinuteAtMost) {
  constexpr platform::AudioFormat format{24'000, 1};
  const auto node = system_.playback().makePlayerNode();
  const auto fits = [&](std::uint32_t frames) {
    auto buffer = node->makeBuffer(format, frames);
    if (buffer) buffer->setFrameLength(frames);
    if (buffer) node->scheduleBuffer(*std::move(buffer));
    return buffer.has_value();
  };
  for (int second = 0; second < 60; ++second) EXPECT_TRUE(fits(24'000));
  EXPECT_FALSE(fits(1));
  node->stop();
  EXPECT_TRUE(fits(60 * 24'000));

  adapters::PipeWireSoundQueue queue; // what was played makes room
  std::vector<float> heard(150);
  float* const plane = heard.data();
  for (int i = 0; i < 2; ++i) queue.push(platform::AudioPCMBuffer::borrow(24'000, heard.data(), 100));
  queue.read(&plane, 1, 150);
  EXPECT_EQ(queue.waiting(), 50U);
  queue.read(&plane, 1, 150);
  EXPECT_EQ(queue.waiting(), 0U);
}

TEST_F(Playback, FollowsDefaultOutput) {
  graph_.createSink("other");
  ear_ = overhear("other", recording_);
  dub_.start();
  dub_.play(sine(700, 60));
  const int before = outputChanges_;
  graph_.setDefaultSink("other");
  EXPECT_TRUE(hears(700));
  EXPECT_GT(outputChanges_, before);
}

TEST_F(Playback, NamesDefaultOutput) {
  const std::pair<const char*, std::uint32_t> cases[] = {
      {"device.api=alsa device.bus=pci", platform::transports::builtIn},
      {"device.api=alsa", platform::transports::builtIn},
      {"device.api=alsa device.bus=pci device.profile.name=\"HiFi: HDMI1: sink\"",
       platform::transports::hdmi},
      {"device.api=alsa device.profile.description=DisplayPort-1", platform::transports::hdmi},
      {"device.api=alsa device.bus=usb", platform::transports::usb},
      {"device.api=bluez5", platform::transports::bluetooth},
      {"device.api=alsa device.bus=firewire", 0},
  };
  EXPECT_FALSE(AudioRoute::isBuiltInSpeaker(hardware()));
  const auto isNamed = [this](const std::string& name) {
    return eventually([&] { return AudioRoute::outputName(hardware()) == name; });
  };
  for (const auto& [properties, transport] : cases) {
    addSink("card", std::string("[FL FR] node.description=Card ") + properties);
    ASSERT_TRUE(isNamed("Card"));
    const auto device =
        audioProperty<AudioObjectID>(hardware(), systemAudioObject, selectors::defaultOutputDevice);
    EXPECT_EQ(audioProperty<std::uint32_t>(hardware(), device.value(), selectors::transportType), transport);
    graph_.destroyNode("card");
    EXPECT_TRUE(isNamed("speaker"));
  }
  graph_.destroyNode("speaker");
  EXPECT_TRUE(isNamed(""));
}

} // namespace
} // namespace tolvera::test
