#include "TolveraCore/MicBackend.h"

#include "Support/InMemoryAudio.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

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
  std::optional<PlatformError> failureOfStart(MicBackend& backend) {
    try {
      backend.start(collect());
    } catch (const PlatformError& error) {
      return error;
    }
    return std::nullopt;
  }
  // Frame i has the value i.
  static std::vector<float> ramp(std::size_t frames, float from = 0) {
    std::vector<float> samples(frames);
    std::iota(samples.begin(), samples.end(), from);
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

TEST_F(Microphone, WithoutAnInputFailsWithCode10AndInstallsNoTap) {
  audio_.inputFormat = {0, 0};
  MicBackend backend(audio_);
  const auto failure = failureOfStart(backend);
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->domain(), "Tolvera");
  EXPECT_EQ(failure->code(), 10);
  EXPECT_EQ(failure->localizedDescription(), "拿不到麦克风格式，检查系统设置里的麦克风权限。");
  EXPECT_THAT(audio_.calls, ElementsAre("format"));
  backend.stop();
  EXPECT_THAT(audio_.calls, ElementsAre("format"));
}

TEST_F(Microphone, WithoutAConversionFailsWithCode11AndInstallsNoTap) {
  audio_.conversion = InMemoryAudio::Conversion::absent;
  MicBackend backend(audio_);
  const auto failure = failureOfStart(backend);
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->domain(), "Tolvera");
  EXPECT_EQ(failure->code(), 11);
  EXPECT_EQ(failure->localizedDescription(), "创建重采样器失败");
  EXPECT_EQ(audio_.taps(), 0);
}

TEST_F(Microphone, PassesTheEnginesErrorOnAndLeavesNothingInstalled) {
  audio_.startFailure = PlatformError("Elsewhere", -7, "busy");
  MicBackend backend(audio_);
  const auto failure = failureOfStart(backend);
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->domain(), "Elsewhere");
  EXPECT_EQ(failure->code(), -7);
  EXPECT_EQ(audio_.taps(), 0);
  EXPECT_EQ(audio_.converters, 0);
}

TEST_F(Microphone, ConvertsEachBlockOnItsOwnWithRoomForSixteenMore) {
  MicBackend backend(audio_);
  backend.start(collect());
  audio_.deliver(ramp(4800));
  audio_.deliver(ramp(512)); // 170.67 frames
  EXPECT_THAT(audio_.capacities, ElementsAre(1616U, 186U));
  ASSERT_EQ(blocks_.size(), 2U);
  EXPECT_EQ(blocks_[0].size(), 1600U);
  EXPECT_FLOAT_EQ(blocks_[0][1599], 4797);
}

TEST_F(Microphone, GoesThroughTheConverterAtTheRateOfTheContractToo) {
  audio_.inputFormat = {16000, 2};
  MicBackend backend(audio_);
  backend.start(collect());
  audio_.deliver(ramp(100));
  EXPECT_THAT(audio_.capacities, ElementsAre(116U));
  EXPECT_THAT(blocks_, ElementsAre(ramp(100)));
}

TEST_F(Microphone, DropsABlockThatYieldsNothingOrFailsAndConvertsTheNext) {
  MicBackend backend(audio_);
  backend.start(collect());
  audio_.conversion = InMemoryAudio::Conversion::silent;
  audio_.deliver(ramp(480));
  audio_.conversion = InMemoryAudio::Conversion::failing;
  audio_.deliver(ramp(480));
  EXPECT_THAT(blocks_, IsEmpty());
  audio_.conversion = InMemoryAudio::Conversion::working;
  audio_.deliver(ramp(480));
  EXPECT_EQ(blocks_.size(), 1U);
}

TEST_F(Microphone, KeepsItsFirstCallbackWhenStartedAgainWhileRunning) {
  MicBackend backend(audio_);
  backend.start(collect());
  const auto calls = audio_.calls;
  backend.start([](const SampleBlock&) { FAIL() << "the second callback was called"; });
  audio_.deliver(ramp(48));
  EXPECT_EQ(blocks_.size(), 1U);
  EXPECT_EQ(audio_.calls, calls);
}

TEST_F(Microphone, StartsAnewAfterAStopWithAnotherCallbackAndFormat) {
  MicBackend backend(audio_);
  backend.start([](const SampleBlock&) { FAIL() << "the first callback was called"; });
  backend.stop();
  audio_.inputFormat = {32000, 1};
  backend.start(collect());
  audio_.deliver(ramp(64));
  ASSERT_EQ(blocks_.size(), 1U);
  EXPECT_EQ(blocks_[0].size(), 32U);
}

TEST_F(Microphone, LetsGoOfTheCallbackWhenItStopsOrIsDestroyed) {
  auto token = std::make_shared<int>();
  auto holding = [token](const SampleBlock&) {};
  MicBackend stopped(audio_);
  stopped.start(holding);
  stopped.stop();
  {
    MicBackend destroyed(audio_);
    destroyed.start(holding);
    EXPECT_TRUE(audio_.capturing());
  }
  EXPECT_FALSE(audio_.capturing());
  EXPECT_EQ(audio_.taps(), 0);
  EXPECT_EQ(token.use_count(), 2); // here and in `holding`
}

} // namespace
} // namespace tolvera
