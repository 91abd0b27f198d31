#include "TolveraCore/MicBackend.h"

#include "Fakes/InMemoryAudio.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <numeric>

namespace tolvera {
namespace {

using platform::PlatformError;
using test::InMemoryAudio;
using testing::ElementsAre;
using testing::IsEmpty;

class Microphone : public testing::Test {
 protected:
  InMemoryAudio audio_;
  std::vector<SampleBlock> blocks_;

  AudioCaptureBackend::OnSamples collect() {
    return [this](SampleBlock block) { blocks_.push_back(std::move(block)); };
  }
  // Frame i has the value i.
  static std::vector<float> ramp(std::size_t frames) {
    std::vector<float> samples(frames);
    std::iota(samples.begin(), samples.end(), 0.0F);
    return samples;
  }
};

TEST_F(Microphone, TouchesNoDeviceBeforeStartAndThenGoesStepByStep) {
  MicBackend backend(audio_);
  backend.stop();
  EXPECT_THAT(audio_.calls, IsEmpty());
  backend.start(collect());
  EXPECT_THAT(audio_.calls, ElementsAre("format", "converter 48000/1", "tap 2048 48000/1", "start"));
  audio_.calls.clear();
  backend.stop();
  backend.stop();
  EXPECT_THAT(audio_.calls, ElementsAre("removeTap", "stop"));
  EXPECT_EQ(audio_.converters, 0);
}

TEST_F(Microphone, AStartThatFailsSaysWhyAndLeavesNothingInstalled) {
  const std::pair<PlatformError, std::function<void(InMemoryAudio&)>> failures[] = {
      {{"Tolvera", 10, "拿不到麦克风格式，检查系统设置里的麦克风权限。"},
       [](auto& audio) { audio.inputFormat = {0, 0}; }},
      {{"Tolvera", 11, "创建重采样器失败"},
       [](auto& audio) { audio.conversion = InMemoryAudio::Conversion::absent; }},
      {{"Elsewhere", -7, "busy"}, [](auto& audio) { audio.startFailure.emplace("Elsewhere", -7, "busy"); }}};
  for (const auto& [expected, breakIt] : failures) {
    InMemoryAudio audio;
    breakIt(audio);
    MicBackend backend(audio);
    try {
      backend.start(collect());
      ADD_FAILURE() << "started";
    } catch (const PlatformError& error) {
      EXPECT_EQ(error.domain(), expected.domain());
      EXPECT_EQ(error.code(), expected.code());
      EXPECT_EQ(error.localizedDescription(), expected.localizedDescription());
    }
    EXPECT_EQ(audio.taps(), 0);
    EXPECT_EQ(audio.converters, 0);
    const auto calls = audio.calls;
    backend.stop();
    EXPECT_EQ(audio.calls, calls);
  }
}

TEST_F(Microphone, ConvertsEachBlockOnItsOwnWithRoomForSixteenMoreAndDropsWhatFails) {
  MicBackend backend(audio_);
  backend.start(collect());
  audio_.deliver(ramp(4800));
  audio_.conversion = InMemoryAudio::Conversion::silent;
  audio_.deliver(ramp(480));
  audio_.conversion = InMemoryAudio::Conversion::failing;
  audio_.deliver(ramp(480));
  audio_.conversion = InMemoryAudio::Conversion::working;
  audio_.deliver(ramp(512)); // 170.67 frames
  EXPECT_THAT(audio_.capacities, ElementsAre(1616U, 176U, 176U, 186U));
  ASSERT_EQ(blocks_.size(), 2U);
  EXPECT_EQ(blocks_[0].size(), 1600U);
  EXPECT_FLOAT_EQ(blocks_[0][1599], 4797);
}

TEST_F(Microphone, KeepsItsFirstCallbackWhileRunningAndTakesAnotherAndTheFormatOfTheMomentAfterAStop) {
  MicBackend backend(audio_);
  backend.start(collect());
  const auto calls = audio_.calls;
  backend.start([](const SampleBlock&) { FAIL() << "the second callback was called"; });
  audio_.deliver(ramp(48));
  EXPECT_EQ(blocks_.size(), 1U);
  EXPECT_EQ(audio_.calls, calls);

  backend.stop();
  audio_.inputFormat = {16000, 2};
  std::vector<SampleBlock> later;
  backend.start([&later](const SampleBlock& block) { later.push_back(block); });
  audio_.deliver(ramp(100));
  EXPECT_EQ(audio_.capacities.back(), 116U) << "through the converter at the rate of the contract too";
  EXPECT_THAT(later, ElementsAre(ramp(100)));
  EXPECT_EQ(blocks_.size(), 1U);
}

TEST_F(Microphone, LetsGoOfTheCallbackWhenItStopsOrIsDestroyed) {
  const auto token = std::make_shared<int>();
  MicBackend stopped(audio_);
  stopped.start([token](const SampleBlock&) {});
  stopped.stop();
  EXPECT_EQ(token.use_count(), 1);
  {
    MicBackend destroyed(audio_);
    destroyed.start([token](const SampleBlock&) {});
    EXPECT_TRUE(audio_.capturing());
  }
  EXPECT_EQ(audio_.taps(), 0);
  EXPECT_EQ(token.use_count(), 1);
}

} // namespace
} // namespace tolvera
