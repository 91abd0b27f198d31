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
using Backend = CoreAudioTapBackend;
using Conversion = test::InMemoryAudio::Conversion;
namespace selectors = platform::selectors;

class TapBackend : public testing::Test {
 protected:
  void start() {
    backend = std::make_unique<Backend>(hardware, audio, clock, Backend::Processes{{7, 8}});
    backend->start([this](const auto& block) { blocks.emplace_back(block.begin(), block.end()); });
  }
  void expectBlocks(std::size_t count) {
    hardware.deliver(std::vector<float>(96));
    EXPECT_EQ(blocks.size(), count);
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
  EXPECT_EQ(tap.kind, platform::TapDescription::Kind::monoMixdownOfProcesses);
  EXPECT_THAT(tap.processes, testing::ElementsAre(7, 8));
  const auto device = *hardware.lastAggregate;
  EXPECT_THAT(device.uid, testing::StartsWith("com.merisol.tolvera.aggregate."));
  EXPECT_TRUE(tap.isPrivate && device.isPrivate && device.tapAutoStart);
  EXPECT_TRUE(device.subdevices.empty());
  backend->start([](const auto&) { FAIL() << "a second callback while it runs"; });
  expectBlocks(1);
  start();
  EXPECT_NE(hardware.lastTap->uuid, tap.uuid);
  EXPECT_NE(hardware.lastAggregate->uid, device.uid);
}

TEST_F(TapBackend, ReleasesEverythingDespiteErrors) {
  for (const platform::OSStatus reported : {0, -50}) {
    start();
    for (const auto* step : {"stopDevice", "destroyIOProc", "destroyAggregateDevice", "destroyProcessTap"})
      hardware.failures[step] = reported;
    backend->stop();
    EXPECT_EQ(hardware.made + audio.converters, 0);
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
  EXPECT_EQ(backend->lastCallback(), distantPast);
  hardware.deliver(std::vector<float>(512));
  hardware.deliver(std::vector<float>(512));
  ASSERT_EQ(blocks.size(), 2U);
  EXPECT_EQ(blocks[0].size() + blocks[1].size(), 342U) << "the converter goes on from block to block";
  clock.moveTo(clock.now() + 1s);
  hardware.deliver({1.0F}); // too little for a sample
  hardware.deliver(std::span<const AudioBuffer>());
  hardware.deliver(std::array{AudioBuffer{nullptr, 64}});
  audio.conversion = Conversion::failing;
  expectBlocks(2);
  EXPECT_EQ(backend->lastCallback(), clock.now());
  audio.conversion = Conversion::working;
  expectBlocks(3);
  hardware.streamFormat.sampleRate = 1e-9; // a capacity beyond any number
  start();
  expectBlocks(3);
}

TEST_F(TapBackend, NamesFailedStep) {
  using Hardware = test::InMemoryAudioHardware;
  const std::pair<const char*, std::function<void(Hardware&)>> failures[] = {
      {"创建 tap失败（OSStatus 560947818）", [](auto& hw) { hw.failures["createProcessTap"] = 560947818; }},
      {"读取 tap UID", [](auto& hw) { hw.readFailures[selectors::tapUID] = -5; }},
      {"创建聚合设备失败（OSStatus -66）", [](auto& hw) { hw.failures["createAggregateDevice"] = -66; }},
      {"读取流格式失败（OSStatus -7）", [](auto& hw) { hw.readFailures[selectors::streamFormat] = -7; }},
      {"采集格式不是 Float32（实际 32 位）", [](auto& hw) { hw.streamFormat.formatFlags = 4; }},
      {"采集格式不是 Float32（实际 64 位）", [](auto& hw) { hw.streamFormat.bitsPerChannel = 64; }},
      {"创建重采样器", [](auto& hw) { hw.streamFormat.sampleRate = 0; }},
      {"创建重采样器", [this](auto&) { audio.conversion = Conversion::absent; }},
      {"创建 IOProc失败（OSStatus 1）", [](auto& hw) { hw.failures["createIOProc"] = 1; }},
      {"启动采集失败（OSStatus 2）", [](auto& hw) { hw.failures["startDevice"] = 2; }}};
  for (const auto& [description, breakIt] : failures) {
    breakIt(hardware);
    try {
      start();
      ADD_FAILURE() << "started in spite of " << description;
    } catch (const Backend::Failure& error) {
      EXPECT_EQ(error.errorDescription(), description);
    }
    EXPECT_EQ(hardware.made + audio.converters, 0);
    hardware.failures.clear();
    hardware.readFailures.clear();
    hardware.streamFormat = Hardware().streamFormat;
    audio.conversion = Conversion::working;
  }
}

// The sanitizers judge this one too.
TEST_F(TapBackend, RunsNoCallbackAfterStop) {
  std::atomic<int> offers = 0;
  const std::jthread server([this, &offers](const std::stop_token& end) {
    for (; !end.stop_requested(); ++offers) hardware.deliver(std::vector<float>(960));
  });
  for (int run = 0; run < 50; ++run) {
    start();
    const int before = offers;
    while (offers < before + 3) std::this_thread::yield(); // the start came before two of them
    backend->stop();
    const auto count = blocks.size();
    std::this_thread::yield();
    EXPECT_EQ(blocks.size(), count);
    EXPECT_EQ(hardware.made, 0);
  }
  EXPECT_GE(blocks.size(), 100U);
}

} // namespace
} // namespace tolvera
