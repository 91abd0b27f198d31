#include "PlatformTests/AudioGraphFixture.h"

#include <array>
#include <cstdlib>
#include <random>
#include <thread>

namespace tolvera::test {
namespace {

using namespace std::chrono_literals;

// True if the recording is loud at the frequency somewhere.
bool holds(std::span<const float> samples, double frequency) {
  constexpr std::size_t window = 3200;
  for (std::size_t at = 0; at + window <= samples.size(); at += window / 4) {
    if (amplitudeAt(frequency, Recording::rate, samples.subspan(at, window)) > 0.1) return true;
  }
  return false;
}

// Two applications, one native and one of PulseAudio, start, end and are cut short at random, while the
// default output changes, appears and vanishes.
class TapSoak : public AudioGraphTest {
 protected:
  struct Application {
    bool pulse = false;
    std::optional<ChildProcess> process;
    std::int32_t pid = 0;
    double frequency = 0;
    std::size_t from = 0;                 // in the recording of everything
    std::unique_ptr<Recording> recording; // of its own tap
    std::unique_ptr<CoreAudioTapBackend> tap;
  };

  bool chance(double share) { return std::uniform_real_distribution<>()(random_) < share; }

  void step(Application& application) {
    if (!application.process) {
      if (chance(0.3)) start(application);
    } else if (!application.process->running()) {
      finish(application);
    } else if (chance(0.01)) { // cut short: the tone may be missing
      end(application);
    } else if (!application.tap && chance(0.3)) {
      tap(application);
    }
  }
  void start(Application& application) {
    frequency_ = frequency_ > 6500 ? 300 : frequency_ + 70;
    application.frequency = frequency_;
    application.from = recording_.samples().size();
    const std::string file = graph_.tone(frequency_, 0.3, chance(0.5) ? 1.5 : 3);
    application.process = application.pulse ? graph_.pulseApplication(file) : graph_.application(file);
    application.pid = application.process->pid();
  }
  void tap(Application& application) {
    const auto object = AudioProcesses::object(hardware(), application.pid);
    if (!object) return;
    application.recording = std::make_unique<Recording>();
    application.tap = std::make_unique<CoreAudioTapBackend>(hardware(), system_, clock_,
                                                            CoreAudioTapBackend::Processes{{*object}});
    application.tap->start(application.recording->sink());
  }
  void finish(Application& application) {
    ++played_;
    std::this_thread::sleep_for(100ms);
    const auto all = recording_.samples();
    EXPECT_TRUE(holds(std::span(all).subspan(application.from), application.frequency))
        << application.frequency << " Hz is missing";
    // A tap that came with the last moments of the tone holds too little.
    if (application.tap && application.recording->seconds() > 0.5) {
      EXPECT_TRUE(holds(application.recording->samples(), application.frequency))
          << application.frequency << " Hz is missing in the tap on its process";
    }
    end(application);
  }
  static void end(Application& application) {
    application.tap.reset();
    application.process.reset();
  }
  void changeOutput() {
    const bool third = graph_.hasNode("third");
    if (third && chance(0.5)) return graph_.destroyNode("third");
    if (!third && chance(0.5)) graph_.createSink("third");
    graph_.setDefaultSink(chance(0.3) && graph_.hasNode("third") ? "third"
                          : chance(0.5)                          ? "speaker"
                                                                 : "second");
  }

  std::mt19937 random_{1};
  double frequency_ = 300;
  int played_ = 0;
};

// Set TOLVERA_SOAK_SECONDS for another duration than a minute.
TEST_F(TapSoak, HearsEveryTone) {
  graph_.startPulse();
  graph_.createSink("second");
  auto everything = tapEverything();
  everything.start(recording_.sink());
  std::array<Application, 2> applications;
  applications[1].pulse = true;
  const char* seconds = std::getenv("TOLVERA_SOAK_SECONDS");
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds ? std::atoi(seconds) : 60);
  while (std::chrono::steady_clock::now() < end) {
    for (Application& application : applications) step(application);
    try {
      if (chance(1.0 / 60)) changeOutput();
    } catch (const std::runtime_error& error) { // the session manager may be late; only the tones count
      std::puts(error.what());
    }
    ASSERT_NO_THROW(graph_.checkServers());
    std::this_thread::sleep_for(50ms);
  }
  EXPECT_GT(played_, 0);
}

} // namespace
} // namespace tolvera::test
