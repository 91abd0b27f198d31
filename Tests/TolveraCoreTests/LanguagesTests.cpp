#include "TolveraCore/Languages.h"

#include "Fakes/FixedLocale.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <span>
#include <unordered_set>

namespace tolvera {
namespace {

using test::FixedLocale;

TEST(Languages, DubsFirstTwentyNineOfSixty) {
  std::unordered_set<Language> rows(Languages::all.begin(), Languages::all.end());
  EXPECT_EQ(rows.size(), 60u);
  for (std::size_t i = 0; i < Languages::all.size(); ++i)
    EXPECT_EQ(Languages::all[i].canDub, i < 29) << Languages::all[i].code;
  EXPECT_EQ(Languages::all[28].code, "fa");
  EXPECT_EQ(Languages::all[29].code, "yue");
}

TEST(Languages, FindsOnlyExactCodes) {
  EXPECT_EQ(Languages::find("zh").value().englishName, "Chinese (Mandarin)");
  for (const char* code : {"auto", "", "EN", "zh-Hans", "en "}) {
    EXPECT_FALSE(Languages::find(code)) << code;
    EXPECT_FALSE(Languages::canDub(code)) << code;
  }
  EXPECT_TRUE(Languages::canDub("fa"));
  EXPECT_FALSE(Languages::canDub("yue"));
}

TEST(Languages, GuessesTargetFromLocale) {
  const std::pair<const char*, const char*> guesses[] = {
      {"zh_Hans_CN", "zh"}, {"zh-Hans", "zh"}, {"zh_TW", "zh"},   {"zh_HK", "yue"},     {"zh_MO", "yue"},
      {"ZH-hk", "yue"},     {"yue_CN", "yue"}, {"en_GB", "en"},   {"zh_Hant_HK", "zh"}, {"nb_NO", "nb"},
      {"nn_NO", "nb"},      {"no", "nb"},      {"tl_PH", "fil"},  {"fil_PH", "fil"},    {"eo_001", "en"},
      {"", "en"},           {"__", "en"},      {"_pt_BR", "pt"},  {"JA", "ja"},         {"auto", "en"},
      {"ceb", "ceb"},       {"cebu", "en"},    {"en@x=zh", "en"},
  };
  for (const auto& [identifier, code] : guesses)
    EXPECT_EQ(Languages::guessTarget(identifier), code) << identifier;
}

TEST(Languages, SortsByDisplayName) {
  FixedLocale locale;
  EXPECT_EQ(Languages::find("ja")->displayName(locale, "zh-Hans"), "日语");
  EXPECT_EQ(Languages::find("zh")->displayName(locale, "en"), "Chinese");
  EXPECT_EQ(Languages::find("ast")->displayName(locale, "zh-Hans"), "Asturian");

  std::vector<std::string_view> codes;
  for (const Language& language : Languages::sorted(locale, "zh-Hans")) codes.push_back(language.code);
  ASSERT_EQ(codes.size(), 60u);
  EXPECT_THAT(std::span(codes).first(4), testing::ElementsAre("af", "ar", "ast", "az"));
  // Bytes of Chinese names come after all English ones.
  EXPECT_THAT(std::span(codes).last(4), testing::ElementsAre("zh", "ja", "en", "es"));

  for (const Language& language : Languages::all)
    locale.names[{"same", std::string(language.code)}] = "one name";
  EXPECT_TRUE(std::ranges::equal(Languages::sorted(locale, "same"), Languages::all));
}

} // namespace
} // namespace tolvera
