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

TEST_F(Capture, TapsEverythingButThisProgram) {
  launch(CaptureMode::systemEverything());
  EXPECT_TRUE(in_.audioHardware.lastTap->processes.empty()) << "it has not played yet";
  stop();
  in_.audioHardware.addProcess(5);
  const auto own = in_.audioHardware.addProcess(in_.audioHardware.ownPID);
  start();
  EXPECT_EQ(in_.audioHardware.lastTap->kind,
            platform::TapDescription::Kind::monoGlobalTapButExcludeProcesses);
  EXPECT_EQ(in_.audioHardware.lastTap->processes, std::vector{own});
  playOthers(0.25F);
  EXPECT_EQ(framesSent(), 2U);
  stop();
  EXPECT_EQ(in_.audioHardware.made, 0);
}

TEST_F(Capture, ApplicationIsLookedUpAtTheStart) {
  addApp("org.browser", "Browser");
  launch(CaptureMode::systemApp("org.player", "Player"));
  EXPECT_EQ(phase(), "failed(An app appears here only after it has played sound at least once)");
  addApp("org.player", "Player", true);
  start();
  EXPECT_EQ(phase(), "connecting");
  EXPECT_EQ(app_->apps().size(), 1U) << "the list of the picker stays";
  app_->refreshApps();
  EXPECT_EQ(in_.audioHardware.lastTap->processes, app_->apps().at(0).objectIDs) << "the one that plays";
}

TEST_F(Capture, RefusedTapIsWordedByItsStatus) {
  in_.audioHardware.failures["startDevice"] = -66;
  in_.platform.desktopFamily = platform::DesktopFamily::macOS;
  launch(CaptureMode::systemEverything());
  EXPECT_EQ(phase(),
            "failed(No permission to record system audio. Open System Settings, Privacy & Security, "
            "Screen & System Audio Recording, and enable Tolvera.\n\n(启动采集失败（OSStatus -66）))");
  EXPECT_EQ(in_.audioHardware.made, 0);
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
  dub(0.5);
  dub(0.5); // they end 1.8 s later, each with its margin
  EXPECT_TRUE(in_.playback.playing());
  speak(0.2);
  in_.loop.advance(1799ms);
  speak(0.2);
  EXPECT_EQ(framesSent(), 2U);
  in_.loop.advance(1ms);
  speak(0.2);
  EXPECT_EQ(framesSent(), 4U);
  auto stopping = begin(app_->stop());
  dub(0.5);
  EXPECT_EQ(in_.playback.queued.size(), 36000U) << "the dub goes on during the goodbye";
  in_.loop.advance(5s);
  EXPECT_TRUE(stopping.finished() && in_.playback.queued.empty() && !in_.playback.playing());
}

TEST_F(Capture, DubHoldsNoOtherSoundBack) {
  launch(CaptureMode::systemEverything(), true);
  dub(5.0);
  playOthers(0.25F);
  EXPECT_EQ(framesSent(), 2U);
  in_.playback.startFailure = platform::PlatformError("Sound", 1, "no output");
  launch(CaptureMode::microphone(), true);
  EXPECT_EQ(phase(), "connecting");
  dub(5.0); // cannot be heard
  speak(0.2);
  EXPECT_EQ(framesSent(), 2U);
}

TEST_F(Capture, FollowsTheOutputRoute) {
  namespace selectors = platform::selectors;
  launch(CaptureMode::microphone());
  EXPECT_FALSE(app_->outputIsBuiltInSpeaker()) << "there is none";
  for (const auto transport : {platform::transports::builtIn, 0U, platform::transports::builtIn}) {
    in_.audioHardware.addOutput(transport);
    in_.notificationCenter.post(platform::defaultOutputDeviceDidChange);
    settle();
    EXPECT_EQ(app_->outputIsBuiltInSpeaker(), transport != 0U);
  }
  for (const auto selector : {selectors::transportType, selectors::defaultOutputDevice}) {
    in_.audioHardware.readFailures = {{selector, -1}};
    app_->refreshApps();
    EXPECT_FALSE(app_->outputIsBuiltInSpeaker()) << "what cannot be read is not built in";
  }
}

} // namespace
} // namespace tolvera
