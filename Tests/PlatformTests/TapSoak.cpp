// Two applications, one native and one of PulseAudio, that start, pause, end early and start again at random,
// while the default output changes, appears and vanishes; all in real time, on a private sound server. Every
// tone that was played to its end must be in the recording of the tap on everything, and in that of the tap
// on its process where there was one. Prints what it did; exits with 1 if a tone is missing.
//
//   TapSoak [SECONDS] [SEED]      60 seconds, seed 1, if not told otherwise

#include "Async/SystemClock.h"
#include "Platform/Linux/Sound/PipeWireAudioSystem.h"
#include "TolveraCore/AudioProcesses.h"
#include "TolveraCore/CoreAudioTapBackend.h"
#include "TolveraCore/DubPlayer.h"

#include "Fakes/Recording.h"
#include "Harness/PrivateGraph.h"

#include <boost/asio/io_context.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <numbers>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace tolvera;
using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

namespace {

// The recognised part of a recording: loud somewhere at the frequency.
bool holds(std::span<const float> samples, double frequency) {
  constexpr std::size_t window = 3200;
  for (std::size_t at = 0; at + window <= samples.size(); at += window / 4) {
    if (test::amplitudeAt(frequency, test::Recording::rate, samples.subspan(at, window)) > 0.1) return true;
  }
  return false;
}

struct Totals {
  int played = 0;
  int cut = 0;
  int paused = 0;
  int tapped = 0;
  int outputs = 0;
  int late = 0;
  int missing = 0;
};

// A program that plays, pauses, which leaves its stream where it is, and plays on.
int playPausing(double frequency) {
  adapters::PipeWireAudioSystem audio;
  boost::asio::io_context context;
  const SystemClock clock(context.get_executor());
  DubPlayer player(audio.playback(), clock);
  player.start();
  std::vector<float> tone(static_cast<std::size_t>(DubPlayer::sampleRate * 0.8));
  for (std::size_t i = 0; i < tone.size(); ++i) {
    const double phase = 2 * std::numbers::pi * frequency * static_cast<double>(i) / DubPlayer::sampleRate;
    tone[i] = static_cast<float>(0.3 * std::sin(phase));
  }
  player.play(tone);
  std::this_thread::sleep_for(4s);
  player.play(tone);
  std::this_thread::sleep_for(900ms);
  return 0;
}

class Soak {
 public:
  explicit Soak(unsigned seed) : random_(seed) {
    graph_.startPulse();
    graph_.createSink("second");
    graph_.createSink("first");
    graph_.setDefaultSink("first");
    everything_.start(recording_.sink());
  }

  // Throws std::runtime_error if the sound server or its session manager ends by itself.
  void run(std::chrono::seconds duration) {
    const auto end = SteadyClock::now() + duration;
    while (SteadyClock::now() < end) {
      for (Application& application : applications_) step(application);
      try {
        if (chance(1.0 / 60)) changeOutput();
      } catch (const std::runtime_error& error) { // the session manager may be late; the tones count
        ++totals_.late;
        std::printf("%s\n", error.what());
      }
      graph_.checkServers(); // without one of them nothing is played, and nothing proven
      std::this_thread::sleep_for(50ms);
    }
    everything_.stop();
  }
  [[nodiscard]] const Totals& totals() const { return totals_; }

 private:
  struct Application {
    bool pulse = false;
    std::optional<test::ChildProcess> process;
    pid_t pid = 0;
    double frequency = 0;
    std::size_t from = 0; // in the recording of everything
    bool pauses = false;
    std::unique_ptr<test::Recording> recording; // of its own tap
    std::unique_ptr<CoreAudioTapBackend> tap;
  };

  static Application pulseApplication() {
    Application application;
    application.pulse = true;
    return application;
  }
  bool chance(double share) { return std::uniform_real_distribution<>()(random_) < share; }

  void step(Application& application) {
    if (!application.process) {
      if (chance(0.3)) start(application);
      return;
    }
    if (!application.process->running()) {
      finish(application);
    } else if (chance(0.01)) { // cut short: nothing is expected of it
      ++totals_.cut;
      end(application);
    } else if (!application.tap && chance(0.3)) {
      tap(application);
    }
  }

  void start(Application& application) {
    frequency_ = frequency_ > 6500 ? 300 : frequency_ + 70;
    application.frequency = frequency_;
    application.from = recording_.samples().size();
    application.pauses = !application.pulse && chance(0.4);
    if (application.pauses) {
      application.process.emplace(
          std::vector<std::string>{"/proc/self/exe", "--pausing", std::to_string(frequency_)});
    } else {
      const std::string file = graph_.tone(frequency_, 0.3, chance(0.5) ? 1.5 : 3);
      application.process = application.pulse ? graph_.pulseApplication(file) : graph_.application(file);
    }
    application.pid = application.process->pid();
  }

  // Only early enough for the tap to hear the tone; the server lists a process as soon as it plays.
  void tap(Application& application) {
    const auto object = AudioProcesses::object(audio_.audioHardware(), application.pid);
    if (!object) return;
    application.recording = std::make_unique<test::Recording>();
    application.tap = std::make_unique<CoreAudioTapBackend>(audio_.audioHardware(), audio_, clock_,
                                                            CoreAudioTapBackend::Processes{{*object}});
    application.tap->start(application.recording->sink());
    ++totals_.tapped;
  }

  void finish(Application& application) {
    ++totals_.played;
    std::this_thread::sleep_for(100ms);
    const auto all = recording_.samples();
    check(holds(std::span(all).subspan(application.from), application.frequency), application, "everything");
    if (application.pauses) {
      ++totals_.paused;
      constexpr std::size_t after = 16000; // of the sound after the pause
      check(holds(std::span(all).last(std::min(all.size(), after)), application.frequency), application,
            "everything, after a pause");
    }
    if (application.tap) {
      const auto own = application.recording->samples();
      // A tap that came with the last moments of the tone has nothing to show.
      if (own.size() > 8000) check(holds(own, application.frequency), application, "its process");
    }
    end(application);
  }

  void check(bool held, const Application& application, const char* tap) {
    if (held) return;
    ++totals_.missing;
    std::printf("missing: %.0f Hz %s in the tap on %s\n", application.frequency,
                application.pulse ? "of PulseAudio" : "native", tap);
  }

  static void end(Application& application) {
    application.tap.reset();
    application.process.reset();
  }

  void changeOutput() {
    ++totals_.outputs;
    const bool third = graph_.hasNode("third");
    if (third && chance(0.5)) return graph_.destroyNode("third");
    if (!third && chance(0.5)) graph_.createSink("third");
    graph_.setDefaultSink(graph_.hasNode("third") && chance(0.5) ? "third"
                          : chance(0.5)                          ? "first"
                                                                 : "second");
  }

  std::mt19937 random_;
  test::PrivateGraph graph_;
  adapters::PipeWireAudioSystem audio_;
  boost::asio::io_context context_;
  SystemClock clock_{context_.get_executor()};
  test::Recording recording_;
  CoreAudioTapBackend everything_{audio_.audioHardware(), audio_, clock_,
                                  CoreAudioTapBackend::EverythingExceptSelf{}};
  std::array<Application, 2> applications_{Application{}, pulseApplication()};
  double frequency_ = 300;
  Totals totals_;
};

} // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "--pausing") == 0) return playPausing(std::atof(argv[2]));
  const long seconds = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 60;
  const unsigned long seed = argc > 2 ? std::strtoul(argv[2], nullptr, 10) : 1;
  if (seconds < 1 || seconds > 3600) {
    std::fputs("between 1 and 3600 seconds\n", stderr);
    return 2;
  }
  Soak soak(static_cast<unsigned>(seed));
  bool ended = false;
  try {
    soak.run(std::chrono::seconds(seconds));
  } catch (const std::runtime_error& error) {
    std::printf("%s\n", error.what());
    ended = true;
  }
  const Totals totals = soak.totals();
  std::printf("%d tones played, %d cut short, %d pauses, %d taps on a process, %d changes of output (%d "
              "late): %d missing\n",
              totals.played, totals.cut, totals.paused, totals.tapped, totals.outputs, totals.late,
              totals.missing);
  return !ended && totals.missing == 0 && totals.played > 0 ? 0 : 1;
}
