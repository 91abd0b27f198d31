// The dub must never be translated again, in any mode. These runs are in the worst room: the microphone hears
// all that the loudspeaker plays.

#include "EndToEndTests/RealRun.h"
#include "ServiceTests/RunningServer.h"

namespace tolvera {
namespace {

using namespace std::chrono_literals;
using test::ChildProcess;

class DubLoop : public test::RealRun {
 protected:
  DubLoop() {
    clock_.speed = 1;
    // What the speaker plays, the microphone hears.
    test::outputOf({"pw-link", "speaker:monitor_FL", "microphone:input_MONO"});
    test::outputOf({"flite", "-voice", "rms", "-t",
                    "The children are playing in the garden behind the house.", "-o", speech_});
    in_.userDefaults.setObject("dub", true);
  }

  void launch() {
    RealRun::launch("http://127.0.0.1:" + std::to_string(service_->port()) + "/livetranslate");
  }
  // Starts a run, plays English by `play`, and waits until its dub has been over for long. Only the English
  // may have been recognised.
  template<typename Play>
  void expectOneLine(const Play& play) {
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
    [[maybe_unused]] const auto player = play();
    ASSERT_TRUE(in_.loop.settleUntil([&] { return !lines.empty(); }, 30s));
    in_.loop.settleUntil([] { return false; }, 9s); // the dub takes about 3 s, and would be heard by then
    run(model_->stop());
    ASSERT_EQ(lines.size(), 1u) << testing::PrintToString(lines);
    EXPECT_NE(lines[0].find("garden"), std::string::npos) << lines[0];
  }

  const std::string speech_ = graph_.directory() + "/speech.wav";
  test::RunningServer service_{1};
};

TEST_F(DubLoop, CapturesOnlyOthersOfEverything) {
  in_.userDefaults.setObject("captureMode", "all");
  launch();
  expectOneLine([this] { return ChildProcess({"pw-play", speech_}); });
}

TEST_F(DubLoop, CapturesOnlyTheApplication) {
  // A player that is silent at first, so that it is there when the run begins.
  const auto film = graph_.directory() + "/film.wav";
  test::outputOf({"python3", TOLVERA_STAGE "/sound", "join", film, "5", speech_, "15"});
  const ChildProcess player({"pw-play", film});
  in_.runningApplications.addRegular(player.pid(), "org.player", "Player");
  in_.userDefaults.setObject("captureMode", "app");
  in_.userDefaults.setObject("captureBundle", "org.player");
  launch();
  ASSERT_TRUE(in_.loop.settleUntil([&] {
    model_->refreshApps();
    return !model_->apps().empty();
  }));
  expectOneLine([] { return nullptr; });
}

TEST_F(DubLoop, HoldsTheMicrophoneBack) {
  launch();
  expectOneLine([this] { return graph_.play(speech_, "microphone"); });
}

} // namespace
} // namespace tolvera
