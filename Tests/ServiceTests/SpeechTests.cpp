#include "TolveraService/Engine/Speech.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>
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

// How alike a window and itself `lag` samples later are: 1 for a period.
double likeness(std::span<const std::int16_t> window, std::span<const std::int16_t> later) {
  const auto product = [](auto a, auto b) { return std::inner_product(a.begin(), a.end(), b.begin(), 1.0); };
  return product(window, later) / std::sqrt(product(window, window) * product(later, later));
}

// The median pitch of the voiced parts, in Hz.
double pitch(const Samples& samples) {
  constexpr std::size_t window = Speech::sampleRate / 20;
  constexpr std::size_t shortest = Speech::sampleRate / 400;
  constexpr std::size_t longest = Speech::sampleRate / 55;
  std::vector<double> pitches;
  const std::span all(samples);
  for (std::size_t at = 0; at + window + longest < samples.size(); at += window) {
    const auto here = all.subspan(at, window);
    if (level(here) <= 500) continue;
    double best = 0.8;
    std::size_t period = 0;
    for (std::size_t lag = shortest; lag <= longest; ++lag) {
      const double alike = likeness(here, all.subspan(at + lag, window));
      if (alike <= best * 1.02) continue; // twice a period is as good, and is not one
      best = alike;
      period = lag;
    }
    if (period > 0) pitches.push_back(static_cast<double>(Speech::sampleRate) / static_cast<double>(period));
  }
  if (pitches.empty()) return 0;
  std::sort(pitches.begin(), pitches.end());
  return pitches[pitches.size() / 2];
}

TEST(SpeechTest, TheEightVoicesDifferAsTheirNamesSay) {
  const Speech speech;
  struct Heard {
    double pitch;
    double seconds;
  };
  std::map<std::string, Heard> heard;
  for (const std::string& voice : speech.voices()) {
    const Samples sound = speech.say("es", voice, sentences.at("es"));
    heard[voice] = {pitch(sound), seconds(sound)};
    EXPECT_GT(level(sound), 1000) << voice;
    EXPECT_LT(*std::max_element(sound.begin(), sound.end()), 32767) << voice << " is clipped";
  }
  ASSERT_EQ(heard.size(), 8U);
  for (const auto& [one, a] : heard)
    for (const auto& [other, b] : heard) {
      if (one == other) continue;
      const double apart = std::abs(std::log(a.pitch / b.pitch)) + std::abs(std::log(a.seconds / b.seconds));
      EXPECT_GT(apart, 0.05) << one << " and " << other;
    }
  // From the highest to the lowest; the women, and among them the deep one, above all men.
  const auto pitchOf = [&](const char* voice) { return heard.at(voice).pitch; };
  for (const char* man : {"Ethan", "Raymond", "Aiden", "Harvey"}) {
    EXPECT_GT(pitchOf("Katerina"), pitchOf(man) * 1.05) << man;
    EXPECT_GE(pitchOf(man), pitchOf("Harvey")) << man;
  }
  for (const char* woman : {"Tina", "Serena", "Jennifer"})
    EXPECT_GT(pitchOf(woman), pitchOf("Katerina")) << woman;
}

TEST(SpeechTest, EveryVoiceSpeaksEveryLanguageWithItsOwnRules) {
  const Speech speech;
  for (const auto& [language, sentence] : sentences) {
    ASSERT_TRUE(speech.canSpeak(language)) << language;
    for (const std::string& voice : speech.voices()) {
      const Samples sound = speech.say(language, voice, sentence);
      EXPECT_GT(seconds(sound), 1.5) << language << ' ' << voice;
      EXPECT_LT(seconds(sound), 6) << language << ' ' << voice;
      EXPECT_LT(level(std::span(sound).last(Speech::sampleRate / 10)), 100)
          << language << ' ' << voice << " is cut off";
    }
    // French has the silent endings that no other reads over.
    const double asFrench = seconds(speech.say("fr", "Tina", sentence));
    const double asItself = seconds(speech.say(language, "Tina", sentence));
    if (language != "fr") EXPECT_GT(std::abs(asItself / asFrench - 1), sameLength) << language;
  }
}

TEST(SpeechTest, ALanguageWithoutAVoiceIsSilentAndAVoiceThatIsNotKnownIsTheFirst) {
  const Speech speech;
  for (const char* language : {"gl", "ast", "", "es+f9", "../es"}) {
    EXPECT_FALSE(speech.canSpeak(language)) << language;
    EXPECT_TRUE(speech.say(language, "Tina", sentences.at("es")).empty()) << language;
  }
  const Samples first = speech.say("fr", speech.voices().front(), sentences.at("fr"));
  for (const char* voice : {"", "tina", "Nobody", "m3"}) {
    const Samples sound = speech.say("fr", voice, sentences.at("fr"));
    EXPECT_NEAR(seconds(sound), seconds(first), seconds(first) * sameLength) << voice;
    EXPECT_NEAR(pitch(sound), pitch(first), pitch(first) * 0.03) << voice;
  }
}

TEST(SpeechTest, QuotationMarksAreSilentAndNothingIsSaidOfNothing) {
  const Speech speech;
  const double plain = seconds(speech.say("es", "Tina", "El tren de Peter Smith llega tarde."));
  const double quoted = seconds(speech.say("es", "Tina", "El tren de “Peter Smith” llega tarde."));
  EXPECT_NEAR(quoted, plain, plain * sameLength);
  EXPECT_TRUE(speech.say("es", "Tina", "").empty());
  EXPECT_TRUE(speech.say("es", "Tina", "“”").empty());
  EXPECT_FALSE(speech.say("es", "Tina", "1 < 2 & [[x]] <b>\xff tarde.").empty());
}

TEST(SpeechTest, ThreadsSpeakEachInTheirOwnVoice) {
  const Speech speech;
  std::map<std::string, double> alone;
  for (const auto& [language, sentence] : sentences)
    alone[language] = seconds(speech.say(language, "Harvey", sentence));
  std::vector<std::thread> threads;
  for (const auto& [language, sentence] : sentences)
    threads.emplace_back([&speech, &alone, l = language, s = sentence] {
      for (int i = 0; i < 10; ++i)
        EXPECT_NEAR(seconds(speech.say(l, "Harvey", s)), alone.at(l), alone.at(l) * sameLength) << l;
    });
  for (std::thread& thread : threads) thread.join();
}

} // namespace
} // namespace tolvera::service
