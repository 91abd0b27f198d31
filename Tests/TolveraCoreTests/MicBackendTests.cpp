#include "TolveraCore/MicBackend.h"

#include "Fakes/InMemoryAudio.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <numeric>

namespace tolvera {
namespace {

using platform::PlatformError;
using test::InMemoryAudio;

class Microphone : public testing::Test {
 protected:
  void start() {
    backend_.start(
        [this, held = held_](const auto& block) { blocks_.emplace_back(block.begin(), block.end()); });
  }
  void deliver(std::size_t frames) {
    std::vector<float> ramp(frames); // frame i has the value i
    std::iota(ramp.begin(), ramp.end(), 0.0F);
    audio_.deliver(ramp);
  }

  InMemoryAudio audio_;
  MicBackend backend_{audio_};
  std::vector<std::vector<float>> blocks_;
  std::shared_ptr<int> held_ = std::make_shared<int>();
};

TEST_F(Microphone, NamesFailedStart) {
  const std::pair<PlatformError, std::function<void(InMemoryAudio&)>> failures[] = {
      {{"Tolvera", 10, "拿不到麦克风格式，检查系统设置里的麦克风权限。"},
       [](auto& audio) { audio.inputFormat = {0, 0}; }},
      {{"Tolvera", 11, "创建重采样器失败"},
       [](auto& audio) { audio.conversion = InMemoryAudio::Conversion::absent; }},
      {{"Elsewhere", -7, "busy"}, [](auto& audio) { audio.startFailure.emplace("Elsewhere", -7, "busy"); }}};
  for (const auto& [expected, breakIt] : failures) {
    breakIt(audio_);
    try {
      start();
      ADD_FAILURE() << "started";
    } catch (const PlatformError& error) {
      EXPECT_EQ(error.domain(), expected.domain());
      EXPECT_EQ(error.code(), expected.code());
      EXPECT_EQ(error.localizedDescription(), expected.localizedDescription());
    }
    EXPECT_EQ(audio_.taps() + audio_.converters, 0);
    audio_.inputFormat = {48000, 1};
    audio_.conversion = InMemoryAudio::Conversion::working;
  }
}

TEST_F(Microphone, ConvertsBlocksToSixteenKilohertz) {
  start();
  deliver(4800);
  for (const auto conversion : {InMemoryAudio::Conversion::silent, InMemoryAudio::Conversion::failing}) {
    audio_.conversion = conversion;
    deliver(480);
  }
  audio_.conversion = InMemoryAudio::Conversion::working;
  deliver(512);
  ASSERT_EQ(blocks_.size(), 2U) << "blocks that cannot be converted are dropped";
  EXPECT_EQ(blocks_[0].size(), 1600U);
  EXPECT_FLOAT_EQ(blocks_[0][1599], 4797);
}

TEST_F(Microphone, ReleasesInputWhenStopped) {
  start();
  backend_.start([](const auto&) { FAIL() << "a second callback while it runs"; });
  deliver(48);
  backend_.stop();
  EXPECT_EQ(audio_.taps() + audio_.converters, 0);
  EXPECT_FALSE(audio_.capturing());
  EXPECT_EQ(held_.use_count(), 1);

  audio_.inputFormat = {16000, 2}; // read at each start
  start();
  deliver(100);
  EXPECT_EQ(blocks_.back().size(), 100U);
}

} // namespace
} // namespace tolvera
