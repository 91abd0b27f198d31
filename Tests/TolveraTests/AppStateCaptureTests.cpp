#include "TolveraTests/ModelFixture.h"

namespace tolvera {
namespace {

using namespace std::chrono_literals;

// Runs on the sound of other programs, and the dub.
class Capture : public test::ModelFixture {
 protected:
  void launch(const CaptureMode& mode, bool dub = false) {
    ModelFixture::launch();
    settings().setCaptureMode(mode);
    settings().setDub(dub);
    start();
  }
  void playOthers(float level) {
    in_.audioHardware.deliver(std::vector<float>(48000 / 5 * 2, level)); // 0.2 s
    settle();
  }
  void dub(double seconds) {
    connection().deliver(platform::Data(static_cast<std::size_t>(seconds * 24000) * 2, std::byte{1}));
    settle();
  }
};

TEST_F(Capture, EverythingIsTappedUntilTheStop) {
  launch(CaptureMode::systemEverything());
  ASSERT_TRUE(in_.audioHardware.lastTap);
  EXPECT_EQ(in_.audioHardware.lastTap->kind,
            platform::TapDescription::Kind::monoGlobalTapButExcludeProcesses);
  playOthers(0.25F);
  EXPECT_EQ(chunksSent(), 2U);
  stop();
  EXPECT_EQ(in_.audioHardware.taps() + in_.audioHardware.aggregates() + in_.audioHardware.ioProcs(), 0U);
}

TEST_F(Capture, ApplicationIsLookedUpAtTheStart) {
  in_.runningApplications.addRegular(10, "org.player", "Player");
  launch(CaptureMode::systemApp("org.player", "Player"));
  EXPECT_EQ(phase(), "failed(An app appears here only after it has played sound at least once)");
  const auto main = in_.audioHardware.addProcess(10, "org.player", true);
  const auto helper = in_.audioHardware.addProcess(11, "org.player.helper");
  start();
  EXPECT_EQ(phase(), "connecting");
  EXPECT_EQ(in_.audioHardware.lastTap->processes, (std::vector{main, helper}));
  EXPECT_TRUE(app_->apps().empty()) << "the list of the picker stays";
  app_->refreshApps();
  EXPECT_EQ(app_->appsForViews().value(0).toMap().value("name").toString(), "Player");
}

TEST_F(Capture, RefusedTapIsWordedByItsStatus) {
  in_.audioHardware.failures["startDevice"] = -66;
  in_.platform.desktopFamily = platform::DesktopFamily::macOS;
  launch(CaptureMode::systemEverything());
  EXPECT_EQ(phase(),
            "failed(No permission to record system audio. Open System Settings, Privacy & Security, "
            "Screen & System Audio Recording, and enable Tolvera.\n\n(启动采集失败（OSStatus -66）))");
  EXPECT_EQ(in_.audioHardware.taps(), 0U);
  in_.audioHardware.failures.clear();
  in_.audioHardware.streamFormat.formatFlags = 0;
  start();
  EXPECT_EQ(phase(), "failed(采集格式不是 Float32（实际 32 位）)");
}

TEST_F(Capture, WatchdogTellsSilenceFromNoSound) {
  launch(CaptureMode::systemEverything());
  ready(100);
  const char* const silence =
      "Only digital silence arrived, so this app's audio cannot be captured. Try the microphone instead.";
  const std::tuple<Duration, const char*, std::function<void()>> steps[] = {
      {12s, "Listening…", [] {}},
      {2s, "Waiting for audio…", [this] { playOthers(0.00009F); }},
      {2s, silence, [this] { say({{"type", "status"}, {"state", "reconnecting"}}); }},
      {4s, "Reconnecting…", [this] { ready(100); }},
      {2s, silence,
       [this] {
         playOthers(0.0002F);
         source("x");
       }},
      {6s, "", [] {}},
      {60s, "Listening…", [] {}}};
  for (const auto& [wait, status, then] : steps) {
    in_.loop.advance(wait);
    EXPECT_EQ(app_->overlayStatus(), status);
    then();
  }
}

TEST_F(Capture, DubHoldsTheMicrophoneBack) {
  launch(CaptureMode::microphone(), true);
  speak(0.2);
  dub(1.0); // it ends 1.4 s later, with its margin
  EXPECT_TRUE(in_.playback.playing());
  speak(0.2);
  in_.loop.advance(1300ms);
  speak(0.2);
  EXPECT_EQ(chunksSent(), 2U);
  in_.loop.advance(200ms);
  speak(0.2);
  EXPECT_EQ(chunksSent(), 4U);
  auto stopping = begin(app_->stop());
  dub(0.5);
  EXPECT_EQ(in_.playback.queued.size(), 36000U) << "the dub goes on during the goodbye";
  in_.loop.advance(5s);
  EXPECT_TRUE(stopping.finished() && in_.playback.queued.empty());
  EXPECT_EQ(in_.playback.engines(), 0);
}

TEST_F(Capture, DubHoldsNoOtherSoundBack) {
  launch(CaptureMode::systemEverything(), true);
  dub(5.0);
  playOthers(0.25F);
  EXPECT_EQ(chunksSent(), 2U);
  stop();
  in_.playback.startFailure = platform::PlatformError("Sound", 1, "no output");
  launch(CaptureMode::microphone(), true);
  EXPECT_EQ(phase(), "connecting");
  dub(5.0); // cannot be heard
  speak(0.2);
  EXPECT_EQ(chunksSent(), 2U);
}

TEST_F(Capture, FollowsTheOutputRoute) {
  for (const bool speaker : {true, false}) {
    in_.audioHardware.addOutput(platform::fourCharacterCode(speaker ? "bltn" : "blue"), "Output");
    if (speaker) launch(CaptureMode::microphone());
    in_.notificationCenter.post(platform::defaultOutputDeviceDidChange);
    settle();
    EXPECT_EQ(app_->outputIsBuiltInSpeaker(), speaker);
  }
}

} // namespace
} // namespace tolvera
