#include "TolveraTests/ModelFixture.h"

namespace tolvera {
namespace {

using namespace std::chrono_literals;
using platform::fourCharacterCode;

// Runs on the sound of other programs, and the dub.
class Capture : public test::ModelFixture {
 protected:
  void choose(const CaptureMode& mode) { model_->settings()->setCaptureMode(mode); }
  void playOthers(double seconds, float level) {
    in_.audioHardware.deliver(std::vector<float>(static_cast<std::size_t>(seconds * 48000) * 2, level));
    in_.loop.settle();
  }
  std::size_t chunksSent() { return connection().sentAudio().size(); }
  void dub(double seconds) {
    connection().deliver(platform::Data(static_cast<std::size_t>(seconds * 24000) * 2, std::byte{1}));
    in_.loop.settle();
  }
};

TEST_F(Capture, EverythingIsTappedAndStreamedAndReleasedByTheStop) {
  launch();
  choose(CaptureMode::systemEverything());
  start();
  ASSERT_TRUE(in_.audioHardware.lastTap);
  EXPECT_EQ(in_.audioHardware.lastTap->kind,
            platform::TapDescription::Kind::monoGlobalTapButExcludeProcesses);
  playOthers(0.5, 0.25F);
  EXPECT_EQ(chunksSent(), 5u);
  in_.loop.run(model_->stop());
  EXPECT_EQ(in_.audioHardware.taps() + in_.audioHardware.aggregates() + in_.audioHardware.ioProcs(), 0u);
}

TEST_F(Capture, AnApplicationIsLookedUpAfreshWhenTheRunStarts) {
  in_.runningApplications.addRegular(10, "org.player", "Player");
  auto& model = launch();
  EXPECT_TRUE(model.apps().empty()) << "it has not played yet";
  choose(CaptureMode::systemApp("org.player", "Player"));
  start();
  EXPECT_EQ(phase(), "failed(An app appears here only after it has played sound at least once)");

  const auto main = in_.audioHardware.addProcess(10, "org.player", true);
  const auto helper = in_.audioHardware.addProcess(11, "org.player.helper");
  start();
  EXPECT_EQ(phase(), "connecting");
  EXPECT_EQ(in_.audioHardware.lastTap->processes, (std::vector{main, helper}));
  EXPECT_TRUE(model.apps().empty()) << "the picker's list is its own";
  model.refreshApps();
  ASSERT_EQ(model.apps().size(), 1u);
  EXPECT_EQ(model.appsForViews().at(0).toMap().value("name").toString(), "Player");
}

TEST_F(Capture, ARefusedTapIsWordedAsAMissingPermissionOnlyWithAStatus) {
  launch();
  choose(CaptureMode::systemEverything());
  in_.audioHardware.failures["startDevice"] = -66;
  start();
  EXPECT_EQ(phase(),
            "failed(No permission to record system audio. Open System Settings, Privacy & Security, "
            "Screen & System Audio Recording, and enable Tolvera.\n\n(启动采集失败（OSStatus -66）))");
  EXPECT_EQ(in_.audioHardware.taps(), 0u);
  in_.audioHardware.failures.clear();
  in_.audioHardware.streamFormat.formatFlags = 0;
  start();
  EXPECT_EQ(phase(), "failed(采集格式不是 Float32（实际 32 位）)");
}

TEST_F(Capture, TheWatchdogTellsNoSoundFromSilenceAndFallsQuietForGood) {
  auto& model = launch();
  choose(CaptureMode::systemEverything());
  start();
  say(R"({"type":"ready","secondsLeft":100})");
  in_.loop.advance(12s);
  EXPECT_EQ(model.overlayStatus(), "Listening…");
  in_.loop.advance(2s);
  EXPECT_EQ(model.overlayStatus(), "Waiting for audio…");
  playOthers(0.1, 0.00009F);
  in_.loop.advance(2s);
  EXPECT_EQ(
      model.overlayStatus(),
      "Only digital silence arrived, so this app's audio cannot be captured. Try the microphone instead.");
  say(R"({"type":"status","state":"reconnecting"})");
  in_.loop.advance(4s);
  EXPECT_EQ(model.overlayStatus(), "Reconnecting…") << "it says nothing while the line is down";
  say(R"({"type":"ready","secondsLeft":100})");
  in_.loop.advance(2s);
  EXPECT_NE(model.overlayStatus(), "Listening…");
  playOthers(0.1, 0.0002F);
  say(R"({"type":"src","text":"x"})");
  in_.loop.advance(6s);
  EXPECT_EQ(model.overlayStatus(), "");
  in_.loop.advance(60s);
  EXPECT_EQ(model.overlayStatus(), "Listening…") << "one real sample silences it for the rest of the run";
}

TEST_F(Capture, TheDubIsPlayedAndDroppedByTheStop) {
  launch();
  model_->settings()->setDub(true);
  start();
  dub(0.5);
  EXPECT_TRUE(in_.playback.playing());
  EXPECT_EQ(in_.playback.queued.size(), 12000u);
  auto stopping = begin(model_->stop());
  dub(0.5);
  EXPECT_EQ(in_.playback.queued.size(), 24000u) << "what comes during the goodbye is still spoken";
  in_.loop.advance(5s);
  EXPECT_TRUE(stopping.finished());
  EXPECT_TRUE(in_.playback.queued.empty());
  EXPECT_EQ(in_.playback.engines(), 0);
}

TEST_F(Capture, TheMicrophoneIsHeldBackWhileTheDubSpeaks) {
  launch();
  model_->settings()->setDub(true);
  start();
  speak(0.2);
  EXPECT_EQ(chunksSent(), 2u);
  dub(1.0); // and a margin of 0.4 s
  speak(0.2);
  in_.loop.advance(1300ms);
  speak(0.2);
  EXPECT_EQ(chunksSent(), 2u);
  in_.loop.advance(200ms);
  speak(0.2);
  EXPECT_EQ(chunksSent(), 4u);
}

TEST_F(Capture, NothingIsHeldBackOfOtherSoundOrForADubThatIsNotHeard) {
  launch();
  model_->settings()->setDub(true);
  choose(CaptureMode::systemEverything());
  start();
  dub(5.0);
  playOthers(0.2, 0.25F);
  EXPECT_EQ(chunksSent(), 2u);
  in_.loop.run(model_->stop());

  in_.playback.startFailure = platform::PlatformError("Sound", 1, "no output");
  choose(CaptureMode::microphone());
  start();
  EXPECT_EQ(phase(), "connecting");
  dub(5.0);
  speak(0.2);
  EXPECT_EQ(chunksSent(), 2u);
}

TEST_F(Capture, TheOutputRouteIsFollowedFromTheFirstAppearanceOn) {
  in_.audioHardware.addOutput(fourCharacterCode("bltn"), "Speaker");
  auto& model = launch();
  EXPECT_TRUE(model.outputIsBuiltInSpeaker());
  in_.loop.run(model.bootstrap());
  EXPECT_EQ(in_.notificationCenter.observers(), 1u);
  in_.audioHardware.addOutput(fourCharacterCode("blue"), "Headphones");
  in_.notificationCenter.post(platform::defaultOutputDeviceDidChange);
  EXPECT_FALSE(model.outputIsBuiltInSpeaker());
}

} // namespace
} // namespace tolvera
