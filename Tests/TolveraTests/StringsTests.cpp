#include "Tolvera/Model/Strings.h"

#include "Fakes/FixedLocale.h"

#include <gtest/gtest.h>

namespace tolvera {
namespace {

using test::FixedLocale;

constexpr Strings chinese{.zh = true};
constexpr Strings english{.zh = false};

TEST(Strings, AreChineseByChoiceOrOnAnyChineseSystemAndEnglishOtherwise) {
  EXPECT_TRUE(Strings::forSetting(UILanguage::chinese, FixedLocale("en_US")).zh);
  EXPECT_FALSE(Strings::forSetting(UILanguage::english, FixedLocale("zh_CN")).zh);
  for (const char* identifier : {"zh", "zh_CN", "zh_TW", "zh-Hans", "zh_Hant_HK"})
    EXPECT_TRUE(Strings::forSetting(UILanguage::system, FixedLocale(identifier)).zh) << identifier;
  for (const char* identifier : {"ja_JP", "fr", "yue_CN", "en_CN", ""})
    EXPECT_FALSE(Strings::forSetting(UILanguage::system, FixedLocale(identifier)).zh) << identifier;
}

TEST(Strings, TheVersionIsADashIfTheBuildHasNone) {
  EXPECT_EQ(detail::versionLine(chinese, nullptr), "托维拉 —");
  EXPECT_EQ(detail::versionLine(english, ""), "Tolvera —");
  EXPECT_EQ(detail::versionLine(english, "1.2.3"), "Tolvera 1.2.3");
  EXPECT_TRUE(chinese.versionLine().startsWith("托维拉 "));
}

TEST(Strings, FirstStepsAreThreeInBothLanguages) {
  ASSERT_EQ(chinese.onboardSteps().size(), 3);
  ASSERT_EQ(english.onboardSteps().size(), 3);
  EXPECT_EQ(chinese.onboardSteps()[2],
            "第一次开始时，macOS 会请求录制系统音频的权限，点「允许」；如果错过了，到「系统设置 → "
            "隐私与安全性 → 屏幕与系统音频录制」里打开托维拉");
}

} // namespace
} // namespace tolvera
