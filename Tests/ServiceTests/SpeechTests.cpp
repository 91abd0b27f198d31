#include "TolveraService/Engine/Speech.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <span>
#include <thread>

namespace tolvera::service {
namespace {

using Samples = std::vector<std::int16_t>;

// The synthesiser does not end the same words at the same sample every time.
constexpr double sameLength = 0.02;

const std::map<std::string, std::string> sentences = {
    {"en", "The children are playing in the garden behind the house."},
    {"es", "Los niños juegan en el jardín detrás de la casa."},
    {"ca", "Els nens juguen al jardí darrere de la casa."},
    {"pt", "As crianças brincam no jardim atrás da casa."},
    {"fr", "Les enfants jouent dans le jardin derrière la maison."},
    {"it", "I bambini giocano nel giardino dietro la casa."}};

double seconds(const Samples& samples) {
  return static_cast<double>(samples.size()) / static_cast<double>(Speech::sampleRate);
}

double level(std::span<const std::int16_t> samples) {
  double sum = 0;
  for (const double sample : samples) sum += sample * sample;
  return std::sqrt(sum / static_cast<double>(samples.size()));
}

TEST(Speech, EachVoiceSpeaksEachLanguage) {
  const Speech speech;
  EXPECT_EQ(speech.voices().size(), 8U);
  for (const auto& [language, sentence] : sentences) {
    ASSERT_TRUE(speech.canSpeak(language)) << language;
    for (const std::string& voice : speech.voices()) {
      const Samples sound = speech.say(language, voice, sentence);
      EXPECT_GT(seconds(sound), 1.5) << language << ' ' << voice;
      EXPECT_LT(seconds(sound), 6) << language << ' ' << voice;
      EXPECT_GT(level(sound), 1000) << language << ' ' << voice;
      EXPECT_LT(level(std::span(sound).last(Speech::sampleRate / 10)), 100) << voice << " is cut off";
    }
    // French has the silent endings that no other reads over.
    const double asFrench = seconds(speech.say("fr", "Tina", sentence));
    const double asItself = seconds(speech.say(language, "Tina", sentence));
    if (language != "fr") EXPECT_GT(std::abs(asItself / asFrench - 1), sameLength) << language;
  }
}

TEST(Speech, UnspeakableTextIsSilent) {
  const Speech speech;
  for (const char* language : {"gl", "ast", "", "es+f9", "../es"}) {
    EXPECT_FALSE(speech.canSpeak(language)) << language;
    EXPECT_TRUE(speech.say(language, "Tina", sentences.at("es")).empty()) << language;
  }
  for (const char* nothing : {"", "“”"}) EXPECT_TRUE(speech.say("es", "Tina", nothing).empty());
  EXPECT_FALSE(speech.say("es", "unknown", "1 < 2 & [[x]] <b>\xff tarde.").empty());
  const double plain = seconds(speech.say("es", "Tina", "El tren de Peter Smith llega tarde."));
  const double quoted = seconds(speech.say("es", "Tina", "El tren de “Peter Smith” llega tarde."));
  EXPECT_NEAR(quoted, plain, plain * sameLength);
}

TEST(Speech, ThreadsKeepTheirVoices) {
  const Speech speech;
  std::vector<std::thread> threads;
  for (const auto& [language, sentence] : sentences) {
    const double alone = seconds(speech.say(language, "Harvey", sentence));
    threads.emplace_back([&speech, alone, l = language, s = sentence] {
      for (int i = 0; i < 10; ++i)
        EXPECT_NEAR(seconds(speech.say(l, "Harvey", s)), alone, alone * sameLength) << l;
    });
  }
  for (std::thread& thread : threads) thread.join();
}

} // namespace
} // namespace tolvera::service
