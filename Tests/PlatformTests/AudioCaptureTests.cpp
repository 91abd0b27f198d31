#include "Platform/Linux/PipeWireAudioSystem.h"
#include "Platform/PlatformError.h"
#include "TolveraCore/MicBackend.h"

#include "Support/PrivateGraph.h"
#include "Support/Recording.h"
#include "Support/Spectrum.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <span>

namespace tolvera {
namespace {

using adapters::PipeWireAudioSystem;
using std::chrono::seconds;
using test::eventually;
using test::PrivateGraph;

using test::Recording;

constexpr double rate = Recording::rate;

class Sound : public testing::Test {
 protected:
  PrivateGraph graph_;
  PipeWireAudioSystem system_;
  Recording recording_;

  void plugIn(const std::string& name = "mic", const std::string& positions = "[MONO]") {
    graph_.createSource(name, positions);
    graph_.setDefaultSource(name);
  }
  test::ChildProcess sing(double frequency, const std::string& node) {
    return graph_.play(graph_.tone(frequency, 0.5, 60), node);
  }
  bool hears(double frequency) {
    return eventually([this, frequency] { return recording_.hears(frequency); });
  }
  int codeOfStart() {
    MicBackend backend(system_);
    try {
      backend.start(recording_.sink());
    } catch (const platform::PlatformError& error) {
      return error.code();
    }
    return 0;
  }
};

TEST_F(Sound, OfTheMicrophoneArrivesAtItsLevelAndWithoutASeam) {
  plugIn();
  EXPECT_EQ(system_.makeEngine()->inputNode().outputFormat(0), (platform::AudioFormat{48000, 1}));
  MicBackend backend(system_);
  backend.start(recording_.sink());
  const auto player = sing(1000, "mic");
  ASSERT_TRUE(hears(1000));
  recording_.clear();
  ASSERT_TRUE(eventually([this] { return recording_.samples().size() >= 3 * 16000; }));
  backend.stop();

  // The machine may make the player itself stumble; a seam of ours would be in each of these stretches.
  const std::vector<float> heard = recording_.samples();
  constexpr std::size_t window = 8000;
  double residual = 0;
  std::span<const float> best;
  for (std::size_t at = 0; at + window <= heard.size(); at += window / 2) {
    const auto stretch = std::span(heard).subspan(at, window);
    if (const double found = test::residualBelow(1000, rate, stretch); found < residual) {
      residual = found;
      best = stretch;
    }
  }
  EXPECT_LT(residual, -60);
  EXPECT_NEAR(test::amplitudeAt(1000, rate, best), 0.5, 0.005);
}

TEST_F(Sound, OfSeveralChannelsArrivesAsTheirMean) {
  plugIn("stereo", "[FL FR]");
  EXPECT_EQ(system_.makeEngine()->inputNode().outputFormat(0), (platform::AudioFormat{48000, 2}));
  MicBackend backend(system_);
  backend.start(recording_.sink());
  const auto player = sing(500, "stereo"); // on both
  ASSERT_TRUE(hears(500));
  EXPECT_TRUE(eventually([this] {
    const std::vector<float> heard = recording_.samples();
    return std::abs(test::amplitudeAt(500, rate, std::span(heard).last(3200)) - 0.5) < 0.01;
  }));
}

TEST_F(Sound, NeedsAMicrophoneAndServerAndComesWithThem) {
  EXPECT_EQ(system_.makeEngine()->inputNode().outputFormat(0).sampleRate, 0);
  EXPECT_EQ(codeOfStart(), 10);
  graph_.killServer();
  EXPECT_EQ(codeOfStart(), 10);
  graph_.startServer();
  plugIn();
  MicBackend backend(system_);
  ASSERT_TRUE(
      eventually([this] { return system_.makeEngine()->inputNode().outputFormat(0).sampleRate > 0; }));
  backend.start(recording_.sink());
  const auto player = sing(1000, "mic");
  EXPECT_TRUE(hears(1000));
}

TEST_F(Sound, ComesBackWithAMicrophoneThatWasUnplugged) {
  plugIn();
  MicBackend backend(system_);
  backend.start(recording_.sink());
  {
    const auto player = sing(1000, "mic");
    ASSERT_TRUE(hears(1000));
    graph_.destroyNode("mic");
  }
  recording_.clear();
  plugIn();
  const auto player = sing(1500, "mic");
  EXPECT_TRUE(hears(1500));
}

TEST_F(Sound, FollowsTheDefaultToAnotherMicrophone) {
  plugIn("first");
  graph_.createSource("second", "[FL FR]");
  MicBackend backend(system_);
  backend.start(recording_.sink());
  const auto one = sing(700, "first");
  const auto two = sing(1300, "second");
  ASSERT_TRUE(hears(700));
  graph_.setDefaultSource("second");
  EXPECT_TRUE(hears(1300));
  EXPECT_FALSE(recording_.hears(700));
}

TEST_F(Sound, OfASinksMonitorIsNeverCaptured) {
  graph_.createSink("speaker");
  graph_.setDefaultSource("speaker");
  EXPECT_EQ(codeOfStart(), 10);

  plugIn();
  MicBackend backend(system_);
  backend.start(recording_.sink());
  const auto speaking = sing(700, "speaker");
  auto singing = sing(1000, "mic");
  ASSERT_TRUE(hears(1000));
  graph_.setDefaultSource("speaker");
  singing.kill();
  // The monitor would have been linked by the time that the server has done more work than this.
  ASSERT_TRUE(eventually([this] { return !recording_.hears(1000); }));
  recording_.clear();
  ASSERT_TRUE(eventually([this] { return recording_.samples().size() >= 8000; }));
  EXPECT_LT(test::amplitudeAt(700, rate, recording_.samples()), 1e-4);
}

TEST_F(Sound, ComesBackWithASoundServerThatDied) {
  plugIn();
  MicBackend backend(system_);
  backend.start(recording_.sink());
  for (const double frequency : {800.0, 1200.0}) {
    {
      const auto player = sing(500, "mic");
      ASSERT_TRUE(hears(500));
    }
    graph_.killServer();
    recording_.clear();
    graph_.startServer();
    plugIn();
    const auto player = sing(frequency, "mic");
    ASSERT_TRUE(hears(frequency));
  }
}

TEST_F(Sound, EndsWithTheBackendAndLeavesNothingInTheGraph) {
  plugIn();
  const auto before = graph_.objects();
  {
    MicBackend backend(system_);
    backend.start(recording_.sink());
    EXPECT_TRUE(graph_.hasNode("tolvera-microphone"));
  }
  const std::size_t count = recording_.samples().size();
  EXPECT_TRUE(eventually([this] { return !graph_.hasNode("tolvera-microphone"); }));
  EXPECT_TRUE(eventually([this, &before] {
    auto now = graph_.objects();
    --now["Client"]; // the system's connection stays
    return now == before;
  }));
  EXPECT_EQ(recording_.samples().size(), count);
}

TEST_F(Sound, IsStartedAndStoppedManyTimesWithoutALeak) {
  plugIn();
  const auto cycle = [this](bool untilItFlows) {
    recording_.clear();
    MicBackend backend(system_);
    backend.start(recording_.sink());
    EXPECT_TRUE(!untilItFlows || eventually([this] { return !recording_.samples().empty(); }));
    backend.stop();
  };
  cycle(true);
  const auto settled = [this] { return !graph_.hasNode("tolvera-microphone"); };
  ASSERT_TRUE(eventually(settled));
  const std::size_t threads = test::entries("/proc/self/task");
  const std::size_t descriptors = test::entries("/proc/self/fd");
  const auto objects = graph_.objects();
  for (int i = 0; i < 120; ++i) cycle(i % 8 == 0);
  EXPECT_TRUE(eventually([threads] { return test::entries("/proc/self/task") == threads; }));
  EXPECT_TRUE(eventually([descriptors] { return test::entries("/proc/self/fd") <= descriptors; }))
      << test::entries("/proc/self/fd") << " descriptors, before " << descriptors;
  EXPECT_TRUE(eventually([this, &objects] { return graph_.objects() == objects; }));
}

} // namespace
} // namespace tolvera
