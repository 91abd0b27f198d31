#include "Tolvera/AppSettings.h"

#include "Support/FixedLocale.h"
#include "Support/InMemoryUserDefaults.h"
#include "TolveraCore/Languages.h"

#include <QMetaProperty>
#include <QVariant>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tolvera {
namespace {

using test::FixedLocale;
using test::InMemoryUserDefaults;
using Value = platform::UserDefaults::Value;

// Settings over a store that a test has filled.
struct Fixture {
  explicit Fixture(InMemoryUserDefaults::Values values = {}, std::string localeIdentifier = "ja_JP")
      : defaults(std::move(values)), locale(std::move(localeIdentifier)), settings(defaults, locale) {}

  [[nodiscard]] std::optional<Value> stored(const char* key) const { return defaults.objectForKey(key); }

  InMemoryUserDefaults defaults;
  FixedLocale locale;
  AppSettings settings;
};

std::optional<Value> text(const char* value) { return Value(std::string(value)); }

TEST(AppSettings, AnEmptyStoreGivesTheDefaultsAndStaysEmpty) {
  Fixture f;
  EXPECT_EQ(f.settings.uiLanguage(), UILanguage::system);
  EXPECT_EQ(f.settings.target(), "ja");
  EXPECT_EQ(f.settings.source(), "auto");
  EXPECT_TRUE(f.settings.showSource());
  EXPECT_EQ(f.settings.voice(), "Tina");
  EXPECT_TRUE(f.settings.menuBarEnabled());
  EXPECT_TRUE(f.settings.overlayEnabled());
  EXPECT_EQ(f.settings.overlayFontSize(), 22.0);
  EXPECT_EQ(f.settings.serverURL(), "http://127.0.0.1:18790/livetranslate");
  EXPECT_FALSE(f.settings.seenOnboarding());
  EXPECT_FALSE(f.settings.dub());
  EXPECT_EQ(f.settings.captureMode(), CaptureMode::systemEverything());
  EXPECT_EQ(f.defaults.writes(), 0u);
}

TEST(AppSettings, ReadBackWhatWasAssigned) {
  Fixture f;
  f.settings.setUILanguage(UILanguage::chinese);
  f.settings.setTarget("de");
  f.settings.setSource("fr");
  f.settings.setVoice("Ethan");
  f.settings.setMenuBarEnabled(false);
  f.settings.setOverlayEnabled(false);
  f.settings.setOverlayFontSize(31.5);
  f.settings.setServerURL("not a url");
  f.settings.setSeenOnboarding(true);
  f.settings.setDub(true);
  f.settings.setShowSource(false);
  f.settings.setCaptureMode(CaptureMode::systemApp("org.example.Player", "播放器"));

  const AppSettings again(f.defaults, f.locale);
  for (int i = AppSettings::staticMetaObject.propertyOffset();
       i < AppSettings::staticMetaObject.propertyCount(); ++i) {
    const QMetaProperty property = AppSettings::staticMetaObject.property(i);
    if (property.metaType() == QMetaType::fromType<CaptureMode>() ||
        property.metaType() == QMetaType::fromType<Strings>())
      continue;
    EXPECT_EQ(property.read(&again), property.read(&f.settings)) << property.name();
  }
  EXPECT_EQ(again.captureMode(), CaptureMode::systemApp("org.example.Player", "播放器"));
  EXPECT_EQ(again.voice(), "Ethan");
  EXPECT_FALSE(again.showSource());
}

TEST(AppSettings, ValuesOfTheWrongTypeOrUnknownTextsCountAsMissing) {
  Fixture f({{"uiLanguage", "klingon"},
             {"target", true},
             {"source", 3.0},
             {"showSource", "no"},
             {"menuBarEnabled", 0.0},
             {"overlayEnabled", "false"},
             {"overlayFontSize", "30"},
             {"seenOnboarding", "true"},
             {"dub", 1.0},
             {"captureMode", "window"}});
  EXPECT_EQ(f.settings.uiLanguage(), UILanguage::system);
  EXPECT_EQ(f.settings.target(), "ja");
  EXPECT_EQ(f.settings.source(), "auto");
  EXPECT_TRUE(f.settings.showSource());
  EXPECT_TRUE(f.settings.menuBarEnabled());
  EXPECT_TRUE(f.settings.overlayEnabled());
  EXPECT_EQ(f.settings.overlayFontSize(), 22.0);
  EXPECT_FALSE(f.settings.seenOnboarding());
  EXPECT_FALSE(f.settings.dub());
  EXPECT_EQ(f.settings.captureMode(), CaptureMode::systemEverything());
}

TEST(AppSettings, TakesOddButWellTypedValuesAsTheyAre) {
  Fixture f({{"overlayFontSize", 900.0}, {"target", "tlh"}, {"voice", "Nobody"}, {"serverURL", "::"}});
  EXPECT_EQ(f.settings.overlayFontSize(), 900.0);
  EXPECT_EQ(f.settings.target(), "tlh");
  EXPECT_EQ(f.settings.voice(), "Nobody");
  EXPECT_EQ(f.settings.serverURL(), "::");
}

TEST(AppSettings, AGuessOfEnglishBecomesChineseForAChineseInterface) {
  const auto target = [](std::string locale, const char* uiLanguage) {
    return Fixture({{"uiLanguage", uiLanguage}}, std::move(locale)).settings.target();
  };
  EXPECT_EQ(target("en_US", "chinese"), "zh");
  EXPECT_EQ(target("eo", "chinese"), "zh");
  EXPECT_EQ(target("ja_JP", "chinese"), "ja");
  EXPECT_EQ(target("en_US", "english"), "en");
  EXPECT_EQ(target("zh_HK", "system"), "yue");
}

TEST(AppSettings, TheTargetFollowsTheInterfaceLanguageUntilTheUserChoosesOne) {
  Fixture f({{"uiLanguage", "chinese"}});
  f.settings.setUILanguage(UILanguage::english);
  EXPECT_EQ(f.settings.target(), "en");
  EXPECT_FALSE(f.stored("target"));
  f.settings.setUILanguage(UILanguage::chinese);
  EXPECT_EQ(f.settings.target(), "zh");
  EXPECT_FALSE(f.stored("target"));
  f.settings.setUILanguage(UILanguage::system); // of a Japanese desktop: the interface is English
  EXPECT_EQ(f.settings.target(), "en");

  f.settings.setTarget("en"); // the same value: now it is a choice
  f.settings.setUILanguage(UILanguage::chinese);
  EXPECT_EQ(f.settings.target(), "en");
  EXPECT_EQ(f.stored("target"), text("en"));
}

TEST(AppSettings, SwitchingTheDubOnShowsTheSourceAndSwitchingItOffDoesNotHideIt) {
  Fixture f({{"showSource", false}, {"target", "es"}});
  f.settings.setDub(true);
  EXPECT_TRUE(f.settings.dub());
  EXPECT_TRUE(f.settings.showSource());
  EXPECT_EQ(f.stored("dub"), Value(true));
  EXPECT_EQ(f.stored("showSource"), Value(true));
  f.settings.setDub(false);
  EXPECT_TRUE(f.settings.showSource());
  EXPECT_EQ(f.stored("dub"), Value(false));
}

TEST(AppSettings, TheDubStaysOffForATargetThatCannotBeSpoken) {
  for (const char* target : {"yue", "tlh", ""}) {
    Fixture f({{"showSource", false}, {"target", target}});
    std::vector<bool> announced;
    QObject::connect(&f.settings, &AppSettings::dubChanged, [&] { announced.push_back(f.settings.dub()); });
    f.settings.setDub(true);
    EXPECT_FALSE(f.settings.dub()) << target;
    EXPECT_FALSE(f.settings.showSource()) << target;
    EXPECT_EQ(f.stored("dub"), Value(false)) << target;
    EXPECT_THAT(announced, testing::ElementsAre(true, false));
  }
}

TEST(AppSettings, LoadingCorrectsOnlyADubThatCannotBe) {
  Fixture impossible({{"dub", true}, {"target", "yue"}});
  EXPECT_FALSE(impossible.settings.dub());
  EXPECT_EQ(impossible.stored("dub"), Value(false));

  Fixture possible({{"dub", true}, {"target", "es"}, {"showSource", false}});
  EXPECT_TRUE(possible.settings.dub());
  EXPECT_FALSE(possible.settings.showSource());
  EXPECT_EQ(possible.defaults.writes(), 0u);
}

TEST(AppSettings, TheLastApplicationIsRememberedBehindAnotherCaptureMode) {
  Fixture f;
  f.settings.captureApp("org.example.Player", "Player");
  f.settings.captureMicrophone();
  EXPECT_EQ(f.stored("captureMode"), text("mic"));
  EXPECT_EQ(f.stored("captureBundle"), text("org.example.Player"));
  EXPECT_TRUE(f.settings.captureMode().bundleID.isEmpty());
  f.settings.captureEverything();
  EXPECT_EQ(f.stored("captureMode"), text("all"));

  f.defaults.setObject("captureMode", std::string("app"));
  EXPECT_EQ(AppSettings(f.defaults, f.locale).captureMode(),
            CaptureMode::systemApp("org.example.Player", "Player"));
  Fixture bare({{"captureMode", "app"}});
  EXPECT_EQ(bare.settings.captureMode(), CaptureMode::systemApp("", ""));
  EXPECT_NE(bare.settings.captureMode(), CaptureMode::systemEverything());
}

// Through the properties that the views use, so that each has its own signal.
TEST(AppSettings, AnnouncesEachChangeOnceAndWritesEqualValuesWithoutAWord) {
  const std::pair<const char*, QVariant> changes[] = {
      {"uiLanguage", "english"},
      {"target", "de"},
      {"source", "fr"},
      {"showSource", false},
      {"voice", "Harvey"},
      {"menuBarEnabled", false},
      {"overlayEnabled", false},
      {"overlayFontSize", 40.0},
      {"serverURL", "http://localhost"},
      {"seenOnboarding", true},
      {"dub", true},
      {"captureMode", QVariant::fromValue(CaptureMode::microphone())},
  };
  for (const auto& [name, value] : changes) {
    Fixture f({{"target", "es"}});
    std::vector<std::string> announced;
    const QMetaObject& meta = AppSettings::staticMetaObject;
    QObject::connect(&f.settings, &AppSettings::uiLanguageChanged,
                     [&] { announced.emplace_back("uiLanguage"); });
    QObject::connect(&f.settings, &AppSettings::targetChanged, [&] { announced.emplace_back("target"); });
    QObject::connect(&f.settings, &AppSettings::sourceChanged, [&] { announced.emplace_back("source"); });
    QObject::connect(&f.settings, &AppSettings::showSourceChanged,
                     [&] { announced.emplace_back("showSource"); });
    QObject::connect(&f.settings, &AppSettings::voiceChanged, [&] { announced.emplace_back("voice"); });
    QObject::connect(&f.settings, &AppSettings::menuBarEnabledChanged,
                     [&] { announced.emplace_back("menuBarEnabled"); });
    QObject::connect(&f.settings, &AppSettings::overlayEnabledChanged,
                     [&] { announced.emplace_back("overlayEnabled"); });
    QObject::connect(&f.settings, &AppSettings::overlayFontSizeChanged,
                     [&] { announced.emplace_back("overlayFontSize"); });
    QObject::connect(&f.settings, &AppSettings::serverURLChanged,
                     [&] { announced.emplace_back("serverURL"); });
    QObject::connect(&f.settings, &AppSettings::seenOnboardingChanged,
                     [&] { announced.emplace_back("seenOnboarding"); });
    QObject::connect(&f.settings, &AppSettings::dubChanged, [&] { announced.emplace_back("dub"); });
    QObject::connect(&f.settings, &AppSettings::captureModeChanged,
                     [&] { announced.emplace_back("captureMode"); });

    ASSERT_GE(meta.indexOfProperty(name), 0) << name;
    EXPECT_STREQ(meta.property(meta.indexOfProperty(name)).notifySignal().name().constData(),
                 (std::string(name) + "Changed").c_str());
    ASSERT_TRUE(f.settings.setProperty(name, value)) << name;
    EXPECT_THAT(announced, testing::ElementsAre(name));
    const auto writes = f.defaults.writes();
    ASSERT_TRUE(f.settings.setProperty(name, value)) << name;
    EXPECT_THAT(announced, testing::ElementsAre(name));
    EXPECT_GT(f.defaults.writes(), writes) << name;
  }
}

} // namespace
} // namespace tolvera
