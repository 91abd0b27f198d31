#include "TolveraService/Engine/Speech.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace tolvera::service {
namespace {

TEST(Speech, EachVoiceSpeaksEachLanguage) {
  const Speech speech;
  EXPECT_EQ(speech.voices().size(), 8U);
  for (const char* language : {"en", "es", "ca", "pt", "fr", "it"})
    for (const std::string& voice : speech.voices()) {
      ASSERT_TRUE(speech.canSpeak(language)) << language;
      const auto sound = speech.say(language, voice, "Los niños juegan en el jardín detrás de la casa.");
      EXPECT_NEAR(static_cast<double>(sound.size()), Speech::sampleRate * 4.0, Speech::sampleRate * 2.5);
      EXPECT_GT(*std::max_element(sound.begin(), sound.end()), 5000) << language << ' ' << voice;
    }
  for (const char* language : {"gl", "ast", "", "es+f9", "../es"}) {
    EXPECT_FALSE(speech.canSpeak(language)) << language;
    EXPECT_TRUE(speech.say(language, "Tina", "La casa.").empty()) << language;
  }
  for (const char* nothing : {"", "“”"}) EXPECT_TRUE(speech.say("es", "Tina", nothing).empty());
  EXPECT_FALSE(speech.say("es", "unknown", "1 < 2 & [[x]] <b>\xff tarde.").empty());
}

} // namespace
} // namespace tolvera::service
