#include "TolveraCore/CoreAudioTapBackend.h"

#include "Support/InMemoryAudio.h"
#include "Support/InMemoryAudioHardware.h"
#include "Support/TestLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
using Calls = std::vector<std::string>;

constexpr auto uuidPattern = "[0-9a-fA-F]+-[0-9a-fA-F]+-[0-9a-fA-F]+-[0-9a-fA-F]+-[0-9a-fA-F]+";

class CoreAudioTapBackendTest : public ::testing::Test {
 protected:
  void make(Backend::Source source = Backend::Processes{{7, 8}}) {
    backend = std::make_unique<Backend>(hardware, audio, clock, std::move(source));
  }
  void start() {
    if (!backend) make();
    backend->start([this](const SampleBlock& block) { blocks.push_back(block); });
  }
  // At 16 kHz the converter gives what it gets, so that the mix shows.
  void startAtOutputRate(std::uint32_t channels) {
    hardware.streamFormat.sampleRate = 16'000;
    hardware.streamFormat.channelsPerFrame = channels;
    start();
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

TEST_F(CoreAudioTapBackendTest, TapsTheListedProcessesPrivatelyAndLeavesThemAudible) {
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

TEST_F(CoreAudioTapBackendTest, PutsTheTapAloneIntoAPrivateAggregateDevice) {
  start();
  const platform::AggregateDescription& device = *hardware.lastAggregate;
  EXPECT_EQ(device.name, "Tolvera Capture");
  const std::string prefix = "com.merisol.tolvera.aggregate.";
  ASSERT_EQ(device.uid.substr(0, prefix.size()), prefix);
  EXPECT_THAT(device.uid.substr(prefix.size()), MatchesRegex(uuidPattern));
  EXPECT_TRUE(device.isPrivate);
  EXPECT_FALSE(device.isStacked);
  EXPECT_TRUE(device.tapAutoStart);
  EXPECT_THAT(device.subdevices, IsEmpty());
  ASSERT_EQ(device.taps.size(), 1U);
  EXPECT_EQ(device.taps[0].uid, hardware.lastTap->uuid);
  EXPECT_TRUE(device.taps[0].drift);
}

TEST_F(CoreAudioTapBackendTest, EachCaptureHasItsOwnTapDeviceConverterAndCallback) {
  start();
  const auto tap = hardware.lastTap->uuid;
  const auto device = hardware.lastAggregate->uid;
  backend->stop();
  std::size_t samples = 0;
  backend->start([&samples](const SampleBlock& block) { samples += block.size(); });
  EXPECT_NE(hardware.lastTap->uuid, tap);
  EXPECT_NE(hardware.lastAggregate->uid, device);
  hardware.deliver(std::vector<float>(960));
  EXPECT_EQ(samples, 160U);
  EXPECT_THAT(blocks, IsEmpty());
}

TEST_F(CoreAudioTapBackendTest, StopReleasesInOrderAndOnce) {
  start();
  EXPECT_EQ(hardware.calls,
            (Calls{"createProcessTap", "createAggregateDevice", "createIOProc", "startDevice"}));
  hardware.calls.clear();
  backend->stop();
  EXPECT_EQ(hardware.calls,
            (Calls{"stopDevice", "destroyIOProc", "destroyAggregateDevice", "destroyProcessTap"}));
  expectNothingLeft();
  EXPECT_FALSE(hardware.deliver({1.0F, 1.0F}));

  hardware.calls.clear();
  backend->stop();
  EXPECT_THAT(hardware.calls, IsEmpty());
}

TEST_F(CoreAudioTapBackendTest, IgnoresWhatTheReleaseReports) {
  start();
  for (const char* call : {"stopDevice", "destroyIOProc", "destroyAggregateDevice", "destroyProcessTap"}) {
    hardware.failures[call] = -50;
  }
  backend->stop();
  expectNothingLeft();
}

TEST_F(CoreAudioTapBackendTest, ItsEndStopsTheCaptureAndDropsTheCallback) {
  make();
  const auto held = std::make_shared<int>();
  backend->start([held](const SampleBlock&) {});
  EXPECT_EQ(held.use_count(), 2);
  backend.reset();
  expectNothingLeft();
  EXPECT_EQ(held.use_count(), 1);
}

TEST_F(CoreAudioTapBackendTest, AStartWhileItRunsKeepsTheFirstCallback) {
  start();
  hardware.calls.clear();
  backend->start([](const SampleBlock&) { FAIL() << "the second callback"; });
  EXPECT_THAT(hardware.calls, IsEmpty());
  hardware.deliver(std::vector<float>(96));
  EXPECT_EQ(blocks.size(), 1U);
}

TEST_F(CoreAudioTapBackendTest, MixesTheChannelsOfEachFrame) {
  startAtOutputRate(2);
  hardware.deliver({1.0F, 0.0F, 0.5F, -0.5F, 0.25F, 0.75F});
  ASSERT_EQ(blocks.size(), 1U);
  EXPECT_THAT(blocks[0], ElementsAre(0.5F, 0.0F, 0.5F));
}

TEST_F(CoreAudioTapBackendTest, MixesThreeChannelsAndLeavesAnUnfinishedFrame) {
  startAtOutputRate(3);
  hardware.deliver({0.3F, 0.3F, 0.3F, 1.0F, 2.0F, 3.0F, 9.0F, 9.0F});
  ASSERT_EQ(blocks.size(), 1U);
  EXPECT_THAT(blocks[0], ElementsAre((0.3F + 0.3F + 0.3F) / 3, 2.0F));
}

TEST_F(CoreAudioTapBackendTest, TakesNoChannelsForOne) {
  startAtOutputRate(0);
  hardware.deliver({0.1F, 0.2F});
  ASSERT_EQ(blocks.size(), 1U);
  EXPECT_THAT(blocks[0], ElementsAre(0.1F, 0.2F));
}

TEST_F(CoreAudioTapBackendTest, ReadsTheFirstBufferOnly) {
  startAtOutputRate(1);
  const float first = 0.1F;
  const float second = 0.2F;
  const AudioBuffer buffers[] = {{&first, sizeof first}, {&second, sizeof second}};
  hardware.deliver(buffers);
  ASSERT_EQ(blocks.size(), 1U);
  EXPECT_THAT(blocks[0], ElementsAre(0.1F));
}

TEST_F(CoreAudioTapBackendTest, ResamplesOnFromBlockToBlock) {
  hardware.streamFormat.channelsPerFrame = 1;
  start();
  EXPECT_THAT(audio.calls, ElementsAre("converter 48000/1"));
  hardware.deliver(std::vector<float>(512));
  hardware.deliver(std::vector<float>(512));
  EXPECT_THAT(audio.capacities, ElementsAre(186, 186));
  ASSERT_EQ(blocks.size(), 2U);
  EXPECT_EQ(blocks[0].size() + blocks[1].size(), 342U); // of 1,024 frames every third, the first included
  EXPECT_EQ(audio.converters, 1);
}

TEST_F(CoreAudioTapBackendTest, EveryCallbackCountsButOnlySoundIsPassedOn) {
  start();
  EXPECT_EQ(backend->lastCallback(), distantPast);
  const float sample = 1.0F;
  const AudioBuffer lessThanAFrame{&sample, sizeof sample};
  const AudioBuffer noData{nullptr, 64};
  const AudioBuffer noBytes{&sample, 0};
  for (const auto& buffer : {lessThanAFrame, noData, noBytes}) {
    clock.moveTo(clock.now() + 1s);
    hardware.deliver(std::span(&buffer, 1));
    EXPECT_EQ(backend->lastCallback(), clock.now());
  }
  clock.moveTo(clock.now() + 1s);
  hardware.deliver(std::span<const AudioBuffer>());
  EXPECT_EQ(backend->lastCallback(), clock.now());
  EXPECT_THAT(blocks, IsEmpty());

  const auto last = backend->lastCallback();
  clock.moveTo(clock.now() + 1s);
  backend->stop();
  EXPECT_EQ(backend->lastCallback(), last);
}

TEST_F(CoreAudioTapBackendTest, ABlockThatCannotBeConvertedIsDroppedAndTheNextGoesOn) {
  start();
  for (const auto conversion :
       {test::InMemoryAudio::Conversion::failing, test::InMemoryAudio::Conversion::silent}) {
    audio.conversion = conversion;
    hardware.deliver(std::vector<float>(96));
  }
  EXPECT_THAT(blocks, IsEmpty());
  audio.conversion = test::InMemoryAudio::Conversion::working;
  hardware.deliver(std::vector<float>(96));
  EXPECT_EQ(blocks.size(), 1U);
}

TEST_F(CoreAudioTapBackendTest, AnAbsurdRateDropsItsBlocks) {
  hardware.streamFormat.sampleRate = 1e-9;
  start();
  hardware.deliver(std::vector<float>(96));
  EXPECT_THAT(blocks, IsEmpty());
}

struct FailureCase {
  const char* name;
  std::function<void(test::InMemoryAudioHardware&, test::InMemoryAudio&)> breakIt;
  const char* step;
  platform::OSStatus status;
  const char* description;
  Calls release; // what is undone
};

class CoreAudioTapBackendFailureTest : public CoreAudioTapBackendTest,
                                       public ::testing::WithParamInterface<FailureCase> {};

TEST_P(CoreAudioTapBackendFailureTest, NamesTheStepAndLeavesNothingBehind) {
  const FailureCase& failure = GetParam();
  failure.breakIt(hardware, audio);
  try {
    start();
    FAIL() << "started";
  } catch (const Backend::Failure& error) {
    EXPECT_EQ(error.step(), failure.step);
    EXPECT_EQ(error.status(), failure.status);
    EXPECT_EQ(error.errorDescription(), failure.description);
    EXPECT_EQ(std::string(error.what()), failure.description);
  }
  expectNothingLeft();
  const auto released = static_cast<std::ptrdiff_t>(failure.release.size());
  EXPECT_EQ(Calls(hardware.calls.end() - released, hardware.calls.end()), failure.release);

  const auto calls = hardware.calls;
  backend->stop();
  EXPECT_EQ(hardware.calls, calls);

  hardware.failures.clear();
  hardware.readFailures.clear();
  hardware.streamFormat = test::InMemoryAudioHardware().streamFormat;
  audio.conversion = test::InMemoryAudio::Conversion::working;
  start();
  hardware.deliver(std::vector<float>(96));
  EXPECT_EQ(blocks.size(), 1U);
}

using Hardware = test::InMemoryAudioHardware;
using Audio = test::InMemoryAudio;

INSTANTIATE_TEST_SUITE_P(
    Steps, CoreAudioTapBackendFailureTest,
    ::testing::Values(
        FailureCase{"Tap",
                    [](Hardware& hardware, Audio&) { hardware.failures["createProcessTap"] = 560947818; },
                    "创建 tap",
                    560947818,
                    "创建 tap失败（OSStatus 560947818）",
                    {"createProcessTap"}},
        FailureCase{"TapUID",
                    [](Hardware& hardware, Audio&) { hardware.readFailures[fourCharacterCode("tuid")] = -5; },
                    "读取 tap UID",
                    0,
                    "读取 tap UID",
                    {"createProcessTap", "destroyProcessTap"}},
        FailureCase{"Aggregate",
                    [](Hardware& hardware, Audio&) { hardware.failures["createAggregateDevice"] = -66; },
                    "创建聚合设备",
                    -66,
                    "创建聚合设备失败（OSStatus -66）",
                    {"createAggregateDevice", "destroyProcessTap"}},
        FailureCase{"StreamFormat",
                    [](Hardware& hardware, Audio&) { hardware.readFailures[fourCharacterCode("sfmt")] = -7; },
                    "读取流格式",
                    -7,
                    "读取流格式失败（OSStatus -7）",
                    {"createAggregateDevice", "destroyAggregateDevice", "destroyProcessTap"}},
        FailureCase{"NotFloat",
                    [](Hardware& hardware, Audio&) { hardware.streamFormat.formatFlags = 4; },
                    "采集格式不是 Float32（实际 32 位）",
                    0,
                    "采集格式不是 Float32（实际 32 位）",
                    {"destroyAggregateDevice", "destroyProcessTap"}},
        FailureCase{"Not32Bits",
                    [](Hardware& hardware, Audio&) { hardware.streamFormat.bitsPerChannel = 64; },
                    "采集格式不是 Float32（实际 64 位）",
                    0,
                    "采集格式不是 Float32（实际 64 位）",
                    {"destroyAggregateDevice", "destroyProcessTap"}},
        FailureCase{"NoRate",
                    [](Hardware& hardware, Audio&) { hardware.streamFormat.sampleRate = 0; },
                    "创建重采样器",
                    0,
                    "创建重采样器",
                    {"destroyAggregateDevice", "destroyProcessTap"}},
        FailureCase{"Converter",
                    [](Hardware&, Audio& audio) { audio.conversion = Audio::Conversion::absent; },
                    "创建重采样器",
                    0,
                    "创建重采样器",
                    {"destroyAggregateDevice", "destroyProcessTap"}},
        FailureCase{"IOProc",
                    [](Hardware& hardware, Audio&) { hardware.failures["createIOProc"] = 1; },
                    "创建 IOProc",
                    1,
                    "创建 IOProc失败（OSStatus 1）",
                    {"createIOProc", "destroyAggregateDevice", "destroyProcessTap"}},
        FailureCase{
            "DeviceStart",
            [](Hardware& hardware, Audio&) { hardware.failures["startDevice"] = 2; },
            "启动采集",
            2,
            "启动采集失败（OSStatus 2）",
            {"startDevice", "stopDevice", "destroyIOProc", "destroyAggregateDevice", "destroyProcessTap"}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(CoreAudioTapBackendTest, NoCallbackRunsOnceStopHasReturnedWhileSoundKeepsComing) {
  make();
  std::atomic<bool> stopped = false;
  std::atomic<bool> late = false;
  std::atomic<int> received = 0;
  std::atomic<bool> ended = false;
  std::thread server([&] {
    const std::vector<float> samples(960);
    while (!ended) {
      hardware.deliver(samples);
      std::this_thread::yield();
    }
  });
  for (int run = 0; run < 50; ++run) {
    received = 0;
    stopped = false;
    backend->start([&](const SampleBlock&) {
      if (stopped) late = true;
      ++received;
    });
    while (received < 3) {
      EXPECT_LE(backend->lastCallback(), clock.now()); // a whole value at any moment
      std::this_thread::yield();
    }
    backend->stop();
    stopped = true;
  }
  backend.reset();
  ended = true;
  server.join();
  EXPECT_FALSE(late);
  expectNothingLeft();
}

} // namespace

} // namespace tolvera
