#pragma once

#include "Async/SystemClock.h"
#include "Platform/Linux/Sound/PipeWireAudioSystem.h"
#include "Platform/PlatformError.h"
#include "TolveraCore/AudioProcesses.h"
#include "TolveraCore/AudioProperty.h"
#include "TolveraCore/AudioRoute.h"
#include "TolveraCore/CoreAudioTapBackend.h"
#include "TolveraCore/DubPlayer.h"
#include "TolveraCore/MicBackend.h"

#include "Fakes/Recording.h"
#include "Harness/PrivateGraph.h"

#include <boost/asio/io_context.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

namespace tolvera::test {

using platform::AudioObjectID;
using platform::systemAudioObject;
namespace selectors = platform::selectors;

// A private sound server with an output, and the audio system under test.
class AudioGraphTest : public testing::Test {
 protected:
  AudioGraphTest() { addSink("speaker"); }
  void TearDown() override { EXPECT_NO_THROW(graph_.checkServers()); }

  void addSink(const std::string& name, const std::string& properties = "[FL FR]") {
    graph_.createSink(name, properties);
    graph_.setDefaultSink(name);
  }
  void plugIn(const std::string& microphone, const std::string& positions = "[MONO]") {
    graph_.createSource(microphone, positions);
    graph_.setDefaultSource(microphone);
  }
  platform::AudioHardware& hardware() { return system_.audioHardware(); }
  // An application that plays to the default output.
  ChildProcess play(double frequency, const std::string& player = "pw-play") {
    return ChildProcess({player, graph_.tone(frequency, 0.4, 60)});
  }
  ChildProcess sing(double frequency, const std::string& node) {
    return graph_.play(graph_.tone(frequency, 0.4, 60), node);
  }
  // The process object of a program, as soon as it plays.
  AudioObjectID playing(std::int32_t pid) {
    std::optional<AudioObjectID> found;
    EXPECT_TRUE(eventually([this, pid, &found] {
      found = AudioProcesses::object(hardware(), pid);
      return found && audioProperty<std::uint32_t>(hardware(), *found, selectors::isRunningOutput) == 1U;
    }));
    return found.value_or(platform::noAudioObject);
  }
  CoreAudioTapBackend tapEverything() {
    return {hardware(), system_, clock_, CoreAudioTapBackend::EverythingExceptSelf{}};
  }
  CoreAudioTapBackend tap(const ChildProcess& process) {
    return {hardware(), system_, clock_, CoreAudioTapBackend::Processes{{playing(process.pid())}}};
  }
  // Records the left channel of an output as it arrives in a microphone.
  std::unique_ptr<MicBackend> overhear(const std::string& sink, Recording& recording) {
    plugIn("ear-" + sink);
    outputOf({"pw-link", sink + ":monitor_FL", "ear-" + sink + ":input_MONO"});
    auto ear = std::make_unique<MicBackend>(system_);
    ear->start(recording.sink());
    return ear;
  }
  bool hears(double frequency) {
    return eventually([this, frequency] { return recording_.hears(frequency, 0.2); });
  }
  std::vector<float> listen(double seconds) {
    recording_.clear();
    EXPECT_TRUE(eventually([this, seconds] { return recording_.seconds() >= seconds; }));
    return recording_.samples();
  }
  static auto failsWith(const char* words) {
    return testing::ThrowsMessage<platform::PlatformError>(testing::HasSubstr(words));
  }
  static std::vector<float> sine(double frequency, double seconds) {
    return test::sine(frequency, 0.4, DubPlayer::sampleRate, seconds);
  }

  PrivateGraph graph_;
  std::atomic<int> outputChanges_{0};
  platform::InterfaceLanguage language_;
  adapters::PipeWireAudioSystem system_{
      [](std::int32_t pid) -> std::optional<std::string> { return "test." + std::to_string(pid); },
      [this] { ++outputChanges_; }, adapters::SoundFailures{&language_, [] { return true; }}};
  boost::asio::io_context context_;
  SystemClock clock_{context_.get_executor()};
  Recording recording_;
};

} // namespace tolvera::test
