#include "TolveraCore/Languages.h"

#include "Support/FixedLocale.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <unordered_set>

namespace tolvera {
namespace {

using test::FixedLocale;

TEST(Languages, HasSixtyDistinctRowsOfWhichTheFirstTwentyNineCanBeDubbed) {
  std::unordered_set<Language> rows(Languages::all.begin(), Languages::all.end());
  EXPECT_EQ(rows.size(), 60u);
  for (std::size_t i = 0; i < Languages::all.size(); ++i)
    EXPECT_EQ(Languages::all[i].canDub, i < 29) << Languages::all[i].code;
  EXPECT_EQ(Languages::all.front().code, "en");
  EXPECT_EQ(Languages::all[28].code, "fa");
  EXPECT_EQ(Languages::all[29].code, "yue");
  EXPECT_EQ(Languages::all.back().englishName, "Ukrainian");
}

TEST(Languages, HasEightVoicesLabelledInBothLanguages) {
  EXPECT_EQ(Languages::voices.front(), (Voice{"Tina", "甜甜（女）", "Tina (female)"}));
  EXPECT_EQ(Languages::voices.back(), (Voice{"Aiden", "艾登（男·美音）", "Aiden (male, US)"}));
  for (const Voice& voice : Languages::voices) {
    EXPECT_TRUE(voice.en.starts_with(voice.code)) << voice.code;
    EXPECT_NE(voice.zh.find("（"), std::string_view::npos) << voice.code;
  }
}

TEST(Languages, FindsOnlyExactCodes) {
  const auto chinese = Languages::find("zh");
  ASSERT_TRUE(chinese);
  EXPECT_EQ(chinese->englishName, "Chinese (Mandarin)");
  EXPECT_EQ(chinese->id(), "zh");
  for (const char* code : {"auto", "", "EN", "zh-Hans", "en "}) {
    EXPECT_FALSE(Languages::find(code)) << code;
    EXPECT_FALSE(Languages::canDub(code)) << code;
  }
  EXPECT_TRUE(Languages::canDub("fa"));
  EXPECT_FALSE(Languages::canDub("yue"));
  EXPECT_FALSE(Languages::canDub("el"));
}

TEST(Languages, GuessesTheTargetFromALocale) {
  const std::pair<const char*, const char*> guesses[] = {
      {"zh_Hans_CN", "zh"}, {"zh-Hans", "zh"}, {"zh_TW", "zh"},   {"zh_HK", "yue"},     {"zh_MO", "yue"},
      {"ZH-hk", "yue"},     {"yue_CN", "yue"}, {"en_GB", "en"},   {"zh_Hant_HK", "zh"}, {"nb_NO", "nb"},
      {"nn_NO", "nb"},      {"no", "nb"},      {"tl_PH", "fil"},  {"fil_PH", "fil"},    {"eo_001", "en"},
      {"", "en"},           {"__", "en"},      {"_pt_BR", "pt"},  {"JA", "ja"},         {"auto", "en"},
      {"ceb", "ceb"},       {"cebu", "en"},    {"en@x=zh", "en"},
  };
  for (const auto& [identifier, code] : guesses) {
    EXPECT_EQ(Languages::guessTarget(identifier), code) << identifier;
    EXPECT_TRUE(Languages::find(Languages::guessTarget(identifier))) << identifier;
  }
}

TEST(Languages, AreNamedInTitleCaseOrElseInEnglish) {
  const FixedLocale locale;
  EXPECT_EQ(Languages::find("ja")->displayName(locale, "en"), "Japanese");
  EXPECT_EQ(Languages::find("ja")->displayName(locale, "zh-Hans"), "日语");
  EXPECT_EQ(Languages::find("zh")->displayName(locale, "en"), "Chinese");
  EXPECT_EQ(Languages::find("ast")->displayName(locale, "zh-Hans"), "Asturian");
}

TEST(Languages, AreSortedByTheirNamesAndOtherwiseByTheTable) {
  FixedLocale locale;
  const auto codes = [&locale](std::string_view identifier) {
    std::vector<std::string_view> sorted;
    for (const Language& language : Languages::sorted(locale, identifier)) sorted.push_back(language.code);
    return sorted;
  };
  const auto english = codes("en");
  EXPECT_EQ(english.size(), 60u);
  EXPECT_THAT((std::vector(english.begin(), english.begin() + 4)),
              testing::ElementsAre("af", "ar", "ast", "az"));

  // Bytes of Chinese names come after all English ones.
  const auto chinese = codes("zh-Hans");
  EXPECT_THAT((std::vector(chinese.end() - 4, chinese.end())), testing::ElementsAre("zh", "ja", "en", "es"));

  for (const Language& language : Languages::all)
    locale.names[{"same", std::string(language.code)}] = "one name";
  EXPECT_TRUE(std::ranges::equal(Languages::sorted(locale, "same"), Languages::all));
}

} // namespace
} // namespace tolvera
