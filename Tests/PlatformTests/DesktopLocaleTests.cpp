#include "Platform/Linux/IcuLocale.h"

#include "Support/TemporaryEnvironment.h"
#include "TolveraCore/Languages.h"

#include <unicode/ucol.h>
#include <unicode/uloc.h>
#include <unicode/ustring.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace tolvera {
namespace {

using adapters::IcuLocale;

TEST(DesktopLocale, FollowsTheEnvironmentInTheOrderOfItsVariables) {
  struct Case {
    std::optional<std::string> all, messages, lang;
    const char* identifier;
    const char* language;
  };
  const Case cases[] = {
      {"zh_CN.UTF-8", "fr_FR", "de_DE", "zh_CN", "zh"},
      {"", "fr_FR.UTF-8", "de_DE", "fr_FR", "fr"},
      {std::nullopt, std::nullopt, "ja_JP.eucJP", "ja_JP", "ja"},
      {std::nullopt, std::nullopt, std::nullopt, "en_US", "en"},
      {"C", "fr_FR", "de_DE", "en_US", "en"},
      {std::nullopt, "POSIX", std::nullopt, "en_US", "en"},
      {std::nullopt, std::nullopt, "C.UTF-8", "en_US", "en"},
      {std::nullopt, std::nullopt, "sr_RS.UTF-8@latin", "sr_Latn_RS", "sr"},
      {std::nullopt, std::nullopt, "uz@cyrillic", "uz_Cyrl", "uz"},
      {std::nullopt, std::nullopt, "de_AT@euro", "de_AT", "de"},
      {std::nullopt, std::nullopt, "yue_HK.UTF-8", "yue_HK", "yue"},
  };
  for (const Case& each : cases) {
    test::TemporaryEnvironment environment;
    environment.set("LC_ALL", each.all);
    environment.set("LC_MESSAGES", each.messages);
    environment.set("LANG", each.lang);
    const IcuLocale locale;
    EXPECT_EQ(locale.currentIdentifier(), each.identifier);
    EXPECT_EQ(locale.currentLanguageCode(), each.language) << each.identifier;
  }
}

TEST(DesktopLocale, AnIdentifierWithoutALanguageHasNoLanguageCode) {
  EXPECT_FALSE(IcuLocale("").currentLanguageCode());
  EXPECT_FALSE(IcuLocale("_CN").currentLanguageCode());
}

TEST(DesktopLocale, NamesLanguagesAndSaysNothingWhereIcuOnlyRepeatsTheCode) {
  const IcuLocale locale("en_US");
  EXPECT_EQ(locale.localizedString("zh", "zh-Hans"), "中文");
  EXPECT_EQ(locale.localizedString("nb", "en"), "Norwegian Bokmål");
  EXPECT_EQ(locale.localizedString("de", "fr"), "allemand");
  for (const char* code : {"qqz", "", "xx", "auto"}) EXPECT_FALSE(locale.localizedString(code, "en")) << code;
  for (const Language& language : Languages::all) {
    EXPECT_TRUE(locale.localizedString(language.code, "en")) << language.code;
    EXPECT_TRUE(locale.localizedString(language.code, "zh-Hans")) << language.code;
  }
  const Language unknown{"qqz", "Something else", false};
  EXPECT_EQ(unknown.displayName(locale, "zh-Hans"), "Something else");
}

TEST(DesktopLocale, WritesTitleCaseByTheRulesOfTheLocale) {
  const IcuLocale locale("en_US");
  EXPECT_EQ(locale.capitalized("norwegian bokmål", "en"), "Norwegian Bokmål");
  EXPECT_EQ(locale.capitalized("iNUKTITUT", "en"), "Inuktitut");
  EXPECT_EQ(locale.capitalized("ingilizce", "tr"), "İngilizce");
  EXPECT_EQ(locale.capitalized("élan ßa ǆ", "fr"), "Élan Ssa ǅ");
  EXPECT_EQ(locale.capitalized("中文", "zh-Hans"), "中文");
  EXPECT_EQ(locale.capitalized("", "en"), "");
}

TEST(DesktopLocale, ComparesByTheUsersLocaleWhateverTheTextsAreIn) {
  EXPECT_LT(IcuLocale("de_DE").localizedCompare("Öl", "Zebra"), 0);
  EXPECT_GT(IcuLocale("sv_SE").localizedCompare("Öl", "Zebra"), 0);
  EXPECT_EQ(IcuLocale("en_US").localizedCompare("same", "same"), 0);
  EXPECT_GT(IcuLocale("en_US").localizedCompare("same", ""), 0);
  EXPECT_NE(IcuLocale("en_US").localizedCompare("ÖL", "öl"), 0);
  EXPECT_EQ(IcuLocale("en_US").localizedCaseInsensitiveCompare("ÖL", "öl"), 0);
  EXPECT_NE(IcuLocale("en_US").localizedCaseInsensitiveCompare("OL", "öl"), 0);
}

TEST(DesktopLocale, GuessesATargetForEveryLocaleThatTheSystemCanName) {
  for (std::int32_t i = 0; i < uloc_countAvailable(); ++i) {
    const std::string code = Languages::guessTarget(IcuLocale(uloc_getAvailable(i)).currentIdentifier());
    EXPECT_TRUE(Languages::find(code)) << uloc_getAvailable(i);
  }
}

// The pickers' order, made by ICU's plain C interface from beginning to end.
std::vector<std::string_view> orderByIcu(const char* userLocale, const char* nameLocale) {
  struct Row {
    std::string_view code;
    std::u16string name;
  };
  UErrorCode status = U_ZERO_ERROR;
  std::vector<Row> rows;
  for (const Language& language : Languages::all) {
    UChar plain[100];
    UChar title[100];
    uloc_getDisplayLanguage(std::string(language.code).c_str(), nameLocale, plain, 100, &status);
    const auto length = u_strToTitle(title, 100, plain, -1, nullptr, nameLocale, &status);
    rows.push_back({language.code, std::u16string(title, static_cast<std::size_t>(length))});
  }
  UCollator* collator = ucol_open(userLocale, &status);
  const auto key = [collator](const std::u16string& name) {
    std::vector<std::uint8_t> bytes(400);
    bytes.resize(static_cast<std::size_t>(ucol_getSortKey(
        collator, name.data(), static_cast<int>(name.size()), bytes.data(), static_cast<int>(bytes.size()))));
    return bytes;
  };
  std::ranges::sort(rows,
                    [&](const Row& left, const Row& right) { return key(left.name) < key(right.name); });
  ucol_close(collator);
  EXPECT_TRUE(U_SUCCESS(status));
  std::vector<std::string_view> codes;
  for (const Row& row : rows) codes.push_back(row.code);
  return codes;
}

TEST(DesktopLocale, PickersAreInIcusOwnOrder) {
  for (const char* user : {"en_US", "zh_CN", "zh_TW", "sv_SE", "ja_JP"}) {
    for (const char* names : {"zh-Hans", "en"}) {
      std::vector<std::string_view> codes;
      for (const Language& language : Languages::sorted(IcuLocale(user), names))
        codes.push_back(language.code);
      EXPECT_EQ(codes, orderByIcu(user, names)) << user << " " << names;
    }
  }
}

TEST(DesktopLocale, AChineseUserSeesChineseNamesByTheirSounds) {
  std::vector<std::string> names;
  const IcuLocale locale("zh_CN");
  for (const Language& language : Languages::sorted(locale, "zh-Hans"))
    names.push_back(language.displayName(locale, "zh-Hans"));
  const auto place = [&names](const char* name) { return std::ranges::find(names, name) - names.begin(); };
  EXPECT_EQ(place("阿拉伯语"), 0);         // a
  EXPECT_LT(place("德语"), place("法语")); // de, fa
  EXPECT_LT(place("法语"), place("日语")); // fa, ri
  EXPECT_LT(place("日语"), place("中文")); // ri, zhong
  EXPECT_LT(place("英语"), place("中文")); // ying, zhong
}

} // namespace
} // namespace tolvera
