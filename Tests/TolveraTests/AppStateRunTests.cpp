#include "TolveraCore/PCMChunker.h"
#include "TolveraTests/ModelFixture.h"

namespace tolvera {
namespace {

using namespace std::chrono_literals;

class Run : public test::ModelFixture {
 protected:
  // Neither the sound system nor the network holds anything of a run.
  void expectNothingLeft() {
    EXPECT_FALSE(in_.audio.tapped());
    EXPECT_EQ(in_.audio.converters + in_.audioHardware.made, 0);
    EXPECT_EQ(in_.loop.clock().sleepers(), 0U);
    for (const auto& opened : in_.network.connections()) EXPECT_LE(opened.use_count(), 2);
  }
};

TEST_F(Run, OpensTheSessionOfTheSettings) {
  auto& model = launch();
  std::string phases;
  const QObject observer;
  QObject::connect(&model, &AppState::phaseChanged, &observer, [&] { phases += phase() + " "; });
  start();
  ready(3000);
  EXPECT_EQ(phases, "starting connecting live ");
  EXPECT_EQ(connection().url.buffer(), "ws://127.0.0.1:18790/livetranslate/ws"
                                       "?token=secret-token&target=es&source=auto&dub=0&src=1&voice=Tina");
  translation("hola");
  start(); // a second start changes nothing
  EXPECT_EQ(phase() + lines(), "live|hola[]|");
  in_.loop.advance(60s);
  EXPECT_EQ(model.overlayStatus(), "Listening…") << "a microphone is never called silent";
  for (const auto* text : {"", "http://[", "http://a b/"}) {
    stop();
    settings().setServerURL(text);
    start();
    EXPECT_EQ(connection().url.encoded_host_and_port(), API::defaultBaseURL().encoded_host_and_port());
  }
}

// What a start fails for, the words for it, and that the next press of the button works again.
TEST_F(Run, FailsInWords) {
  using Status = platform::AuthorizationStatus;
  using Conversion = test::InMemoryAudio::Conversion;
  auto& device = in_.captureDevice;
  auto& audio = in_.audio;
  const std::string denied = "No microphone permission. Enable Tolvera under System Settings, Privacy & "
                             "Security, Microphone, then start again.";
  const std::tuple<std::function<void()>, std::string, std::function<void()>> causes[] = {
      {[&] { account(-3); }, "Out of time. Buy more to continue.", [&] { account(60); }},
      {[&] { loseToken(), in_.network.reply("/api/signup", 500, ""); },
       "Cannot reach the server. Check your connection.",
       [&] { in_.network.reply("/api/signup", 200, R"({"token":"t","secondsLeft":60})"); }},
      {[&] { device.status = Status::denied; }, denied, [&] { device.status = Status::authorized; }},
      {[&] { device.status = Status::notDetermined, device.userAgrees = false; }, denied,
       [&] { device.status = Status::notDetermined, device.userAgrees = true; }},
      {[&] { audio.inputFormat = {}; }, "拿不到麦克风格式，检查系统设置里的麦克风权限。",
       [&] { audio.inputFormat = {48000, 1}; }},
      {[&] { audio.conversion = Conversion::absent; }, "创建重采样器失败",
       [&] { audio.conversion = Conversion::working; }},
      {[&] { audio.startFailure = platform::PlatformError("Sound", -7, "busy"); }, "busy",
       [&] { audio.startFailure.reset(); }},
      {[&] { settings().setUILanguage(UILanguage::chinese), account(0); }, "时长已用完，购买后继续。",
       [&] { account(60); }}};
  in_.platform.desktopFamily = platform::DesktopFamily::macOS;
  launch();
  for (const auto& [spoil, expected, mend] : causes) {
    spoil();
    const auto connections = in_.network.connections().size();
    start();
    EXPECT_EQ(phase(), "failed(" + expected + ")");
    EXPECT_EQ(in_.network.connections().size(), connections);
    expectNothingLeft();
    mend();
    start();
    EXPECT_EQ(phase(), "connecting");
    EXPECT_TRUE(audio.capturing());
    stop();
  }
  EXPECT_EQ(device.requests, 2) << "the user is asked only while undecided";
}

TEST_F(Run, StalledServerDropsOldSound) {
  live();
  connection().stall();
  for (int i = 0; i < 1000; ++i) speak(0.1, 0.001F * static_cast<float>(i + 1)); // louder and louder
  EXPECT_EQ(framesSent(), 0U);
  connection().accept();
  settle();
  ASSERT_EQ(framesSent(), 401U) << "the chunk under way, and the newest 400 blocks";
  const auto level = [this](std::size_t chunk) {
    return PCMChunker::decode(std::get<platform::Data>(connection().sent[chunk])).at(0);
  };
  EXPECT_LT(level(0), 0.6);
  EXPECT_NEAR(level(1), 0.601, 1e-3);
  EXPECT_NEAR(level(400), 1, 1e-3);
}

TEST_F(Run, StopTakesTheLastCaptions) {
  live();
  const auto reads = in_.network.requestCount("/api/me");
  auto stopping = begin(app_->stop());
  EXPECT_FALSE(in_.audio.capturing());
  in_.loop.advance(4900ms);
  EXPECT_EQ(phase(), "live");
  EXPECT_TRUE(connection().closes.empty());
  finish("Buenos días.");
  EXPECT_EQ(lines(), "|[]|Buenos días.");
  in_.loop.advance(100ms);
  EXPECT_TRUE(stopping.finished());
  EXPECT_EQ(phase() + lines(), "idle|[]|");
  EXPECT_EQ(connection().sent, std::vector<test::ScriptedConnection::Message>{R"({"type":"stop"})"});
  EXPECT_EQ(connection().closes.at(0), 1000);
  EXPECT_EQ(windows_, "captions saved out ");
  stop(); // while idle it does nothing
  EXPECT_EQ(in_.network.requestCount("/api/me"), reads + 1);
}

TEST_F(Run, StopEndsAWaitingStart) {
  launch();
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
  EXPECT_TRUE(in_.network.connections().empty());
  expectNothingLeft();
}

TEST_F(Run, StopEndsAStartThatAsks) {
  launch();
  in_.captureDevice.status = platform::AuthorizationStatus::notDetermined;
  in_.captureDevice.thinks = true;
  const auto starting = begin(app_->start());
  stop();
  in_.captureDevice.answered.open();
  settle();
  EXPECT_TRUE(starting.finished());
  EXPECT_EQ(phase(), "idle");
  expectNothingLeft();
}

TEST_F(Run, StopEndsAStartThatConnects) {
  launch();
  TaskHandle stopping;
  in_.network.onConnection([&](test::ScriptedConnection& connection) {
    connection.accept();
    stopping = spawn(in_.loop.executor(), "stop", app_, app_->stop());
  });
  start();
  in_.loop.advance(6s);
  EXPECT_TRUE(stopping.finished());
  EXPECT_EQ(phase(), "idle");
  expectNothingLeft();
}

TEST_F(Run, StopWorksTwiceInEveryPhase) {
  launch();
  const std::pair<const char*, std::function<void()>> phases[] = {
      {"connecting", [] {}},
      {"live", [this] { ready(1); }},
      {"reconnecting", [this] { say({{"type", "status"}, {"state", "reconnecting"}}); }},
      {"connecting", [this] { connection().fail(); }},
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
    speak(0.2);
    stop();
  }
  in_.loop.advance(60s);
  expectNothingLeft();
}

TEST_F(Run, LostConnectionIsReopened) {
  live();
  finish("una línea");
  connection().fail();
  in_.loop.advance(500ms);
  EXPECT_EQ(phase() + app_->overlayStatus().toStdString(), "reconnectingReconnecting…");
  ready(2000);
  EXPECT_EQ(phase() + lines(), "live|[]|una línea");
  speak(0.1);
  EXPECT_EQ(framesSent(), 1U);
  in_.network.onConnection([](auto& opened) { opened.fail("拒绝"); });
  connection().fail();
  in_.loop.advance(24s);
  EXPECT_EQ(phase(), "failed(连接断开：拒绝)");
  EXPECT_TRUE(in_.audio.capturing()) << "a failure leaves the capture to the user";
}

TEST_F(Run, FailedRunSharesNothingWithTheNext) {
  live();
  auto old = in_.network.connection();
  fail("broken");
  start();
  ready(50);
  old->deliver(R"({"type":"tr","text":"old news"})");
  in_.loop.advance(6s);
  EXPECT_EQ(phase() + lines(), "live|[]|");
  EXPECT_FALSE(old->closes.empty()) << "the old session says goodbye too";
  EXPECT_TRUE(connection().closes.empty());
}

TEST_F(Run, ManyEventsLeaveTurnsToTheLoop) {
  live();
  int lines = 0;
  int linesBeforeTurn = 0;
  const QObject here; // the model outlives what is counted here
  QObject::connect(app_.get(), &AppState::previousLineChanged, &here, [&] {
    if (++lines > 1) return;
    settle(); // meanwhile all the others come
    boost::asio::post(in_.loop.executor(), [&] { linesBeforeTurn = lines; });
  });
  for (int i = 0; i < 1000; ++i)
    connection().deliver(R"({"type":"tr","final":true,"text":")" + std::to_string(i) + R"("})");
  settle();
  EXPECT_EQ(lines, 1000);
  EXPECT_LE(linesBeforeTurn, 64);
}

TEST_F(Run, CaptionsMoveThroughTheLines) {
  live();
  const std::pair<boost::json::value, const char*> captions[] = {
      {{{"type", "src"}, {"text", "good "}, {"stash", "mor"}}, "good mor|[]|"},
      {{{"type", "src"}, {"text", "good"}, {"final", true}}, "good|[]|"},
      {{{"type", "tr"}, {"text", "buenos"}, {"stash", " dí"}}, "good|buenos[ dí]|"},
      {{{"type", "tr"}, {"text", "Buenos."}, {"stash", "no"}, {"final", true}}, "good|[]|Buenos."},
      {{{"type", "tr"}, {"text", "¿Qué?"}, {"final", true}}, "good|[]|¿Qué?"},
      {{{"type", "tr"}, {"final", true}}, "good|[]|"},
      {{{"type", "src"}}, "|[]|"}};
  for (const auto& [caption, expected] : captions) {
    say(caption);
    EXPECT_EQ(lines(), expected);
    EXPECT_EQ(app_->overlayStatus(), "") << "every caption empties the status";
  }
}

TEST_F(Run, ErrorsAreShownInWords) {
  const std::tuple<const char*, const char*, bool> errors[] = {
      {"quota_exhausted", "failed(Out of time. Buy more to continue.)", true},
      {"replaced", "failed(Translation started on another device, so this session stopped.)", true},
      {"upstream_rejected", "failed(no Klingon)", true},
      {"upstream", "failed(no Klingon)", false}};
  for (const auto& [code, expected, ends] : errors) {
    live();
    fail("no Klingon", code);
    translation("still here");
    in_.loop.advance(5s);
    EXPECT_EQ(phase(), expected);
    EXPECT_TRUE(in_.audio.capturing());
    EXPECT_EQ(connection().closes.size(), ends ? 1U : 0U);
    EXPECT_EQ(app_->currentLine(), ends ? "" : "still here");
    if (!ends) ready(9);
    EXPECT_EQ(phase(), ends ? expected : "live");
    speak(0.1);
    stop();
    EXPECT_EQ(framesSent(), ends ? 0U : 2U) << "a refused run says no goodbye";
  }
}

TEST_F(Run, SessionThatEndsStopsTheRun) {
  live();
  finish("adiós");
  auto stopping = begin(app_->stop());
  connection().fail("closed by the server"); // the session ends within its goodbye
  settle();
  EXPECT_EQ(phase() + lines(), "idle|[]|");
  in_.loop.advance(5s);
  EXPECT_TRUE(stopping.finished());
}

TEST_F(Run, CaptionsGoAfterEightSeconds) {
  live();
  const auto waits = in_.loop.clock().sleepers();
  for (const bool failed : {false, true}) {
    finish("uno");
    in_.loop.advance(7s);
    source("postponed");
    in_.loop.advance(7900ms);
    EXPECT_EQ(lines(), "postponed|[]|uno");
    EXPECT_EQ(in_.loop.clock().sleepers(), waits + 1) << "all captions share one wait";
    if (failed) fail("bad");
    in_.loop.advance(200ms);
    EXPECT_EQ(lines() + app_->overlayStatus().toStdString(), "|[]|Listening…");
  }
  source("last");
  stop();
  const auto status = app_->overlayStatus();
  in_.loop.advance(20s);
  EXPECT_EQ(app_->overlayStatus(), status) << "a stop ends the wait";
}

TEST_F(Run, LaunchFlagsActByThemselves) {
  auto& flags = in_.userDefaults.values;
  flags["TolveraForceOnboarding"] = flags["TolveraPreviewOverlay"] = true;
  make();
  EXPECT_EQ(windows_, "greeting captions ");
  EXPECT_EQ(phase() + app_->balanceText().toStdString() + lines(),
            "idle12mand then move on to the roadmap for the next three months|然后讨论未来三个月的[规划]|"
            "我们先来快速回顾一下上个季度的业绩。");
  flags = {{"seenOnboarding", false},
           {"TolveraAutoStart", true},
           {"captureMode", "mic"},
           {"overlayEnabled", false}};
  windows_.clear();
  make();
  EXPECT_EQ(phase(), "connecting");
  EXPECT_EQ(windows_, "greeting ") << "no panel for the run";
}

TEST_F(Run, LogIsOnlyWrittenOnRequest) {
  for (const bool verbose : {false, true}) {
    in_.userDefaults.setObject("TolveraVerbose", verbose);
    testing::internal::CaptureStderr();
    make();
    live();
    stop();
    const auto log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(log.empty(), !verbose);
    for (const char* line :
         {"[tolvera] start: mode=microphone target=es 余额=3600", "阶段 connecting → live\n"})
      EXPECT_EQ(log.find(line) != std::string::npos, verbose) << log;
    EXPECT_EQ(log.find("secret"), std::string::npos) << log;
  }
}

} // namespace
} // namespace tolvera
