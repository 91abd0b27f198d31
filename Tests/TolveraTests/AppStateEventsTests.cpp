#include "TolveraTests/ModelFixture.h"

namespace tolvera {
namespace {

using namespace std::chrono_literals;

class Events : public test::ModelFixture {
 protected:
  std::vector<QString> lines() const {
    return {model_->sourceLine(), model_->currentLine(), model_->currentStash(), model_->previousLine()};
  }
  using Lines = std::vector<QString>;
};

TEST_F(Events, CaptionsGrowInPlaceAndGoWholeToThePreviousLine) {
  auto& model = launchLive();
  say(R"({"type":"src","text":"good ","stash":"mor"})");
  EXPECT_EQ(lines(), (Lines{"good mor", "", "", ""}));
  EXPECT_EQ(model.overlayStatus(), "") << "every caption empties the status";
  say(R"({"type":"src","text":"good morning","final":true})");
  say(R"({"type":"tr","text":"buenos","stash":" dí"})");
  EXPECT_EQ(lines(), (Lines{"good morning", "buenos", " dí", ""}));
  say(R"({"type":"tr","text":"Buenos días.","stash":"dropped","final":true})");
  EXPECT_EQ(lines(), (Lines{"good morning", "", "", "Buenos días."}));
  say(R"({"type":"tr","text":"¿Qué tal?","final":true})");
  EXPECT_EQ(lines(), (Lines{"good morning", "", "", "¿Qué tal?"}));
  say(R"({"type":"tr","final":true})");
  say(R"({"type":"src"})");
  EXPECT_EQ(lines(), (Lines{"", "", "", ""}));
}

TEST_F(Events, ABalanceChangesTheBalanceAndNothingElse) {
  auto& model = launchLive();
  say(R"({"type":"balance","secondsLeft":0})");
  EXPECT_EQ(model.secondsLeft(), 0);
  EXPECT_EQ(phase(), "live");
  EXPECT_EQ(model.overlayStatus(), "Listening…");
}

TEST_F(Events, AFailureThatTheSessionSurvivesKeepsItsCaptionsComing) {
  auto& model = launchLive();
  say(R"({"type":"error","message":"hiccup","code":"upstream"})");
  EXPECT_EQ(phase(), "failed(hiccup)");
  say(R"({"type":"tr","text":"still here"})");
  EXPECT_EQ(phase(), "failed(hiccup)");
  EXPECT_EQ(model.currentLine(), "still here");
  say(R"({"type":"ready","secondsLeft":9})");
  EXPECT_EQ(phase(), "live");
}

TEST_F(Events, FatalCodesAreWordedHereAndStayOnScreen) {
  const std::vector<std::pair<std::string, std::string>> worded = {
      {R"({"type":"error","code":"quota_exhausted","message":"x"})",
       "failed(Out of time. Buy more to continue.)"},
      {R"({"type":"error","code":"replaced","message":"x"})",
       "failed(Translation started on another device, so this session stopped.)"},
      {R"({"type":"error","code":"upstream_rejected","message":"no Klingon here"})",
       "failed(no Klingon here)"},
  };
  for (const auto& [frame, expected] : worded) {
    launchLive();
    say(frame);
    in_.loop.advance(5s);
    EXPECT_EQ(phase(), expected);
    EXPECT_TRUE(in_.audio.capturing());
    EXPECT_FALSE(connection().closes().empty());
    in_.loop.run(model_->stop());
    EXPECT_EQ(phase(), "idle");
  }
}

TEST_F(Events, ASessionThatEndsByItselfStopsTheRun) {
  launchLive();
  say(R"({"type":"tr","text":"adiós","final":true})");
  auto stopping = begin(model_->stop());
  connection().fail("closed by the server"); // within the goodbye: the session ends early
  in_.loop.settle();
  EXPECT_EQ(phase(), "idle");
  EXPECT_EQ(lines(), (Lines{"", "", "", ""}));
  in_.loop.advance(5s);
  EXPECT_TRUE(stopping.finished());
}

TEST_F(Events, EachFieldAnnouncesAChangeOnceAndNothingWhenItDidNotChange) {
  auto& model = launchLive();
  int phases = 0;
  int balances = 0;
  int current = 0;
  int stash = 0;
  int status = 0;
  const QObject observer; // ends the connections with the counters
  QObject::connect(&model, &AppState::phaseChanged, &observer, [&] { ++phases; });
  QObject::connect(&model, &AppState::secondsLeftChanged, &observer, [&] { ++balances; });
  QObject::connect(&model, &AppState::currentLineChanged, &observer, [&] { ++current; });
  QObject::connect(&model, &AppState::currentStashChanged, &observer, [&] { ++stash; });
  QObject::connect(&model, &AppState::overlayStatusChanged, &observer, [&] { ++status; });
  for (int i = 0; i < 3; ++i) {
    say(R"({"type":"ready","secondsLeft":3000})");
    say(R"({"type":"balance","secondsLeft":3000})");
  }
  EXPECT_EQ(phases + balances + status, 0);
  for (int i = 0; i < 3; ++i) say(R"({"type":"tr","text":"uno","stash":"dos"})");
  EXPECT_EQ(current, 1);
  EXPECT_EQ(stash, 1);
  EXPECT_EQ(status, 1);
  say(R"({"type":"tr","text":"uno","stash":"tres"})");
  EXPECT_EQ(current, 1);
  EXPECT_EQ(stash, 2);
}

TEST_F(Events, OldCaptionsGoEightSecondsAfterTheLastOne) {
  auto& model = launchLive();
  say(R"({"type":"tr","text":"uno","final":true})");
  in_.loop.advance(7s);
  say(R"({"type":"src","text":"a source caption postpones it too"})");
  in_.loop.advance(7900ms);
  EXPECT_EQ(model.previousLine(), "uno");
  in_.loop.advance(200ms);
  EXPECT_EQ(lines(), (Lines{"", "", "", ""}));
  EXPECT_EQ(model.overlayStatus(), "Listening…");

  say(R"({"type":"tr","text":"dos","final":true})");
  say(R"({"type":"error","message":"bad","code":"upstream"})");
  in_.loop.advance(8s);
  EXPECT_EQ(model.previousLine(), "") << "a failure does not keep old captions on screen";
  EXPECT_EQ(phase(), "failed(bad)");
}

TEST_F(Events, NoLateClearingAfterAStop) {
  auto& model = launchLive();
  say(R"({"type":"tr","text":"uno"})");
  in_.loop.run(model.stop());
  const auto status = model.overlayStatus();
  in_.loop.advance(20s);
  EXPECT_EQ(model.overlayStatus(), status);
}

TEST_F(Events, AMicrophoneRunIsNeverCalledSilent) {
  auto& model = launchLive();
  in_.loop.advance(60s);
  EXPECT_EQ(model.overlayStatus(), "Listening…");
}

} // namespace
} // namespace tolvera
