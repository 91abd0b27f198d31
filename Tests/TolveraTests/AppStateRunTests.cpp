#include "TolveraTests/ModelFixture.h"

namespace tolvera {
namespace {

using namespace std::chrono_literals;

class Run : public test::ModelFixture {};

TEST_F(Run, OpensTheSessionOfTheSettings) {
  auto& model = launchLive();
  EXPECT_EQ(phases_, (std::vector<std::string>{"starting", "connecting", "live"}));
  EXPECT_EQ(windows_.captionShows, 1);
  EXPECT_EQ(connection().url().buffer(),
            "ws://127.0.0.1:18790/livetranslate/ws"
            "?token=secret%20token&target=es&source=auto&dub=0&src=1&voice=Tina");
  translation("hola");
  start(); // a second start changes nothing
  EXPECT_EQ(phase() + lines(), "live|hola[]|");
  in_.loop.advance(60s);
  EXPECT_EQ(model.overlayStatus(), "Listening…") << "a microphone is never called silent";
  stop();
  for (const auto* text : {"", "http://[", "not a url"}) {
    settings().setServerURL(text);
    start();
    EXPECT_EQ(connection().url().encoded_host_and_port(), API::defaultBaseURL().encoded_host_and_port());
    stop();
  }
}

// What a start fails for, the words for it, and that the next press of the button works again.
TEST_F(Run, FailsInWords) {
  using Status = platform::AuthorizationStatus;
  auto& device = in_.captureDevice;
  const std::string denied =
      "failed(No microphone permission. Enable Tolvera under System Settings, Privacy & "
      "Security, Microphone, then start again.)";
  const std::tuple<std::function<void()>, std::string, std::function<void()>> causes[] = {
      {[this] { account(-3); }, "failed(Out of time. Buy more to continue.)", [this] { account(60); }},
      {[this] { settings().setUILanguage(UILanguage::chinese), account(0); },
       "failed(时长已用完，购买后继续。)",
       [this] { settings().setUILanguage(UILanguage::english), account(60); }},
      {[this] {
         loseToken();
         in_.network.reply("/api/signup", 500, "");
       },
       "failed(Cannot reach the server. Check your connection.)",
       [this] { in_.network.reply("/api/signup", 200, R"({"token":"t","secondsLeft":60})"); }},
      {[&] { device.status = Status::denied; }, denied, [] {}},
      {[&] { device.status = Status::notDetermined, device.userAgrees = false; }, denied,
       [&] { device.status = Status::notDetermined, device.userAgrees = true; }},
      {[this] { in_.audio.inputFormat = {}; }, "failed(拿不到麦克风格式，检查系统设置里的麦克风权限。)",
       [this] { in_.audio.inputFormat = {48000, 1}; }}};
  in_.platform.desktopFamily = platform::DesktopFamily::macOS;
  launch();
  for (const auto& [spoil, expected, mend] : causes) {
    device.status = Status::authorized;
    spoil();
    const auto connections = in_.network.connections().size();
    start();
    EXPECT_EQ(phase(), expected);
    EXPECT_FALSE(in_.audio.capturing());
    EXPECT_EQ(in_.network.connections().size(), connections);
    mend();
    if (device.status == Status::denied) continue;
    start();
    EXPECT_EQ(phase(), "connecting");
    stop();
  }
  EXPECT_EQ(device.requests, 2) << "the user is asked only while undecided";
}

TEST_F(Run, StalledServerDropsOldSound) {
  launchLive();
  connection().stall();
  for (int i = 0; i < 1000; ++i) speak(0.1, 0.001F * static_cast<float>(i + 1)); // louder and louder
  EXPECT_EQ(chunksSent(), 0U);
  connection().goOn();
  settle();
  const auto sent = connection().sentAudio();
  ASSERT_EQ(sent.size(), 401U) << "the chunk under way, and the newest 400 blocks";
  const auto level = [&sent](std::size_t chunk) {
    return static_cast<int>(sent[chunk][1]) << 8 | static_cast<int>(sent[chunk][0]);
  };
  EXPECT_LT(level(0), level(1));
  EXPECT_NEAR(level(1), 0.601 * 32767, 40);
  EXPECT_NEAR(level(400), 32767, 40);
}

TEST_F(Run, StopTakesTheLastCaptions) {
  launchLive();
  const auto reads = in_.network.requestCount("/api/me");
  auto stopping = begin(app_->stop());
  EXPECT_FALSE(in_.audio.capturing());
  EXPECT_EQ(phase(), "live");
  in_.loop.advance(4s);
  finish("Buenos días.");
  EXPECT_EQ(lines(), "|[]|Buenos días.");
  in_.loop.advance(1s);
  EXPECT_TRUE(stopping.finished());
  EXPECT_EQ(phase() + lines(), "idle|[]|");
  EXPECT_EQ(windows_.positionsSaved + windows_.orderedOut, 2);
  stop(); // while idle it does nothing
  EXPECT_EQ(in_.network.requestCount("/api/me"), reads + 1);
}

TEST_F(Run, StopEndsAWaitingStart) {
  launch();
  settings().captureEverything();
  loseToken();
  for (const bool sameTurn : {true, false}) {
    auto starting =
        sameTurn ? spawn(in_.loop.executor(), "start", app_, app_->start()) : begin(app_->start());
    auto stopping = begin(app_->stop());
    EXPECT_EQ(phase(), "idle");
    in_.loop.advance(2h);
    EXPECT_TRUE(starting.finished() && stopping.finished());
    EXPECT_EQ(phase(), "idle");
  }
  EXPECT_EQ(in_.audioHardware.taps() + in_.network.connections().size(), 0U);
}

TEST_F(Run, StopWorksTwiceInEveryPhase) {
  launch();
  const std::pair<const char*, std::function<void()>> phases[] = {
      {"connecting", [] {}},
      {"live", [this] { ready(1); }},
      {"reconnecting", [this] { say({{"type", "status"}, {"state", "reconnecting"}}); }},
      {"failed(broken)", [this] { fail("broken"); }}};
  for (const auto& [reached, reach] : phases) {
    start();
    reach();
    EXPECT_EQ(phase(), reached);
    auto first = begin(app_->stop());
    auto second = begin(app_->stop());
    EXPECT_TRUE(second.finished()) << "it ends the goodbye";
    EXPECT_EQ(phase(), "idle");
    start();
    ready(100);
    in_.loop.advance(6s); // the goodbye of the first stop would be over now
    EXPECT_TRUE(first.finished());
    EXPECT_EQ(phase(), "live") << "the first stop leaves the new run alone";
    translation("sigo aquí");
    EXPECT_EQ(lines(), "|sigo aquí[]|");
    stop();
    EXPECT_FALSE(in_.audio.capturing());
  }
}

TEST_F(Run, LostConnectionIsReopened) {
  launchLive();
  finish("una línea");
  connection().fail();
  in_.loop.advance(500ms);
  EXPECT_EQ(phase() + app_->overlayStatus().toStdString(), "reconnectingReconnecting…");
  ready(2000);
  EXPECT_EQ(phase() + lines(), "live|[]|una línea");
  speak(0.1);
  EXPECT_EQ(chunksSent(), 1U);
  in_.network.onConnection([](auto& opened) { opened.fail("拒绝"); });
  connection().fail();
  in_.loop.advance(24s);
  EXPECT_EQ(phase(), "failed(连接断开：拒绝)");
  EXPECT_TRUE(in_.audio.capturing()) << "a failure leaves the capture to the user";
}

TEST_F(Run, FailedRunSharesNothingWithTheNext) {
  launchLive();
  auto old = in_.network.connection();
  fail("broken");
  start();
  ASSERT_NE(old, in_.network.connection());
  ready(50);
  old->deliver(std::string(R"({"type":"tr","text":"old news"})"));
  in_.loop.advance(6s);
  EXPECT_EQ(phase() + lines(), "live|[]|");
  EXPECT_FALSE(old->closes().empty()) << "the old session says goodbye too";
}

TEST_F(Run, ManyRunsLeaveNothingBehind) {
  launch();
  for (int i = 0; i < 200; ++i) {
    start();
    if (i % 2 == 0) ready(100);
    if (i % 5 == 0) source("x");
    speak(0.2);
    if (i % 3 == 0) connection().fail();
    stop();
  }
  in_.loop.advance(60s);
  EXPECT_EQ(in_.loop.clock().sleepers(), 0U);
  for (const auto& opened : in_.network.connections()) EXPECT_LE(opened.use_count(), 2);
}

TEST_F(Run, LaunchFlagsActByThemselves) {
  auto& flags = in_.userDefaults.values;
  flags["seenOnboarding"] = false;
  make();
  flags = {{"seenOnboarding", true}, {"captureMode", "mic"}, {"uiLanguage", "english"}};
  make();
  EXPECT_EQ(windows_.onboardingShows, 1);
  flags["TolveraForceOnboarding"] = flags["TolveraPreviewOverlay"] = true;
  make();
  EXPECT_EQ(windows_.onboardingShows, 2);
  EXPECT_EQ(windows_.captionShows, 1);
  EXPECT_EQ(phase() + app_->balanceText().toStdString() + lines(),
            "idle12mand then move on to the roadmap for the next three months|然后讨论未来三个月的[规划]|"
            "我们先来快速回顾一下上个季度的业绩。");
  flags["TolveraAutoStart"] = true;
  flags["overlayEnabled"] = false;
  make();
  EXPECT_EQ(phase(), "connecting");
  EXPECT_EQ(windows_.captionShows, 2) << "the samples again, but no panel for the run";
}

TEST_F(Run, LogIsOnlyWrittenOnRequest) {
  for (const bool verbose : {false, true}) {
    in_.userDefaults.setObject("TolveraVerbose", verbose);
    testing::internal::CaptureStderr();
    launchLive();
    stop();
    const auto log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(log.empty(), !verbose);
    for (const char* line :
         {"[tolvera] start: mode=microphone target=es 余额=3600", "阶段 connecting → live\n"})
      EXPECT_EQ(log.find(line) != std::string::npos, verbose) << log;
    EXPECT_EQ(log.find("secret"), std::string::npos) << log;
  }
}

TEST_F(Run, SwapsTheDirection) {
  launch();
  EXPECT_FALSE(app_->canSwapDirection()) << "the source is detected";
  app_->swapDirection();
  EXPECT_EQ(settings().target(), "es");
  settings().setSource("yue"); // cannot be spoken
  settings().setDub(true);
  EXPECT_TRUE(app_->canSwapDirection());
  app_->swapDirection();
  EXPECT_EQ(settings().source() + settings().target(), "esyue");
  EXPECT_FALSE(settings().dub());
}

} // namespace
} // namespace tolvera
