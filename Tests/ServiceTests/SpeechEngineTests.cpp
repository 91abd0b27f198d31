// What every engine of speech recognition promises. An engine whose model is not here is skipped.

#include "TolveraService/Engine/SettledText.h"
#include "TolveraService/Engine/SpeechEngines.h"

#include "ServiceTests/StreamClient.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <random>
#include <stdexcept>
#include <thread>

namespace tolvera::service {
namespace {

using Clock = std::chrono::steady_clock;
using Sound = std::vector<std::int16_t>;

// The process's memory in MB.
double memory() {
  ::malloc_trim(0);
  std::ifstream file("/proc/self/statm");
  double pages = 0;
  file >> pages >> pages;
  return pages * static_cast<double>(::sysconf(_SC_PAGESIZE)) / 1e6;
}

Sound noise(int seconds) {
  std::mt19937 random(7);
  std::normal_distribution<float> level(0, 300);
  Sound sound(static_cast<std::size_t>(seconds) * SpeechEngine::sampleRate);
  for (std::int16_t& sample : sound) sample = static_cast<std::int16_t>(level(random));
  return sound;
}

class SpeechEngines : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    try {
      engine_ = makeSpeechEngine({GetParam(), 2});
    } catch (const std::runtime_error& error) {
      GTEST_SKIP() << error.what();
    }
  }

  // What an engine hears in the sound, 100 ms at a time.
  std::vector<Heard> hear(const Sound& sound, const std::string& spoken = "en",
                          const std::atomic<bool>* abandoned = nullptr) {
    std::vector<Heard> all;
    auto listener = engine_->listener();
    if (!listener) throw std::runtime_error("no place for one more run");
    listener->begin({spoken, true, [](const std::string&) { return false; },
                     [&](const Heard& heard) { all.push_back(heard); },
                     [=] { return abandoned != nullptr && *abandoned; }});
    for (std::size_t at = 0; at < sound.size() && !(abandoned != nullptr && *abandoned); at += 1600)
      listener->hear(std::span(sound).subspan(at, std::min<std::size_t>(1600, sound.size() - at)));
    listener->finish();
    return all;
  }

  static std::vector<std::string> finals(const std::vector<Heard>& all) {
    std::vector<std::string> lines;
    for (const Heard& heard : all)
      if (heard.final && !heard.settled.empty()) lines.push_back(bareWord(heard.settled));
    return lines;
  }

  static Sound sentences() {
    Sound sound;
    for (const char* sentence :
         {"we need more time to finish this project", "the weather is very nice today"}) {
      const Sound speech = test::spoken(sentence);
      sound.insert(sound.end(), speech.begin(), speech.end());
      sound.resize(sound.size() + SpeechEngine::sampleRate);
    }
    return sound;
  }

  std::unique_ptr<SpeechEngine> engine_;
};

TEST_P(SpeechEngines, FinalsComeInOrder) {
  for (const char* spoken : {"en", "auto"}) {
    const std::vector<Heard> all = hear(sentences(), spoken);
    const auto lines = finals(all);
    ASSERT_EQ(lines.size(), 2U) << spoken;
    EXPECT_NE(lines[0].find("finish this project"), std::string::npos) << lines[0];
    EXPECT_NE(lines[1].find("weather"), std::string::npos) << lines[1];
    std::string settled; // words that settled stay until the final
    for (const Heard& heard : all) {
      EXPECT_EQ(heard.language, "en");
      EXPECT_TRUE(heard.final || heard.settled.starts_with(settled)) << heard.settled << " after " << settled;
      settled = heard.final ? "" : heard.settled;
    }
  }
}

TEST_P(SpeechEngines, NoiseGivesNoWords) {
  if (engine_->name() == "PocketSphinx") GTEST_SKIP() << "PocketSphinx takes noise for speech";
  for (const Sound& sound : {noise(10), Sound(10UL * SpeechEngine::sampleRate)})
    EXPECT_TRUE(finals(hear(sound)).empty());
}

TEST_P(SpeechEngines, StopTakesNoTime) {
  std::atomic<bool> abandoned = false;
  const Sound speech = sentences();
  Sound sound;
  for (int i = 0; i < 10; ++i) sound.insert(sound.end(), speech.begin(), speech.end());
  std::thread run([&] { hear(sound, "en", &abandoned); });
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  const auto start = Clock::now();
  abandoned = true;
  run.join();
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(2));
}

TEST_P(SpeechEngines, TwoRunsDoNotMix) {
  hear(sentences()); // loads what is loaded once
  const double before = memory();
  std::vector<std::string> heard[2];
  const Sound first = sentences();
  const Sound second(first.rbegin(), first.rend()); // no speech of any language
  std::thread other([&] { heard[0] = finals(hear(second)); });
  heard[1] = finals(hear(first));
  other.join();
  ASSERT_EQ(heard[1].size(), 2U);
  EXPECT_NE(heard[1][0].find("project"), std::string::npos);
  for (const std::string& line : heard[0]) EXPECT_EQ(line.find("project"), std::string::npos);
  EXPECT_LT(memory() - before, 30) << "a run keeps memory";
  const auto one = engine_->listener();
  const auto two = engine_->listener();
  EXPECT_TRUE(one && two);
  EXPECT_FALSE(engine_->listener()) << "more runs than it serves";
}

INSTANTIATE_TEST_SUITE_P(Engines, SpeechEngines, testing::Values("pocketsphinx", "whisper"),
                         [](const auto& engine) { return std::string(engine.param); });

} // namespace
} // namespace tolvera::service
