// What every engine of speech recognition promises. An engine whose model is not here is skipped.

#include "TolveraService/Engine/Recognizer.h"
#include "TolveraService/Engine/SettledText.h"
#include "TolveraService/Engine/SpeechEngines.h"
#ifdef TOLVERA_WHISPER
#include "TolveraService/Engine/WhisperEngine.h"
#include "TolveraService/Models/ModelCatalogue.h"
#include "TolveraService/Models/ModelStore.h"
#endif

#include "Harness/Eventually.h"
#include "Harness/LoopbackServer.h"
#include "ServiceTests/Clients.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <future>
#include <iterator>
#include <optional>
#include <random>
#include <stdexcept>
#include <thread>

namespace tolvera::service {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Sound = std::vector<std::int16_t>;

// A server with the OpenAI-compatible interface, which hears by PocketSphinx. It tells the language if it is
// not told, and refuses every request while `works` is false.
class TranscriptionStandIn {
 public:
  TranscriptionStandIn() {
    server_.onRequest([this](const test::LoopbackServer::Request& request) {
      if (hangs) return test::LoopbackServer::Reply::silence();
      const std::size_t file = request.body.find("RIFF");
      if (!works || request.target != "/v1/audio/transcriptions" || file == std::string::npos)
        return test::LoopbackServer::Reply::http(works ? 400 : 503);
      std::uint32_t bytes = 0;
      std::memcpy(&bytes, request.body.data() + file + 40, sizeof bytes);
      Sound sound(bytes / 2);
      std::memcpy(sound.data(), request.body.data() + file + 44, sound.size() * 2);
      boost::json::object answer{{"text", " " + wordsIn(sound) + "\n"}};
      if (request.body.find("verbose_json") != std::string::npos) answer["language"] = "english";
      return test::LoopbackServer::Reply::http(200, boost::json::serialize(answer));
    });
  }
  [[nodiscard]] ServerChoice choice() const { return {server_.url("http", "/v1"), "base", {}}; }

  std::atomic<bool> works = true;
  std::atomic<bool> hangs = false;

 private:
  std::string wordsIn(std::span<const std::int16_t> sound) {
    std::string words;
    const auto look = [&words](const Recognizer::Look& now) {
      if (now.final) words += now.words + " ";
    };
    recognizer_.begin();
    for (; !sound.empty(); sound = sound.subspan(std::min(sound.size(), Recognizer::samplesPerLook)))
      look(recognizer_.hear(sound.first(std::min(sound.size(), Recognizer::samplesPerLook))));
    look(recognizer_.finish());
    return words;
  }

  Recognizer recognizer_;
  test::LoopbackServer server_; // last: its thread uses the others
};

class SpeechEngines : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    try {
      EngineChoice choice{GetParam(), 2, {}};
      if (choice.name == "server") choice.server = server_.emplace().choice();
      engine_ = makeSpeechEngine(choice);
    } catch (const std::runtime_error& error) {
      GTEST_SKIP() << error.what();
    }
  }

  // What an engine hears in the sound, 100 ms at a time.
  std::vector<Heard> hear(const Sound& sound, const std::string& spoken = "en") {
    std::vector<Heard> all;
    auto listener = engine_->listener();
    if (!listener) throw std::runtime_error("no place for one more run");
    listener->begin({spoken, true, [](const std::string&) { return false; },
                     [&](const Heard& heard) { all.push_back(heard); }, [&] { return abandoned_.load(); }});
    for (std::size_t at = 0; at < sound.size() && !abandoned_; at += 1600)
      listener->hear(std::span(sound).subspan(at, std::min<std::size_t>(1600, sound.size() - at)));
    listener->finish();
    return all;
  }

  std::vector<std::string> finals(const Sound& sound) {
    std::vector<std::string> lines;
    for (const Heard& heard : hear(sound))
      if (heard.final && !heard.settled.empty()) lines.push_back(bareWord(heard.settled));
    return lines;
  }

  static Sound sentences() {
    Sound sound;
    for (const char* sentence :
         {"we need more time to finish this project", "the weather is very nice today"}) {
      std::ranges::copy(test::spoken(sentence), std::back_inserter(sound));
      sound.resize(sound.size() + SpeechEngine::sampleRate);
    }
    return sound;
  }

  std::optional<TranscriptionStandIn> server_;
  std::unique_ptr<SpeechEngine> engine_;
  std::atomic<bool> abandoned_ = false;
};

TEST_P(SpeechEngines, FinalsComeInOrder) {
  for (const char* spoken : {"en", "auto"}) {
    std::vector<std::string> lines;
    std::string settled; // words that settled stay until the final
    for (const Heard& heard : hear(sentences(), spoken)) {
      EXPECT_EQ(heard.language, "en");
      EXPECT_TRUE(heard.final || heard.settled.starts_with(settled)) << heard.settled << " after " << settled;
      settled = heard.final ? "" : heard.settled;
      if (heard.final && !heard.settled.empty()) lines.push_back(bareWord(heard.settled));
    }
    EXPECT_THAT(lines, ElementsAre(HasSubstr("finish this project"), HasSubstr("weather"))) << spoken;
  }
}

TEST_P(SpeechEngines, NoiseGivesNoWords) {
  if (engine_->name() == "PocketSphinx") GTEST_SKIP() << "PocketSphinx takes noise for speech";
  Sound sound(20UL * SpeechEngine::sampleRate); // the second half is silence
  std::normal_distribution<float> level(0, 300);
  std::generate_n(sound.begin(), sound.size() / 2, [&, random = std::mt19937(7)]() mutable {
    return static_cast<std::int16_t>(level(random));
  });
  EXPECT_THAT(finals(sound), IsEmpty());
}

TEST_P(SpeechEngines, StopTakesNoTime) {
  const Sound speech = sentences();
  Sound sound;
  for (int i = 0; i < 10; ++i) std::ranges::copy(speech, std::back_inserter(sound));
  if (server_) server_->hangs = true;
  auto run = std::async(std::launch::async, [&] { hear(sound); });
  run.wait_for(1500ms);
  abandoned_ = true;
  EXPECT_EQ(run.wait_for(2s), std::future_status::ready);
}

TEST_P(SpeechEngines, TwoRunsDoNotMix) {
  const auto memory = [] { return static_cast<double>(::mallinfo2().uordblks + ::mallinfo2().hblkhd) / 1e6; };
  const Sound first = sentences();
  hear(first); // loads what is loaded once
  const double before = memory();
  const Sound second(first.rbegin(), first.rend()); // no speech of any language
  auto other = std::async(std::launch::async, [&] { return finals(second); });
  EXPECT_THAT(finals(first), ElementsAre(HasSubstr("project"), testing::_));
  EXPECT_THAT(other.get(), Not(testing::Contains(HasSubstr("project"))));
  EXPECT_LT(memory() - before, 30) << "a run keeps memory";
  const auto one = engine_->listener();
  const auto two = engine_->listener();
  EXPECT_TRUE(one && two);
  EXPECT_FALSE(engine_->listener()) << "more runs than it serves";
}

TEST_P(SpeechEngines, DeadServerEndsTheRun) {
  if (!server_) GTEST_SKIP() << "only servers die by themselves";
  server_->works = false;
  Sound sound = sentences();
  EXPECT_THAT(finals(sound), IsEmpty()) << "two utterances are dropped";
  std::ranges::copy(sentences(), std::back_inserter(sound));
  try {
    hear(sound);
    ADD_FAILURE() << "the run goes on";
  } catch (const EngineFailure& failure) {
    EXPECT_THAT(failure.what(), AllOf(HasSubstr("http://127.0.0.1"), HasSubstr("503")));
  }
}

#ifdef TOLVERA_WHISPER
TEST(Whisper, WeightsAreFreedSomeTimeAfterUse) {
  WhisperEngine::Settings settings;
  for (const Model& model : loadModelCatalogue())
    if (const auto path = ModelStore::find(model))
      (model.name.starts_with("silero") ? settings.gate : settings.weights) = *path;
  if (settings.gate.empty() || settings.weights.empty()) GTEST_SKIP() << "no model is installed";
  settings.keep = 300ms;
  WhisperEngine engine(settings);
  auto one = engine.listener();
  auto two = engine.listener();
  const std::weak_ptr<const WhisperModel> weights = engine.model();
  one.reset();
  std::this_thread::sleep_for(600ms);
  EXPECT_FALSE(weights.expired()) << "a run still uses them";
  two.reset();
  std::this_thread::sleep_for(100ms);
  EXPECT_FALSE(weights.expired()) << "the next run comes soon";
  EXPECT_TRUE(test::eventually([&] { return weights.expired(); }, 10s));
  EXPECT_TRUE(engine.model()) << "they are loaded again";
}
#endif

INSTANTIATE_TEST_SUITE_P(Engines, SpeechEngines, testing::Values("pocketsphinx", "whisper", "server"),
                         [](const auto& engine) { return std::string(engine.param); });

} // namespace
} // namespace tolvera::service
