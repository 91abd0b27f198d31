#pragma once

#include "Async/SystemClock.h"
#include "Platform/Linux/PipeWireAudioSystem.h"
#include "TolveraCore/AudioProcesses.h"
#include "TolveraCore/AudioProperty.h"
#include "TolveraCore/CoreAudioTapBackend.h"
#include "TolveraCore/DubPlayer.h"

#include "Support/PrivateGraph.h"
#include "Support/Recording.h"

#include <boost/asio/io_context.hpp>
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <string>
#include <vector>

namespace tolvera::test {

// What an output plays, as another program hears it: its left channel.
class Monitor {
 public:
  Monitor(const PrivateGraph& graph, const std::string& sink)
      : file_(graph.directory() + "/monitor-" + sink + ".raw"),
        recorder_({"pw-record", "-P", "{ stream.capture.sink=true }", "--target", sink, "--rate", "16000",
                   "--channels", "2", "--format", "f32", file_}) {
    EXPECT_TRUE(eventually([this] { return !samples().empty(); }));
  }
  ~Monitor() {
    recorder_.kill();
    std::filesystem::remove(file_);
  }
  Monitor(const Monitor&) = delete;
  Monitor& operator=(const Monitor&) = delete;

  [[nodiscard]] std::vector<float> samples() const {
    std::ifstream stream(file_, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(stream)), {});
    std::vector<float> samples(bytes.size() / (2 * sizeof(float)));
    for (std::size_t i = 0; i < samples.size(); ++i) {
      std::memcpy(&samples[i], bytes.data() + i * 2 * sizeof(float), sizeof(float));
    }
    return samples;
  }
  // In the last 200 ms.
  [[nodiscard]] double level(double frequency) const {
    const auto all = samples();
    return all.size() < 3200 ? 0 : amplitudeAt(frequency, Recording::rate, std::span(all).last(3200));
  }

 private:
  std::string file_;
  ChildProcess recorder_;
};

// A private sound server with an output, and the audio system under test.
class AudioGraphTest : public testing::Test {
 protected:
  AudioGraphTest() { addSink("speaker"); }
  void TearDown() override { EXPECT_NO_THROW(graph_.checkServers()); }

  void addSink(const std::string& name) {
    graph_.createSink(name);
    graph_.setDefaultSink(name);
  }
  void restartServer() {
    graph_.killServer();
    graph_.startServer();
    addSink("speaker");
  }
  platform::AudioHardware& hardware() { return system_.audioHardware(); }
  ChildProcess play(double frequency, double seconds = 60) {
    return graph_.application(graph_.tone(frequency, 0.4, seconds));
  }
  std::optional<platform::AudioObjectID> object(const ChildProcess& process) {
    return AudioProcesses::object(hardware(), process.pid());
  }
  // The process object of a program, as soon as it plays.
  platform::AudioObjectID playing(const ChildProcess& process) {
    std::optional<platform::AudioObjectID> found;
    EXPECT_TRUE(eventually([this, &process, &found] {
      found = object(process);
      return found &&
             audioProperty<std::uint32_t>(hardware(), *found, platform::fourCharacterCode("piro")) == 1U;
    }));
    return found.value_or(platform::noAudioObject);
  }
  CoreAudioTapBackend tap(const CoreAudioTapBackend::Source& source) {
    return CoreAudioTapBackend(hardware(), system_, clock_, source);
  }
  static CoreAudioTapBackend::Source processes(std::vector<platform::AudioObjectID> objects) {
    return CoreAudioTapBackend::Processes{std::move(objects)};
  }
  static CoreAudioTapBackend::Source everything() { return CoreAudioTapBackend::EverythingExceptSelf{}; }
  bool hears(double frequency) {
    return eventually([this, frequency] { return recording_.hears(frequency, 0.2); });
  }
  std::vector<float> listen(double seconds) {
    recording_.clear();
    EXPECT_TRUE(eventually([this, seconds] { return recording_.seconds() >= seconds; }));
    return recording_.samples();
  }
  static std::vector<float> sine(double frequency, double amplitude, double seconds) {
    std::vector<float> samples(static_cast<std::size_t>(seconds * DubPlayer::sampleRate));
    for (std::size_t i = 0; i < samples.size(); ++i) {
      const double phase = 2 * std::numbers::pi * frequency * static_cast<double>(i) / DubPlayer::sampleRate;
      samples[i] = static_cast<float>(amplitude * std::sin(phase));
    }
    return samples;
  }

  PrivateGraph graph_;
  std::atomic<int> outputChanges_{0};
  adapters::PipeWireAudioSystem system_{
      [](std::int32_t pid) -> std::optional<std::string> { return "test." + std::to_string(pid); },
      [this] { ++outputChanges_; }};
  boost::asio::io_context context_;
  SystemClock clock_{context_.get_executor()};
  Recording recording_;
};

} // namespace tolvera::test
