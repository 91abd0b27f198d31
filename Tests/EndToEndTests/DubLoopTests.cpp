// The spoken translation must never come back as something to translate, in any mode: the room where these
// runs happen is the worst one, its loudspeaker right in front of its microphone.

#include "EndToEndTests/RealRun.h"

#include <optional>

namespace tolvera {
namespace {

using namespace std::chrono_literals;

class DubLoop : public test::RealRun {
 protected:
  DubLoop() {
    clock_.speed = 1;
    // What the speaker plays, the microphone hears.
    test::outputOf({"pw-link", "speaker:monitor_FL", "microphone:input_MONO"});
    in_.userDefaults.setObject("dub", true);
    service_.start("0");
  }

  // Speech, into the default output or into a node.
  test::ChildProcess play(const std::string& target) {
    const auto speech = graph_.directory() + "/speech.wav";
    test::outputOf({"flite", "-voice", "rms", "-t",
                    "The children are playing in the garden behind the house.", "-o", speech});
    return target.empty() ? test::ChildProcess({"pw-play", speech}) : graph_.play(speech, target);
  }

  // Plays English (an "application" does that by itself), waits until its dub has long been over, and gives
  // every line that was recognised.
  std::vector<std::string> linesHeard(const std::string& target) {
    std::vector<std::string> lines;
    int dubbed = 0;
    const QObject observer;
    QObject::connect(model_.get(), &AppState::sourceLineChanged, &observer,
                     [&] { line_ = model_->sourceLine(); });
    QObject::connect(model_.get(), &AppState::previousLineChanged, &observer, [&] {
      if (model_->previousLine().isEmpty()) return;
      lines.push_back(line_.toStdString());
      ++dubbed;
    });
    run(model_->start());
    EXPECT_TRUE(reaches(Phase::Kind::live)) << model_->phase().message().toStdString();
    std::optional<test::ChildProcess> player;
    if (target != "application") player.emplace(play(target));
    EXPECT_TRUE(in_.loop.settleUntil([&] { return dubbed > 0; }, 30s));
    in_.loop.settleUntil([] { return false; }, 9s); // the dub takes about 3 s, and would be heard by then
    run(model_->stop());
    return lines;
  }

  test::ServiceProcess service_;
  QString line_;
};

TEST_F(DubLoop, WithEverythingCapturedOnlyTheOthersAreHeard) {
  in_.userDefaults.setObject("captureMode", "all");
  launch(service_.url());
  const auto lines = linesHeard("");
  ASSERT_EQ(lines.size(), 1u) << testing::PrintToString(lines);
  EXPECT_NE(lines[0].find("garden"), std::string::npos) << lines[0];
}

TEST_F(DubLoop, OfOneApplicationNothingElseIsHeard) {
  // A player that says nothing at first, so that it is there when the run begins.
  play("").wait(20s);
  const auto film = graph_.directory() + "/film.wav";
  test::outputOf(
      {"python3", TOLVERA_STAGE "/sound", "join", film, "5", graph_.directory() + "/speech.wav", "15"});
  const test::ChildProcess player({"pw-play", film});
  in_.runningApplications.addRegular(player.pid(), "org.player", "Player");
  in_.userDefaults.setObject("captureMode", "app");
  in_.userDefaults.setObject("captureBundle", "org.player");
  launch(service_.url());
  ASSERT_TRUE(in_.loop.settleUntil([&] {
    model_->refreshApps();
    return !model_->apps().empty();
  }));
  const auto lines = linesHeard("application");
  ASSERT_EQ(lines.size(), 1u) << testing::PrintToString(lines);
  EXPECT_NE(lines[0].find("garden"), std::string::npos) << lines[0];
}

TEST_F(DubLoop, TheMicrophoneIsDeafWhileTheDubSpeaks) {
  launch(service_.url());
  const auto lines = linesHeard("microphone");
  ASSERT_EQ(lines.size(), 1u) << testing::PrintToString(lines);
  EXPECT_NE(lines[0].find("garden"), std::string::npos) << lines[0];
}

} // namespace
} // namespace tolvera
