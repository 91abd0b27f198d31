// The dub must never be translated again, in any mode. These runs are in the worst room: the microphone hears
// all that the loudspeaker plays.

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

  // Plays English into `target` ("application" plays by itself) and waits until its dub has been over for
  // long. Only the English may have been recognised.
  void expectOneLine(const std::string& target) {
    std::vector<std::string> lines;
    QString line;
    const QObject observer;
    QObject::connect(model_.get(), &AppState::sourceLineChanged, &observer,
                     [&] { line = model_->sourceLine(); });
    QObject::connect(model_.get(), &AppState::previousLineChanged, &observer, [&] {
      if (!model_->previousLine().isEmpty()) lines.push_back(line.toStdString());
    });
    run(model_->start());
    ASSERT_TRUE(reaches(Phase::Kind::live)) << model_->phase().message().toStdString();
    std::optional<test::ChildProcess> player;
    if (target != "application") player.emplace(play(target));
    ASSERT_TRUE(in_.loop.settleUntil([&] { return !lines.empty(); }, 30s));
    in_.loop.settleUntil([] { return false; }, 9s); // the dub takes about 3 s, and would be heard by then
    run(model_->stop());
    ASSERT_EQ(lines.size(), 1u) << testing::PrintToString(lines);
    EXPECT_NE(lines[0].find("garden"), std::string::npos) << lines[0];
  }

  test::ServiceProcess service_;
};

TEST_F(DubLoop, CapturesOnlyOthersOfEverything) {
  in_.userDefaults.setObject("captureMode", "all");
  launch(service_.url());
  expectOneLine("");
}

TEST_F(DubLoop, CapturesOnlyTheApplication) {
  // A player that is silent at first, so that it is there when the run begins.
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
  expectOneLine("application");
}

TEST_F(DubLoop, HoldsTheMicrophoneBack) {
  launch(service_.url());
  expectOneLine("microphone");
}

} // namespace
} // namespace tolvera
