#include "TolveraCore/Languages.h"

#include "Platform/Linux/Desktop/IcuLocale.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <span>
#include <unordered_set>

namespace tolvera {
namespace {

TEST(Languages, DubsFirstTwentyNineOfSixty) {
  const std::unordered_set<Language> rows(Languages::all.begin(), Languages::all.end());
  EXPECT_EQ(rows.size(), 60u);
  for (std::size_t i = 0; i < Languages::all.size(); ++i)
    EXPECT_EQ(Languages::canDub(Languages::all[i].code), i < 29) << Languages::all[i].code;
  EXPECT_EQ(Languages::all[28].code, "fa");
  for (const char* code : {"auto", "", "EN", "zh-Hans", "en "})
    EXPECT_FALSE(Languages::find(code) || Languages::canDub(code)) << code;
}

TEST(Languages, GuessesTargetFromLocale) {
  const std::pair<const char*, const char*> guesses[] = {
      {"zh_Hans_CN", "zh"}, {"zh-Hans", "zh"}, {"zh_TW", "zh"},  {"zh_HK", "yue"},     {"zh_MO", "yue"},
      {"ZH-hk", "yue"},     {"yue_CN", "yue"}, {"en_GB", "en"},  {"zh_Hant_HK", "zh"}, {"nb_NO", "nb"},
      {"nn_NO", "nb"},      {"no", "nb"},      {"tl_PH", "fil"}, {"fil_PH", "fil"},    {"eo_001", "en"},
      {"", "en"},           {"__", "en"},      {"_pt_BR", "pt"}, {"JA", "ja"},         {"auto", "en"},
      {"ceb", "ceb"},       {"cebu", "en"},    {"en@x=zh", "en"}};
  for (const auto& [identifier, code] : guesses)
    EXPECT_EQ(Languages::guessTarget(identifier), code) << identifier;
}

TEST(Languages, SortsByDisplayName) {
  const adapters::IcuLocale locale("en_US");
  EXPECT_EQ(Languages::find("ja")->displayName(locale, "zh-Hans"), "日语");
  EXPECT_EQ(Languages::find("es")->displayName(locale, "es"), "Español");
  EXPECT_EQ(Languages::find("zh")->displayName(locale, ""), "Chinese (Mandarin)") << "no locale names it";
  std::vector<std::string_view> codes;
  for (const Language& language : Languages::sorted(locale, "en")) codes.push_back(language.code);
  ASSERT_EQ(codes.size(), 60U);
  EXPECT_THAT(std::span(codes).first(4), testing::ElementsAre("af", "ar", "ast", "az"));
}

} // namespace
} // namespace tolvera
