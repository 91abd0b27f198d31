#include "Platform/Linux/Desktop/IcuLocale.h"

#include "Harness/TemporaryEnvironment.h"
#include "TolveraCore/Languages.h"

#include <unicode/ucol.h>
#include <unicode/uloc.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace tolvera {
namespace {

using adapters::IcuLocale;

TEST(DesktopLocale, FollowsTheEnvironmentInTheOrderOfItsVariables) {
  const struct {
    std::optional<std::string> all, messages, lang;
    const char* identifier;
    const char* language;
  } cases[] = {
      {"zh_CN.UTF-8", "fr_FR", "de_DE", "zh_CN", "zh"},
      {"", "fr_FR.UTF-8", "de_DE", "fr_FR", "fr"},
      {std::nullopt, std::nullopt, "ja_JP.eucJP", "ja_JP", "ja"},
      {std::nullopt, std::nullopt, std::nullopt, "en_US", "en"},
      {"C", "fr_FR", "de_DE", "en_US", "en"},
      {std::nullopt, "POSIX", std::nullopt, "en_US", "en"},
      {std::nullopt, std::nullopt, "C.UTF-8", "en_US", "en"},
      {std::nullopt, std::nullopt, "sr_RS.UTF-8@latin", "sr_Latn_RS", "sr"},
      {std::nullopt, std::nullopt, "de_AT@euro", "de_AT", "de"},
      {std::nullopt, std::nullopt, "yue_HK.UTF-8", "yue_HK", "yue"},
  };
  for (const auto& each : cases) {
    test::TemporaryEnvironment environment;
    environment.set("LC_ALL", each.all);
    environment.set("LC_MESSAGES", each.messages);
    environment.set("LANG", each.lang);
    const IcuLocale locale;
    EXPECT_EQ(locale.currentIdentifier(), each.identifier);
    EXPECT_EQ(locale.currentLanguageCode(), each.language) << each.identifier;
  }
  test::TemporaryEnvironment environment;
  environment.set("LANG", "fr_FR.UTF-8");
  environment.set("LANGUAGE", "zh_CN.UTF-8::en");
  EXPECT_EQ(IcuLocale().preferredLanguages(), (std::vector<std::string>{"zh_CN", "en"}));
  environment.set("LANGUAGE", std::nullopt);
  EXPECT_EQ(IcuLocale().preferredLanguages(), std::vector{IcuLocale().currentIdentifier()});
  EXPECT_FALSE(IcuLocale("").currentLanguageCode());
  EXPECT_FALSE(IcuLocale("_CN").currentLanguageCode());
}

TEST(DesktopLocale, NamesLanguagesAndSaysNothingWhereIcuOnlyRepeatsTheCode) {
  const IcuLocale locale("en_US");
  EXPECT_EQ(locale.localizedString("zh", "zh-Hans"), "中文");
  EXPECT_EQ(locale.localizedString("de", "fr"), "allemand");
  for (const char* code : {"qqz", "", "xx", "auto"}) EXPECT_FALSE(locale.localizedString(code, "en")) << code;
  for (const Language& language : Languages::all) {
    EXPECT_TRUE(locale.localizedString(language.code, "en")) << language.code;
    EXPECT_TRUE(locale.localizedString(language.code, "zh-Hans")) << language.code;
  }
}

TEST(DesktopLocale, WritesTitleCaseByTheRulesOfTheLocale) {
  const IcuLocale locale("en_US");
  EXPECT_EQ(locale.capitalized("norwegian bokmål", "en"), "Norwegian Bokmål");
  EXPECT_EQ(locale.capitalized("ingilizce", "tr"), "İngilizce");
  EXPECT_EQ(locale.capitalized("中文", "zh-Hans"), "中文");
  EXPECT_EQ(locale.capitalized("", "en"), "");
}

TEST(DesktopLocale, ComparesByTheUsersLocaleWhateverTheTextsAreIn) {
  EXPECT_LT(IcuLocale("de_DE").localizedCompare("Öl", "Zebra"), 0);
  EXPECT_GT(IcuLocale("sv_SE").localizedCompare("Öl", "Zebra"), 0);
  const IcuLocale locale("en_US");
  EXPECT_EQ(locale.localizedCompare("same", "same"), 0);
  EXPECT_NE(locale.localizedCompare("ÖL", "öl"), 0);
  EXPECT_EQ(locale.localizedCaseInsensitiveCompare("ÖL", "öl"), 0);
  EXPECT_NE(locale.localizedCaseInsensitiveCompare("OL", "öl"), 0);
}

TEST(DesktopLocale, GuessesATargetForEveryLocaleThatTheSystemCanName) {
  for (std::int32_t i = 0; i < uloc_countAvailable(); ++i) {
    const std::string code = Languages::guessTarget(IcuLocale(uloc_getAvailable(i)).currentIdentifier());
    EXPECT_TRUE(Languages::find(code)) << uloc_getAvailable(i);
  }
}

TEST(DesktopLocale, PickersAreInIcusOwnOrder) {
  for (const char* user : {"en_US", "zh_CN", "zh_TW", "sv_SE", "ja_JP"}) {
    for (const char* language : {"zh-Hans", "en"}) {
      UErrorCode status = U_ZERO_ERROR;
      UCollator* const collator = ucol_open(user, &status);
      std::string last;
      for (const Language& row : Languages::sorted(IcuLocale(user), language)) {
        const auto name = row.displayName(IcuLocale(user), language);
        EXPECT_EQ(ucol_strcollUTF8(collator, last.c_str(), -1, name.c_str(), -1, &status), UCOL_LESS)
            << user << ": " << last << " before " << name;
        last = name;
      }
      EXPECT_TRUE(U_SUCCESS(status));
      ucol_close(collator);
    }
  }
}

TEST(DesktopLocale, AChineseUserSeesChineseNamesByTheirSounds) {
  std::vector<std::string> names;
  const IcuLocale locale("zh_CN");
  for (const Language& language : Languages::sorted(locale, "zh-Hans")) {
    names.push_back(language.displayName(locale, "zh-Hans"));
  }
  auto from = names.begin();
  for (const char* name :
       {"阿拉伯语", "德语", "法语", "日语", "英语", "中文"}) { // a, de, fa, ri, ying, zhong
    from = std::find(from, names.end(), name);
    ASSERT_NE(from, names.end()) << name;
  }
}

} // namespace
} // namespace tolvera
