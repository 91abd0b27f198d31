#include "TolveraTests/ModelFixture.h"

#include <QSignalSpy>

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
  const std::pair<std::string, std::string> worded[] = {
      {"quota_exhausted", "failed(Out of time. Buy more to continue.)"},
      {"replaced", "failed(Translation started on another device, so this session stopped.)"},
      {"upstream_rejected", "failed(no Klingon here)"}};
  for (const auto& [code, expected] : worded) {
    launchLive();
    say(R"({"type":"error","message":"no Klingon here","code":")" + code + R"("})");
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
  const QSignalSpy phases(&model, &AppState::phaseChanged);
  const QSignalSpy balances(&model, &AppState::secondsLeftChanged);
  const QSignalSpy current(&model, &AppState::currentLineChanged);
  const QSignalSpy stash(&model, &AppState::currentStashChanged);
  const QSignalSpy status(&model, &AppState::overlayStatusChanged);
  for (int i = 0; i < 3; ++i) {
    say(R"({"type":"ready","secondsLeft":3000})");
    say(R"({"type":"balance","secondsLeft":3000})");
  }
  EXPECT_EQ(phases.count() + balances.count() + status.count(), 0);
  say(R"({"type":"balance","secondsLeft":0})");
  EXPECT_EQ(model.secondsLeft(), 0);
  for (int i = 0; i < 3; ++i) say(R"({"type":"tr","text":"uno","stash":"dos"})");
  say(R"({"type":"tr","text":"uno","stash":"tres"})");
  EXPECT_EQ(phases.count(), 0);
  EXPECT_EQ(balances.count(), 1);
  EXPECT_EQ(current.count(), 1);
  EXPECT_EQ(status.count(), 1);
  EXPECT_EQ(stash.count(), 2);
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

} // namespace
} // namespace tolvera
