#include "TolveraTests/ModelFixture.h"

namespace tolvera {
namespace {

using namespace std::chrono_literals;

class Run : public test::ModelFixture {};

TEST_F(Run, GoesFromIdleThroughStartingAndConnectingToLive) {
  auto& model = launchLive();
  EXPECT_EQ(phases_, (std::vector<std::string>{"starting", "connecting", "live"}));
  EXPECT_EQ(model.secondsLeft(), 3000);
  EXPECT_EQ(windows_.captionShows, 1);
  EXPECT_EQ(connection().url().buffer(),
            "ws://127.0.0.1:18790/livetranslate/ws"
            "?token=secret%20token&target=es&source=auto&dub=0&src=1&voice=Tina");
  in_.loop.advance(60s);
  EXPECT_EQ(model.overlayStatus(), "Listening…") << "a microphone is never called silent";
}

TEST_F(Run, WithoutABalanceFailsAtOnceAndAsksNobody) {
  in_.network.reply("/api/me", 200, test::accountReply(-3));
  auto& model = launch();
  const auto requests = in_.network.requests().size();
  start();
  EXPECT_EQ(phases_, (std::vector<std::string>{"starting", "failed(Out of time. Buy more to continue.)"}));
  model.settings()->setUILanguage(UILanguage::chinese);
  start();
  EXPECT_EQ(phase(), "failed(时长已用完，购买后继续。)");
  EXPECT_EQ(in_.network.requests().size(), requests);
  EXPECT_TRUE(in_.network.connections().empty());
}

TEST_F(Run, WithoutATokenSaysThatTheServerCannotBeReached) {
  launch();
  in_.network.reply("/api/me", 401, R"({"error":"unknown"})"); // takes the token away, while `me` is there
  in_.loop.run(model_->refreshAccount());
  in_.network.reply("/api/signup", 500, "");
  start();
  EXPECT_EQ(phase(), "failed(Cannot reach the server. Check your connection.)");
  EXPECT_FALSE(in_.audio.capturing());
}

TEST_F(Run, AsksForTheMicrophoneOnlyWhenTheUserHasNotDecided) {
  using Status = platform::AuthorizationStatus;
  const std::string denied =
      "failed(No microphone permission. Enable Tolvera under System Settings, Privacy & "
      "Security, Microphone, then start again.)";
  const std::tuple<Status, bool, std::string, int> cases[] = {{Status::denied, true, denied, 0},
                                                              {Status::notDetermined, false, denied, 1},
                                                              {Status::notDetermined, true, "connecting", 2}};
  launch();
  for (const auto& [status, agrees, expected, requests] : cases) {
    in_.captureDevice.status = status;
    in_.captureDevice.userAgrees = agrees;
    start();
    EXPECT_EQ(phase(), expected);
    EXPECT_EQ(in_.captureDevice.requests, requests);
  }
}

TEST_F(Run, WithoutAMicrophoneFailsInItsOwnWordsAndRecoversByAnotherPress) {
  launch();
  in_.audio.inputFormat = {};
  start();
  EXPECT_EQ(phase(), "failed(拿不到麦克风格式，检查系统设置里的麦克风权限。)");
  EXPECT_TRUE(in_.network.connections().empty());
  in_.audio.inputFormat = {48000, 1};
  start();
  EXPECT_EQ(phase(), "connecting");
}

TEST_F(Run, AStartWhileARunIsOnChangesNothing) {
  auto& model = launchLive();
  say(R"({"type":"tr","text":"hola","final":false})");
  phases_.clear();
  start();
  EXPECT_EQ(phases_, std::vector<std::string>{});
  EXPECT_EQ(model.currentLine(), "hola");
  EXPECT_EQ(in_.network.connections().size(), 1u);
}

TEST_F(Run, AStalledServerHoldsThePumpAndOldSoundIsDroppedNotKept) {
  launchLive();
  connection().stall();
  for (int i = 0; i < 1000; ++i) speak(0.1, 0.001F * static_cast<float>(i + 1)); // louder and louder
  EXPECT_EQ(connection().sentAudio().size(), 0u);
  connection().goOn();
  in_.loop.settle();
  const auto sent = connection().sentAudio();
  // The chunk that was being sent, and the newest 400 blocks.
  ASSERT_EQ(sent.size(), 401u);
  const auto level = [](const platform::Data& chunk) {
    return static_cast<int>(chunk[1]) << 8 | static_cast<int>(chunk[0]);
  };
  EXPECT_LT(level(sent[0]), level(sent[1]));
  EXPECT_NEAR(level(sent[400]), 32767, 40);
  EXPECT_NEAR(level(sent[1]), 0.601 * 32767, 40);
}

TEST_F(Run, StopEndsCaptureAtOnceAndStillTakesTheLastCaptions) {
  auto& model = launchLive();
  say(R"({"type":"src","text":"good morning"})");
  const auto accountReads = in_.network.requestCount("/api/me");
  auto stopping = begin(model.stop());
  EXPECT_FALSE(in_.audio.capturing());
  EXPECT_EQ(phase(), "live");

  in_.loop.advance(4s);
  say(R"({"type":"tr","text":"Buenos días.","final":true})");
  EXPECT_EQ(model.previousLine(), "Buenos días.");
  EXPECT_FALSE(stopping.finished());

  in_.loop.advance(1s);
  EXPECT_TRUE(stopping.finished());
  EXPECT_EQ(phase(), "idle");
  EXPECT_TRUE(model.previousLine().isEmpty() && model.sourceLine().isEmpty());
  EXPECT_EQ(windows_.positionsSaved, 1);
  EXPECT_EQ(windows_.orderedOut, 1);
  EXPECT_EQ(in_.network.requestCount("/api/me"), accountReads + 1);

  in_.loop.run(model.stop());
  EXPECT_EQ(in_.network.requestCount("/api/me"), accountReads + 1) << "a stop while idle does nothing";
}

TEST_F(Run, AStopWhileTheStartWaitsForItsTokenLeavesNothingBehind) {
  launch().settings()->captureEverything();
  in_.network.reply("/api/me", 401, "{}");
  in_.loop.run(model_->refreshAccount());
  in_.network.answer("/api/signup", [this](platform::HTTPRequest) -> Task<platform::HTTPResponse> {
    co_await in_.loop.clock().sleep(1s);
    co_return platform::HTTPResponse{200, R"({"token":"t","secondsLeft":60})"};
  });
  auto starting = begin(model_->start());
  EXPECT_EQ(phase(), "starting");
  auto stopping = begin(model_->stop());
  EXPECT_EQ(phase(), "idle");
  in_.loop.advance(10s);
  EXPECT_TRUE(starting.finished() && stopping.finished());
  EXPECT_EQ(phase(), "idle");
  EXPECT_EQ(in_.audioHardware.taps(), 0u);
  EXPECT_TRUE(in_.network.connections().empty());
}

TEST_F(Run, StopWorksFromEveryPhaseAndTwice) {
  auto& model = launch();
  const std::pair<const char*, const char*> phases[] = {
      {"connecting", ""},
      {"live", R"({"type":"ready","secondsLeft":1})"},
      {"reconnecting", R"({"type":"status","state":"reconnecting"})"},
      {"failed(broken)", R"({"type":"error","code":"upstream","message":"broken"})"}};
  for (const auto& [reached, frame] : phases) {
    start();
    say(frame);
    EXPECT_EQ(phase(), reached);
    auto first = begin(model.stop());
    auto second = begin(model.stop());
    in_.loop.advance(10s);
    EXPECT_TRUE(first.finished() && second.finished());
    EXPECT_EQ(phase(), "idle");
    EXPECT_FALSE(in_.audio.capturing());
  }
  auto starting = begin(model.start()); // and in the same turn
  auto stopping = begin(model.stop());
  in_.loop.advance(10s);
  EXPECT_TRUE(starting.finished() && stopping.finished());
  EXPECT_EQ(phase(), "idle");
}

TEST_F(Run, ASecondStopEndsTheGoodbyeAndTheFirstLeavesANewRunAlone) {
  auto& model = launchLive();
  auto first = begin(model.stop());
  auto second = begin(model.stop());
  EXPECT_TRUE(second.finished());
  EXPECT_EQ(phase(), "idle");

  start();
  say(R"({"type":"ready","secondsLeft":100})");
  in_.loop.advance(6s); // the first stop's goodbye is over now
  EXPECT_TRUE(first.finished());
  EXPECT_EQ(phase(), "live");
  EXPECT_TRUE(in_.audio.capturing());
  say(R"({"type":"tr","text":"sigo aquí"})");
  EXPECT_EQ(model.currentLine(), "sigo aquí");
}

TEST_F(Run, ALostLineIsReopenedAndTheLinesStay) {
  auto& model = launchLive();
  say(R"({"type":"tr","text":"una línea","final":true})");
  connection().fail();
  in_.loop.advance(500ms);
  EXPECT_EQ(phase(), "reconnecting");
  EXPECT_EQ(model.overlayStatus(), "Reconnecting…");
  say(R"({"type":"ready","secondsLeft":2000})");
  EXPECT_EQ(phase(), "live");
  EXPECT_EQ(model.previousLine(), "una línea");
  speak(0.1);
  EXPECT_EQ(connection().sentAudio().size(), 1u);
}

TEST_F(Run, ARefusedLineFailsInWordsAfterTheWholeScheduleAndTheUserCanStartAgain) {
  launch();
  in_.network.onConnection([](auto& connection) { connection.fail("拒绝"); });
  start();
  in_.loop.advance(24s);
  EXPECT_EQ(phase(), "failed(连接断开：拒绝)");
  EXPECT_TRUE(in_.audio.capturing()) << "a failure leaves the capture to the user";
  in_.network.onConnection([](auto& connection) { connection.accept(); });
  start();
  EXPECT_EQ(phase(), "connecting");
}

TEST_F(Run, ANewRunHearsNothingOfTheOneThatFailedBeforeIt) {
  auto& model = launchLive();
  auto old = in_.network.connection();
  say(R"({"type":"error","code":"upstream","message":"broken"})");
  start();
  ASSERT_NE(old, in_.network.connection());
  say(R"({"type":"ready","secondsLeft":50})");
  old->deliver(std::string(R"({"type":"tr","text":"old news"})"));
  in_.loop.advance(6s);
  EXPECT_EQ(phase(), "live");
  EXPECT_EQ(model.currentLine(), "");
  EXPECT_FALSE(old->closes().empty()) << "the old session says goodbye too";
}

TEST_F(Run, AServerURLThatDoesNotParseMeansTheDefault) {
  for (const auto* text : {"", "http://[", "not a url"}) {
    in_.userDefaults.setObject("serverURL", text);
    launch();
    start();
    EXPECT_EQ(connection().url().encoded_host_and_port(), API::defaultBaseURL().encoded_host_and_port());
    in_.loop.run(model_->stop());
  }
}

TEST_F(Run, TwoHundredRunsLeaveNothingBehind) {
  auto& model = launch();
  for (int i = 0; i < 200; ++i) {
    start();
    if (i % 2 == 0) say(R"({"type":"ready","secondsLeft":100})");
    speak(0.2);
    if (i % 3 == 0) connection().fail();
    in_.loop.run(model.stop());
  }
  in_.loop.advance(60s);
  EXPECT_EQ(in_.loop.clock().sleepers(), 0u);
  EXPECT_FALSE(in_.audio.capturing());
  for (const auto& connection : in_.network.connections()) EXPECT_LE(connection.use_count(), 2);
}

TEST_F(Run, FlagsOpenTheOnboardingShowSamplesAndStartByThemselves) {
  in_.userDefaults.removeObjectForKey("seenOnboarding");
  make();
  EXPECT_EQ(windows_.onboardingShows, 1);
  in_.userDefaults.setObject("seenOnboarding", true);
  make();
  EXPECT_EQ(windows_.onboardingShows, 1);
  in_.userDefaults.setObject("TolveraForceOnboarding", true);
  in_.userDefaults.setObject("TolveraPreviewOverlay", true);
  make();
  EXPECT_EQ(windows_.onboardingShows, 2);
  EXPECT_EQ(windows_.captionShows, 1);
  EXPECT_EQ(model_->currentLine() + model_->currentStash(), "然后讨论未来三个月的规划");
  EXPECT_EQ(model_->secondsLeft(), 742);
  EXPECT_EQ(phase(), "idle");
  in_.userDefaults.setObject("TolveraAutoStart", true);
  in_.userDefaults.setObject("overlayEnabled", false);
  make();
  EXPECT_EQ(phase(), "connecting");
  EXPECT_EQ(windows_.captionShows, 2) << "the samples again, and nothing for the run";
}

TEST_F(Run, LogsPhasesOnlyWhenAskedAndNeverTheToken) {
  testing::internal::CaptureStderr();
  launchLive();
  in_.loop.run(model_->stop());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");

  in_.userDefaults.setObject("TolveraVerbose", true);
  testing::internal::CaptureStderr();
  launchLive();
  in_.loop.run(model_->stop());
  const auto log = testing::internal::GetCapturedStderr();
  EXPECT_NE(log.find("[tolvera] start: mode=microphone target=es 余额=3600"), std::string::npos) << log;
  EXPECT_NE(log.find("[tolvera] 阶段 connecting → live\n"), std::string::npos) << log;
  EXPECT_EQ(log.find("secret"), std::string::npos) << log;
}

TEST_F(Run, SwapsTheDirectionUnlessTheSourceIsDetected) {
  auto& model = launch();
  auto& settings = *model.settings();
  EXPECT_FALSE(model.canSwapDirection());
  model.swapDirection();
  EXPECT_EQ(settings.target(), "es");

  settings.setSource("yue"); // cannot be spoken
  settings.setDub(true);
  EXPECT_TRUE(model.canSwapDirection());
  model.swapDirection();
  EXPECT_EQ(settings.source(), "es");
  EXPECT_EQ(settings.target(), "yue");
  EXPECT_FALSE(settings.dub());
}

} // namespace
} // namespace tolvera
