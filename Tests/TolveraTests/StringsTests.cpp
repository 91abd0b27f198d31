#include "Tolvera/Model/Strings.h"

#include "Platform/Linux/Desktop/IcuLocale.h"

#include <gtest/gtest.h>

namespace tolvera {
namespace {

TEST(Strings, FollowTheChoiceThenTheSystem) {
  const std::tuple<UILanguage, const char*, bool> cases[] = {
      {UILanguage::chinese, "en_US", true},     {UILanguage::english, "zh_CN", false},
      {UILanguage::system, "zh_TW", true},      {UILanguage::system, "zh-Hans", true},
      {UILanguage::system, "zh_Hant_HK", true}, {UILanguage::system, "ja_JP", false},
      {UILanguage::system, "yue_CN", false},    {UILanguage::system, "en_CN", false}};
  for (const auto& [language, locale, chinese] : cases)
    EXPECT_EQ(Strings::forSetting(language, adapters::IcuLocale(locale), platform::DesktopFamily::freedesktop).zh, chinese) << locale;
}

TEST(Strings, VersionLineNamesTheProduct) {
  EXPECT_EQ(detail::versionLine({.zh = true}, nullptr), "托维拉 —");
  EXPECT_EQ(detail::versionLine({.zh = false}, ""), "Tolvera —");
  EXPECT_EQ(detail::versionLine({.zh = false}, "1.2.3"), "Tolvera 1.2.3");
}

} // namespace
} // namespace tolvera
