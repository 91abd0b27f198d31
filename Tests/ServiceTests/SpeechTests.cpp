#include "TolveraService/Speech.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
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

double level(const Samples& samples) {
  double sum = 0;
  for (const double sample : samples) sum += sample * sample;
  return std::sqrt(sum / static_cast<double>(samples.size()));
}

// How alike the window and itself `lag` samples later are: 1 for a period.
double likeness(const std::int16_t* window, std::size_t size, std::size_t lag) {
  double both = 0;
  double first = 1;
  double second = 1;
  for (std::size_t i = 0; i < size; ++i) {
    const double a = window[i];
    const double b = window[i + lag];
    both += a * b;
    first += a * a;
    second += b * b;
  }
  return both / std::sqrt(first * second);
}

// The median pitch of the voiced parts, in Hz.
double pitch(const Samples& samples) {
  constexpr std::size_t window = Speech::sampleRate / 20;
  constexpr std::size_t shortest = Speech::sampleRate / 400;
  constexpr std::size_t longest = Speech::sampleRate / 55;
  std::vector<double> pitches;
  for (std::size_t at = 0; at + window + longest < samples.size(); at += window) {
    double best = 0.8;
    std::size_t period = 0;
    for (std::size_t lag = shortest; lag <= longest; ++lag) {
      const double alike = likeness(samples.data() + at, window, lag);
      if (alike <= best * 1.02) continue; // twice a period is as good, and is not one
      best = alike;
      period = lag;
    }
    if (period > 0 && level({samples.begin() + static_cast<std::ptrdiff_t>(at),
                             samples.begin() + static_cast<std::ptrdiff_t>(at + window)}) > 500)
      pitches.push_back(static_cast<double>(Speech::sampleRate) / static_cast<double>(period));
  }
  if (pitches.empty()) return 0;
  std::nth_element(pitches.begin(), pitches.begin() + static_cast<std::ptrdiff_t>(pitches.size() / 2),
                   pitches.end());
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
    RecordProperty(voice, std::to_string(heard[voice].pitch) + " Hz " + std::to_string(heard[voice].seconds));
  }
  ASSERT_EQ(heard.size(), 8U);
  for (const auto& [one, a] : heard)
    for (const auto& [other, b] : heard) {
      if (one == other) continue;
      const double byPitch = std::abs(std::log(a.pitch / b.pitch));
      const double byPace = std::abs(std::log(a.seconds / b.seconds));
      EXPECT_GT(byPitch + byPace, 0.05) << one << " and " << other;
    }
  for (const char* woman : {"Tina", "Serena", "Jennifer", "Katerina"})
    for (const char* man : {"Ethan", "Raymond", "Harvey", "Aiden"})
      EXPECT_GT(heard[woman].pitch, heard[man].pitch * 1.05) << woman << " and " << man;
  for (const auto& [voice, sound] : heard) {
    EXPECT_LE(heard["Harvey"].pitch, sound.pitch) << voice;
    if (voice == "Tina" || voice == "Serena" || voice == "Jennifer")
      EXPECT_LT(heard["Katerina"].pitch, sound.pitch) << voice;
  }
}

TEST(SpeechTest, EveryVoiceSpeaksEveryLanguageWithItsOwnRules) {
  const Speech speech;
  for (const auto& [language, sentence] : sentences) {
    ASSERT_TRUE(speech.canSpeak(language)) << language;
    for (const std::string& voice : speech.voices()) {
      const Samples sound = speech.say(language, voice, sentence);
      EXPECT_GT(seconds(sound), 1.5) << language << ' ' << voice;
      EXPECT_LT(seconds(sound), 6) << language << ' ' << voice;
      const Samples end(sound.end() - Speech::sampleRate / 10, sound.end());
      EXPECT_LT(level(end), 100) << language << ' ' << voice << " is cut off";
    }
    // French has the silent endings that no other reads over.
    const double asFrench = seconds(speech.say("fr", "Tina", sentence));
    const double asItself = seconds(speech.say(language, "Tina", sentence));
    if (language != "fr") EXPECT_GT(std::abs(asItself / asFrench - 1), sameLength) << language;
  }
}

TEST(SpeechTest, ALanguageWithoutAVoiceIsNotSpokenByAnother) {
  const Speech speech;
  const double spanish = seconds(speech.say("es", "Tina", sentences.at("es")));
  for (const char* language : {"gl", "ast", "", "es+f9", "../es"}) {
    EXPECT_FALSE(speech.canSpeak(language)) << language;
    EXPECT_TRUE(speech.say(language, "Tina", sentences.at("es")).empty()) << language;
  }
  EXPECT_NEAR(seconds(speech.say("es", "Tina", sentences.at("es"))), spanish, spanish * sameLength);
}

TEST(SpeechTest, AVoiceThatIsNotKnownIsTheFirst) {
  const Speech speech;
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
