#include "TolveraTests/ModelFixture.h"

#include <QSignalSpy>

namespace tolvera {
namespace {

using namespace std::chrono_literals;

class Events : public test::ModelFixture {};

TEST_F(Events, CaptionsMoveThroughTheLines) {
  auto& model = launchLive();
  const std::pair<boost::json::value, const char*> captions[] = {
      {{{"type", "src"}, {"text", "good "}, {"stash", "mor"}}, "good mor|[]|"},
      {{{"type", "src"}, {"text", "good"}, {"final", true}}, "good|[]|"},
      {{{"type", "tr"}, {"text", "buenos"}, {"stash", " dí"}}, "good|buenos[ dí]|"},
      {{{"type", "tr"}, {"text", "Buenos."}, {"stash", "no"}, {"final", true}}, "good|[]|Buenos."},
      {{{"type", "tr"}, {"text", "¿Qué?"}, {"final", true}}, "good|[]|¿Qué?"},
      {{{"type", "tr"}, {"final", true}}, "good|[]|"},
      {{{"type", "src"}}, "|[]|"},
  };
  for (const auto& [caption, expected] : captions) {
    say(caption);
    EXPECT_EQ(lines(), expected);
    EXPECT_EQ(model.overlayStatus(), "") << "every caption empties the status";
  }
}

TEST_F(Events, ErrorsAreShownInWords) {
  const std::tuple<const char*, const char*, bool> errors[] = {
      {"quota_exhausted", "failed(Out of time. Buy more to continue.)", true},
      {"replaced", "failed(Translation started on another device, so this session stopped.)", true},
      {"upstream_rejected", "failed(no Klingon)", true},
      {"upstream", "failed(no Klingon)", false}};
  for (const auto& [code, expected, ends] : errors) {
    auto& model = launchLive();
    fail("no Klingon", code);
    translation("still here");
    in_.loop.advance(5s);
    EXPECT_EQ(phase(), expected);
    EXPECT_TRUE(in_.audio.capturing());
    EXPECT_EQ(connection().closes().empty(), !ends);
    EXPECT_EQ(model.currentLine(), ends ? "" : "still here");
    if (!ends) ready(9);
    EXPECT_EQ(phase(), ends ? expected : "live");
    stop();
  }
}

TEST_F(Events, SessionThatEndsStopsTheRun) {
  launchLive();
  finish("adiós");
  auto stopping = begin(app_->stop());
  connection().fail("closed by the server"); // the session ends within its goodbye
  settle();
  EXPECT_EQ(phase() + lines(), "idle|[]|");
  in_.loop.advance(5s);
  EXPECT_TRUE(stopping.finished());
}

TEST_F(Events, FieldsAnnounceEachChangeOnce) {
  auto& model = launchLive();
  const QSignalSpy balances(&model, &AppState::secondsLeftChanged);
  const QSignalSpy texts(&model, &AppState::balanceTextChanged);
  const QSignalSpy stash(&model, &AppState::currentStashChanged);
  const QSignalSpy status(&model, &AppState::overlayStatusChanged);
  phases_.clear();
  for (const double seconds : {3000, 3000, 2999, 0, 0}) {
    ready(seconds);
    balance(seconds);
  }
  for (const char* tail : {"dos", "dos", "tres"}) translation("uno", tail);
  model.settings()->setUILanguage(UILanguage::chinese);
  EXPECT_EQ(model.balanceText(), "不到 1 分钟");
  EXPECT_TRUE(phases_.empty());
  EXPECT_EQ(balances.count(), 2);
  EXPECT_EQ(texts.count(), 3) << "50m, 49m, under a minute, and the same in Chinese";
  EXPECT_EQ(stash.count(), 2);
  EXPECT_EQ(status.count(), 1);
}

TEST_F(Events, CaptionsGoAfterEightSeconds) {
  auto& model = launchLive();
  const auto waits = in_.loop.clock().sleepers();
  for (int i = 0; i < 3; ++i) {
    finish("uno");
    in_.loop.advance(7s);
    source("postponed");
    in_.loop.advance(7900ms);
    EXPECT_EQ(lines(), "postponed|[]|uno");
    EXPECT_EQ(in_.loop.clock().sleepers(), waits + 1) << "all captions share one wait";
    if (i == 1) fail("bad");
    in_.loop.advance(200ms);
    EXPECT_EQ(lines(), "|[]|");
    EXPECT_EQ(model.overlayStatus(), "Listening…");
    EXPECT_EQ(in_.loop.clock().sleepers(), waits);
  }
  source("last");
  stop();
  const auto status = model.overlayStatus();
  in_.loop.advance(20s);
  EXPECT_EQ(model.overlayStatus(), status) << "a stop ends the wait";
}

} // namespace
} // namespace tolvera
