#include "TolveraCore/CoreAudioTapBackend.h"

#include "Fakes/InMemoryAudio.h"
#include "Fakes/InMemoryAudioHardware.h"
#include "Harness/TestLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <thread>

namespace tolvera {

namespace {

using namespace std::chrono_literals;
using platform::AudioBuffer;
using platform::fourCharacterCode;
using platform::TapDescription;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

using Backend = CoreAudioTapBackend;
using Hardware = test::InMemoryAudioHardware;
using Audio = test::InMemoryAudio;
using Calls = std::vector<std::string>;

const std::string uuidPattern = "[0-9a-fA-F]+-[0-9a-fA-F]+-[0-9a-fA-F]+-[0-9a-fA-F]+-[0-9a-fA-F]+";
const Calls release = {"stopDevice", "destroyIOProc", "destroyAggregateDevice", "destroyProcessTap"};

class CoreAudioTapBackendTest : public ::testing::Test {
 protected:
  void make(Backend::Source source = Backend::Processes{{7, 8}}) {
    backend = std::make_unique<Backend>(hardware, audio, clock, std::move(source));
  }
  void start() {
    if (!backend) make();
    backend->start([this](const SampleBlock& block) { blocks.push_back(block); });
  }
  void expectBlocks(std::size_t count) {
    hardware.deliver(std::vector<float>(96));
    EXPECT_EQ(blocks.size(), count);
  }
  void expectNothingLeft() {
    EXPECT_EQ(hardware.taps(), 0U);
    EXPECT_EQ(hardware.aggregates(), 0U);
    EXPECT_EQ(hardware.ioProcs(), 0U);
    EXPECT_EQ(audio.converters, 0);
  }

  test::InMemoryAudioHardware hardware;
  test::InMemoryAudio audio;
  test::VirtualClock clock;
  std::vector<SampleBlock> blocks;
  std::unique_ptr<Backend> backend;
};

TEST_F(CoreAudioTapBackendTest, TapsTheListedProcessesAloneIntoAPrivateDeviceAndLeavesThemAudible) {
  make();
  EXPECT_THAT(hardware.calls, IsEmpty());
  start();
  const TapDescription& tap = *hardware.lastTap;
  EXPECT_EQ(tap.kind, TapDescription::Kind::monoMixdownOfProcesses);
  EXPECT_THAT(tap.processes, ElementsAre(7, 8));
  EXPECT_EQ(tap.name, "Tolvera Tap");
  EXPECT_THAT(tap.uuid, MatchesRegex(uuidPattern));
  EXPECT_TRUE(tap.isPrivate);
  EXPECT_EQ(tap.muteBehavior, TapDescription::MuteBehavior::unmuted);

  const platform::AggregateDescription& device = *hardware.lastAggregate;
  EXPECT_EQ(device.name, "Tolvera Capture");
  EXPECT_THAT(device.uid, MatchesRegex("com.merisol.tolvera.aggregate." + uuidPattern));
  EXPECT_TRUE(device.isPrivate && device.tapAutoStart);
  EXPECT_FALSE(device.isStacked);
  EXPECT_THAT(device.subdevices, IsEmpty());
  ASSERT_EQ(device.taps.size(), 1U);
  EXPECT_EQ(device.taps[0].uid, tap.uuid);
  EXPECT_TRUE(device.taps[0].drift);
}

TEST_F(CoreAudioTapBackendTest, EverythingExceptSelfExcludesThisProgramOnceItHasAProcessObject) {
  hardware.addProcess(5);
  make(Backend::EverythingExceptSelf{});
  start();
  EXPECT_EQ(hardware.lastTap->kind, TapDescription::Kind::monoGlobalTapButExcludeProcesses);
  EXPECT_THAT(hardware.lastTap->processes, IsEmpty());
  backend->stop();

  const auto own = hardware.addProcess(hardware.ownPID);
  start();
  EXPECT_THAT(hardware.lastTap->processes, ElementsAre(own));
}

TEST_F(CoreAudioTapBackendTest, EachCaptureHasItsOwnTapDeviceAndCallbackUntilItIsStopped) {
  start();
  const auto tap = hardware.lastTap->uuid;
  const auto device = hardware.lastAggregate->uid;
  hardware.calls.clear();
  backend->start([](const SampleBlock&) { FAIL() << "a second callback while it runs"; });
  EXPECT_THAT(hardware.calls, IsEmpty());
  expectBlocks(1);

  backend->stop();
  std::size_t samples = 0;
  backend->start([&samples](const SampleBlock& block) { samples += block.size(); });
  EXPECT_NE(hardware.lastTap->uuid, tap);
  EXPECT_NE(hardware.lastAggregate->uid, device);
  hardware.deliver(std::vector<float>(960));
  EXPECT_EQ(samples, 160U);
}

TEST_F(CoreAudioTapBackendTest, StopReleasesInOrderAndOnceWhateverTheReleaseReports) {
  for (const platform::OSStatus reported : {0, -50}) {
    start();
    for (const auto& call : release) {
      if (reported != 0) hardware.failures[call] = reported;
    }
    hardware.calls.clear();
    backend->stop();
    EXPECT_EQ(hardware.calls, release);
    expectNothingLeft();
    EXPECT_FALSE(hardware.deliver({1.0F, 1.0F}));
    backend->stop();
    EXPECT_EQ(hardware.calls, release);
  }
}

TEST_F(CoreAudioTapBackendTest, MixesTheChannelsOfEachWholeFrameOfTheFirstBuffer) {
  const std::tuple<std::uint32_t, std::vector<float>, SampleBlock> mixes[] = {
      {2, {1.0F, 0.0F, 0.5F, -0.5F, 0.25F, 0.75F}, {0.5F, 0.0F, 0.5F}},
      {3, {0.3F, 0.3F, 0.3F, 1.0F, 2.0F, 3.0F, 9.0F, 9.0F}, {(0.3F + 0.3F + 0.3F) / 3, 2.0F}},
      {0, {0.1F, 0.2F}, {0.1F, 0.2F}}};
  hardware.streamFormat.sampleRate = 16'000; // the converter gives what it gets, so that the mix shows
  for (const auto& [channels, sound, mixed] : mixes) {
    hardware.streamFormat.channelsPerFrame = channels;
    start();
    const AudioBuffer first{sound.data(), static_cast<std::uint32_t>(sound.size() * sizeof(float))};
    hardware.deliver(std::array{first, first});
    backend->stop();
    EXPECT_EQ(blocks.back(), mixed) << channels;
  }
}

TEST_F(CoreAudioTapBackendTest, ResamplesOnFromBlockToBlockAndDropsWhatCannotBeConverted) {
  hardware.streamFormat.channelsPerFrame = 1;
  start();
  EXPECT_THAT(audio.calls, ElementsAre("converter 48000/1"));
  hardware.deliver(std::vector<float>(512));
  hardware.deliver(std::vector<float>(512));
  EXPECT_THAT(audio.capacities, ElementsAre(186, 186));
  ASSERT_EQ(blocks.size(), 2U);
  EXPECT_EQ(blocks[0].size() + blocks[1].size(), 342U); // of 1,024 frames every third, the first included
  audio.conversion = Audio::Conversion::failing;
  expectBlocks(2);
  audio.conversion = Audio::Conversion::silent;
  expectBlocks(2);
  audio.conversion = Audio::Conversion::working;
  expectBlocks(3);
  EXPECT_EQ(audio.converters, 1);

  backend->stop();
  hardware.streamFormat.sampleRate = 1e-9; // a capacity beyond any number
  start();
  expectBlocks(3);
}

TEST_F(CoreAudioTapBackendTest, EveryCallbackCountsButOnlySoundIsPassedOn) {
  start();
  EXPECT_EQ(backend->lastCallback(), distantPast);
  const float sample = 1.0F;
  const AudioBuffer lessThanAFrame{&sample, sizeof sample};
  const AudioBuffer noData{nullptr, 64};
  const AudioBuffer noBytes{&sample, 0};
  for (const auto& inputs : {std::vector{lessThanAFrame}, {noData}, {noBytes}, {}}) {
    clock.moveTo(clock.now() + 1s);
    hardware.deliver(inputs);
    EXPECT_EQ(backend->lastCallback(), clock.now());
  }
  EXPECT_THAT(blocks, IsEmpty());

  const auto last = backend->lastCallback();
  clock.moveTo(clock.now() + 1s);
  backend->stop();
  EXPECT_EQ(backend->lastCallback(), last);
}

struct FailureCase {
  const char* step;
  platform::OSStatus status;
  std::ptrdiff_t released; // of what a stop releases, from the end
  std::function<void(Hardware&, Audio&)> breakIt;
};

const FailureCase failureCases[] = {
    {"创建 tap", 560947818, 0, [](auto& hw, auto&) { hw.failures["createProcessTap"] = 560947818; }},
    {"读取 tap UID", 0, 1, [](auto& hw, auto&) { hw.readFailures[fourCharacterCode("tuid")] = -5; }},
    {"创建聚合设备", -66, 1, [](auto& hw, auto&) { hw.failures["createAggregateDevice"] = -66; }},
    {"读取流格式", -7, 2, [](auto& hw, auto&) { hw.readFailures[fourCharacterCode("sfmt")] = -7; }},
    {"采集格式不是 Float32（实际 32 位）", 0, 2, [](auto& hw, auto&) { hw.streamFormat.formatFlags = 4; }},
    {"采集格式不是 Float32（实际 64 位）", 0, 2,
     [](auto& hw, auto&) { hw.streamFormat.bitsPerChannel = 64; }},
    {"创建重采样器", 0, 2, [](auto& hw, auto&) { hw.streamFormat.sampleRate = 0; }},
    {"创建重采样器", 0, 2, [](auto&, auto& audio) { audio.conversion = Audio::Conversion::absent; }},
    {"创建 IOProc", 1, 2, [](auto& hw, auto&) { hw.failures["createIOProc"] = 1; }},
    {"启动采集", 2, 4, [](auto& hw, auto&) { hw.failures["startDevice"] = 2; }}};

TEST_F(CoreAudioTapBackendTest, AFailureNamesItsStepLeavesNothingBehindAndTheNextStartWorks) {
  for (const auto& [step, status, released, breakIt] : failureCases) {
    SCOPED_TRACE(step);
    breakIt(hardware, audio);
    hardware.calls.clear();
    try {
      start();
      ADD_FAILURE() << "started";
    } catch (const Backend::Failure& error) {
      const std::string code = "失败（OSStatus " + std::to_string(status) + "）";
      EXPECT_EQ(error.step(), step);
      EXPECT_EQ(error.status(), status);
      EXPECT_EQ(error.errorDescription(), status == 0 ? step : step + code);
      EXPECT_EQ(std::string(error.what()), error.errorDescription());
    }
    expectNothingLeft();
    backend->stop(); // nothing is left to release
    const auto undone =
        std::find_first_of(hardware.calls.begin(), hardware.calls.end(), release.begin(), release.end());
    EXPECT_EQ(Calls(undone, hardware.calls.end()), Calls(release.end() - released, release.end()));

    hardware.failures.clear();
    hardware.readFailures.clear();
    hardware.streamFormat = Hardware().streamFormat;
    audio.conversion = Audio::Conversion::working;
    blocks.clear();
    start();
    expectBlocks(1);
    backend->stop();
  }
}

TEST_F(CoreAudioTapBackendTest, NoCallbackRunsOnceStopHasReturnedWhileSoundKeepsComing) {
  make();
  std::atomic<bool> stopped = false;
  std::atomic<int> received = 0;
  const auto held = std::make_shared<int>();
  std::jthread server([this](const std::stop_token& end) {
    while (!end.stop_requested()) {
      hardware.deliver(std::vector<float>(960));
      std::this_thread::yield();
    }
  });
  for (int run = 0; run < 50; ++run) {
    received = 0;
    stopped = false;
    backend->start([&, held](const SampleBlock&) {
      EXPECT_FALSE(stopped);
      ++received;
    });
    while (received < 3) {
      EXPECT_LE(backend->lastCallback(), clock.now()); // a whole value at any moment
      std::this_thread::yield();
    }
    if (run == 49)
      backend.reset(); // its end is a stop
    else
      backend->stop();
    stopped = true;
    EXPECT_EQ(held.use_count(), 1);
  }
  expectNothingLeft();
}

} // namespace

} // namespace tolvera
