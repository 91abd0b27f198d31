#include "TolveraCore/CoreAudioTapBackend.h"

#include "Fakes/InMemoryAudio.h"
#include "Fakes/InMemoryAudioHardware.h"
#include "Harness/TestLoop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
using testing::ElementsAre;
using testing::IsEmpty;
using Backend = CoreAudioTapBackend;

class TapBackend : public testing::Test {
 protected:
  void start(Backend::Source source = Backend::Processes{{7, 8}}) {
    backend = std::make_unique<Backend>(hardware, audio, clock, std::move(source));
    restart();
  }
  void restart() {
    backend->start([this](const auto& block) { blocks.emplace_back(block.begin(), block.end()); });
  }
  void expectBlocks(std::size_t count) {
    hardware.deliver(std::vector<float>(96));
    EXPECT_EQ(blocks.size(), count);
  }
  void expectNothingLeft() {
    EXPECT_EQ(hardware.taps() + hardware.aggregates() + hardware.ioProcs(), 0U);
    EXPECT_EQ(audio.converters, 0);
  }

  test::InMemoryAudioHardware hardware;
  test::InMemoryAudio audio;
  test::VirtualClock clock;
  std::vector<std::vector<float>> blocks;
  std::unique_ptr<Backend> backend;
};

TEST_F(TapBackend, TapsListedProcessesPrivately) {
  start();
  const auto tap = *hardware.lastTap;
  EXPECT_EQ(tap.kind, TapDescription::Kind::monoMixdownOfProcesses);
  EXPECT_THAT(tap.processes, ElementsAre(7, 8));
  EXPECT_TRUE(tap.isPrivate);
  const auto device = *hardware.lastAggregate;
  EXPECT_THAT(device.uid, testing::StartsWith("com.merisol.tolvera.aggregate."));
  EXPECT_TRUE(device.isPrivate && device.tapAutoStart);
  EXPECT_THAT(device.subdevices, IsEmpty());
  EXPECT_EQ(device.taps.at(0).uid, tap.uuid);
  backend->start([](const auto&) { FAIL() << "a second callback while it runs"; });
  expectBlocks(1);

  backend->stop();
  restart();
  EXPECT_NE(hardware.lastTap->uuid, tap.uuid);
  EXPECT_NE(hardware.lastAggregate->uid, device.uid);
}

TEST_F(TapBackend, ExcludesThisProgramFromEverything) {
  hardware.addProcess(5);
  start(Backend::EverythingExceptSelf{});
  EXPECT_EQ(hardware.lastTap->kind, TapDescription::Kind::monoGlobalTapButExcludeProcesses);
  EXPECT_THAT(hardware.lastTap->processes, IsEmpty());
  backend->stop();
  const auto own = hardware.addProcess(hardware.ownPID);
  restart();
  EXPECT_THAT(hardware.lastTap->processes, ElementsAre(own));
}

TEST_F(TapBackend, ReleasesEverythingDespiteErrors) {
  for (const platform::OSStatus reported : {0, -50}) {
    start();
    for (const auto* step : {"stopDevice", "destroyIOProc", "destroyAggregateDevice", "destroyProcessTap"})
      hardware.failures[step] = reported;
    backend->stop();
    expectNothingLeft();
    EXPECT_FALSE(hardware.deliver({1.0F, 1.0F}));
    backend->stop();
  }
}

TEST_F(TapBackend, MixesChannelsOfFirstBuffer) {
  const std::tuple<std::uint32_t, std::vector<float>, std::vector<float>> mixes[] = {
      {2, {1.0F, 0.0F, 0.5F, -0.5F, 0.25F, 0.75F}, {0.5F, 0.0F, 0.5F}},
      {3, {0.3F, 0.3F, 0.3F, 1.0F, 2.0F, 3.0F, 9.0F, 9.0F}, {(0.3F + 0.3F + 0.3F) / 3, 2.0F}},
      {1, {0.1F, 0.2F}, {0.1F, 0.2F}},
      {0, {0.1F, 0.2F}, {0.1F, 0.2F}}};
  hardware.streamFormat.sampleRate = 16'000; // the converter gives what it gets, so that the mix shows
  for (const auto& [channels, sound, mixed] : mixes) {
    hardware.streamFormat.channelsPerFrame = channels;
    start();
    const AudioBuffer first{sound.data(), static_cast<std::uint32_t>(sound.size() * sizeof(float))};
    hardware.deliver(std::array{first, first});
    EXPECT_EQ(blocks.back(), mixed) << channels;
  }
}

TEST_F(TapBackend, DropsBlocksThatCannotBeConverted) {
  hardware.streamFormat.channelsPerFrame = 1;
  start();
  hardware.deliver(std::vector<float>(512));
  hardware.deliver(std::vector<float>(512));
  ASSERT_EQ(blocks.size(), 2U);
  EXPECT_EQ(blocks[0].size() + blocks[1].size(), 342U) << "the converter goes on from block to block";
  for (const auto conversion :
       {test::InMemoryAudio::Conversion::failing, test::InMemoryAudio::Conversion::silent}) {
    audio.conversion = conversion;
    expectBlocks(2);
  }
  audio.conversion = test::InMemoryAudio::Conversion::working;
  expectBlocks(3);
  EXPECT_EQ(audio.convertersMade, 1);
  hardware.streamFormat.sampleRate = 1e-9; // a capacity beyond any number
  start();
  expectBlocks(3);
}

TEST_F(TapBackend, CountsCallbacksWithoutSound) {
  start();
  EXPECT_EQ(backend->lastCallback(), distantPast);
  const float sample = 1.0F;
  for (const auto& input : {AudioBuffer{&sample, sizeof sample}, {nullptr, 64}, {&sample, 0}}) {
    clock.moveTo(clock.now() + 1s);
    hardware.deliver(std::span(&input, 1));
    EXPECT_EQ(backend->lastCallback(), clock.now());
  }
  clock.moveTo(clock.now() + 1s);
  hardware.deliver(std::span<const AudioBuffer>());
  EXPECT_EQ(backend->lastCallback(), clock.now());
  EXPECT_THAT(blocks, IsEmpty());
}

TEST_F(TapBackend, NamesFailedStep) {
  using Hardware = test::InMemoryAudioHardware;
  using Audio = test::InMemoryAudio;
  const std::tuple<std::string, platform::OSStatus, std::function<void(Hardware&, Audio&)>> failures[] = {
      {"创建 tap", 560947818, [](auto& hw, auto&) { hw.failures["createProcessTap"] = 560947818; }},
      {"读取 tap UID", 0, [](auto& hw, auto&) { hw.readFailures[fourCharacterCode("tuid")] = -5; }},
      {"创建聚合设备", -66, [](auto& hw, auto&) { hw.failures["createAggregateDevice"] = -66; }},
      {"读取流格式", -7, [](auto& hw, auto&) { hw.readFailures[fourCharacterCode("sfmt")] = -7; }},
      {"采集格式不是 Float32（实际 32 位）", 0, [](auto& hw, auto&) { hw.streamFormat.formatFlags = 4; }},
      {"采集格式不是 Float32（实际 64 位）", 0, [](auto& hw, auto&) { hw.streamFormat.bitsPerChannel = 64; }},
      {"创建重采样器", 0, [](auto& hw, auto&) { hw.streamFormat.sampleRate = 0; }},
      {"创建重采样器", 0, [](auto&, auto& audio) { audio.conversion = Audio::Conversion::absent; }},
      {"创建 IOProc", 1, [](auto& hw, auto&) { hw.failures["createIOProc"] = 1; }},
      {"启动采集", 2, [](auto& hw, auto&) { hw.failures["startDevice"] = 2; }}};
  for (const auto& [step, status, breakIt] : failures) {
    breakIt(hardware, audio);
    try {
      start();
      ADD_FAILURE() << "started in spite of " << step;
    } catch (const Backend::Failure& error) {
      EXPECT_EQ(error.step(), step);
      EXPECT_EQ(error.status(), status);
      EXPECT_EQ(error.errorDescription(),
                status == 0 ? step : step + "失败（OSStatus " + std::to_string(status) + "）");
    }
    expectNothingLeft();
    hardware.failures.clear();
    hardware.readFailures.clear();
    hardware.streamFormat = Hardware().streamFormat;
    audio.conversion = Audio::Conversion::working;
    blocks.clear();
    restart();
    expectBlocks(1);
  }
}

TEST_F(TapBackend, RunsNoCallbackAfterStop) {
  backend = std::make_unique<Backend>(hardware, audio, clock, Backend::Processes{{7}});
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
    backend->start([&, held](const auto&) {
      EXPECT_FALSE(stopped);
      ++received;
    });
    while (received < 3) std::this_thread::yield();
    run == 49 ? backend.reset() : backend->stop();
    stopped = true;
    EXPECT_EQ(held.use_count(), 1);
  }
  expectNothingLeft();
}

} // namespace
} // namespace tolvera
