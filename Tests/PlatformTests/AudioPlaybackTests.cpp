#include "Platform/Linux/PipeWireOutputs.h"
#include "Platform/PlatformError.h"
#include "PlatformTests/AudioGraphFixture.h"
#include "TolveraCore/AudioRoute.h"

namespace tolvera::test {
namespace {

using platform::fourCharacterCode;

using Output = AudioGraphTest;

// Changes the default output while it begins to read the defaults, so that the server tells nobody else.
class Meddler final : adapters::PipeWireConnection::Listener {
 public:
  Meddler() {
    connection_.addListener(*this);
    EXPECT_TRUE(connection_.open(std::chrono::seconds(10)));
  }
  ~Meddler() override {
    const adapters::LoopLock lock(connection_.loop());
    disconnected();
  }
  Meddler(const Meddler&) = delete;
  Meddler& operator=(const Meddler&) = delete;

  void setDefaultSink(const std::string& name) {
    const adapters::LoopLock lock(connection_.loop());
    ASSERT_TRUE(writer_);
    pw_metadata_set_property(writer_.get(), PW_ID_CORE, "default.audio.sink", "Spa:String:JSON",
                             (R"({"name":")" + name + R"("})").c_str());
    reader_ = bind();
  }

 private:
  using Metadata = adapters::Proxy<pw_metadata>;

  void added(const adapters::PipeWireConnection::Global& global) override {
    const spa_dict* properties = global.properties;
    const char* name = properties != nullptr ? spa_dict_lookup(properties, PW_KEY_METADATA_NAME) : nullptr;
    if (name == nullptr || std::string_view(name) != "default") return;
    id_ = global.id;
    writer_ = bind();
  }
  void disconnected() override {
    writer_.reset();
    reader_.reset();
  }
  Metadata bind() {
    return Metadata(static_cast<pw_metadata*>(
        pw_registry_bind(connection_.registry(), id_, PW_TYPE_INTERFACE_Metadata, PW_VERSION_METADATA, 0)));
  }

  adapters::PipeWireConnection connection_;
  std::uint32_t id_ = PW_ID_ANY;
  Metadata writer_;
  Metadata reader_;
};

TEST_F(Output, OfTheDubHasItsLevelAndRateAndNoSeamBetweenBuffers) {
  const Monitor monitor(graph_, "speaker");
  DubPlayer dub(system_.playback(), clock_);
  dub.start();
  const auto whole = sine(1000, 0.4, 4);
  for (std::size_t at = 0; at < whole.size(); at += 4001) {
    const std::size_t end = std::min(at + 4001, whole.size());
    dub.play(
        {whole.begin() + static_cast<std::ptrdiff_t>(at), whole.begin() + static_cast<std::ptrdiff_t>(end)});
  }
  ASSERT_TRUE(eventually([&monitor] { return monitor.level(1000) > 0.3; }));
  ASSERT_TRUE(eventually([&monitor] { return monitor.level(1000) < 0.01; }));
  const auto heard = monitor.samples();
  double best = 0;
  double level = 0;
  for (std::size_t at = 0; at + 16000 <= heard.size(); at += 1600) {
    const auto stretch = std::span(heard).subspan(at, 16000);
    const double residual = residualBelow(1000, Recording::rate, stretch);
    if (residual < best) {
      best = residual;
      level = amplitudeAt(1000, Recording::rate, stretch);
    }
  }
  EXPECT_LT(best, -60);
  EXPECT_NEAR(level, 0.4, 0.01);
}

TEST_F(Output, OfTheDubFallsSilentAtAStopAndForgetsWhatWasQueued) {
  const Monitor monitor(graph_, "speaker");
  DubPlayer dub(system_.playback(), clock_);
  dub.start();
  dub.play(sine(1000, 0.4, 30));
  dub.setVolume(0.5F);
  ASSERT_TRUE(eventually([&monitor] { return std::abs(monitor.level(1000) - 0.2) < 0.01; }));
  dub.stop();
  EXPECT_TRUE(eventually([&monitor] { return monitor.level(1000) < 1e-3; }, std::chrono::seconds(2)));
  dub.start();
  dub.play(sine(700, 0.4, 30));
  EXPECT_TRUE(eventually([&monitor] { return monitor.level(700) > 0.15; }));
  EXPECT_LT(monitor.level(1000), 0.01);
}

TEST_F(Output, OfTheDubFollowsTheDefault) {
  graph_.createSink("other");
  const Monitor monitor(graph_, "other");
  DubPlayer dub(system_.playback(), clock_);
  dub.start();
  dub.play(sine(1000, 0.4, 30));
  EXPECT_LT(monitor.level(1000), 0.01);
  graph_.setDefaultSink("other");
  EXPECT_TRUE(eventually([&monitor] { return monitor.level(1000) > 0.3; }));
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

TEST_F(Output, ThatIsTheDefaultIsKnownThoughTheServerKeptItsChangeFromUs) {
  graph_.createSink("other");
  ASSERT_EQ(AudioRoute::outputName(hardware()), "speaker");
  Meddler meddler;
  meddler.setDefaultSink("other");
  EXPECT_TRUE(eventually([this] { return AudioRoute::outputName(hardware()) == "other"; }));
}

TEST(OutputTransport, IsThatOfTheDeviceBehindIt) {
  const auto transport = [](adapters::PipeWireOutputs::Properties properties) {
    return adapters::PipeWireOutputs::transport(properties);
  };
  EXPECT_EQ(transport({{"device.api", "alsa"}, {"device.bus", "pci"}}), fourCharacterCode("bltn"));
  EXPECT_EQ(transport({{"device.api", "alsa"}}), fourCharacterCode("bltn"));
  EXPECT_EQ(
      transport({{"device.api", "alsa"}, {"device.bus", "pci"}, {"device.profile.name", "hdmi-stereo"}}),
      fourCharacterCode("hdmi"));
  EXPECT_EQ(transport({{"device.api", "alsa"}, {"device.bus", "usb"}}), fourCharacterCode("usb "));
  EXPECT_EQ(transport({{"device.api", "bluez5"}}), fourCharacterCode("blue"));
  EXPECT_EQ(transport({{"device.api", "alsa"}, {"device.bus", "firewire"}}), 0U);
  EXPECT_EQ(transport({{"node.name", "virtual"}}), 0U);
}

} // namespace
} // namespace tolvera::test
