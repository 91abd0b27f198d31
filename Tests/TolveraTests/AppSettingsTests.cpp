#include "Tolvera/Model/AppSettings.h"

#include "Fakes/FixedLocale.h"
#include "Fakes/InMemoryUserDefaults.h"
#include "TolveraCore/Languages.h"

#include <QMetaProperty>
#include <QSignalSpy>
#include <QVariant>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>

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

// Every property that is stored, as the views know it.
struct Setting {
  const char* name;
  QVariant initial;
  QVariant changed;
  Value wrong; // another type, or a text that means nothing
};

const Setting stored[] = {{"uiLanguage", "system", "english", "klingon"},
                          {"target", "ja", "de", true},
                          {"source", "auto", "fr", 3.0},
                          {"showSource", true, false, "no"},
                          {"voice", "Tina", "Nobody", 1.0},
                          {"menuBarEnabled", true, false, 0.0},
                          {"overlayEnabled", true, false, "false"},
                          {"overlayFontSize", 22.0, 900.5, "30"},
                          {"serverURL", "http://127.0.0.1:18790/livetranslate", "not a url", false},
                          {"seenOnboarding", false, true, "true"},
                          {"dub", false, true, 1.0},
                          {"captureMode", QVariant::fromValue(CaptureMode::systemEverything()),
                           QVariant::fromValue(CaptureMode::systemApp("org.example.Player", "播放器")),
                           "window"}};

TEST(AppSettings, HaveTheirDefaultsWithoutAStoreAndForWhatIsNoValueInIt) {
  InMemoryUserDefaults::Values wrong;
  for (const auto& setting : stored) wrong[setting.name] = setting.wrong;
  const Fixture empty;
  const Fixture garbled(wrong);
  for (const auto& setting : stored) {
    EXPECT_EQ(empty.settings.property(setting.name), setting.initial) << setting.name;
    EXPECT_EQ(garbled.settings.property(setting.name), setting.initial) << setting.name;
  }
  EXPECT_EQ(empty.defaults.writes(), 0u);
}

TEST(AppSettings, EachAnnouncesAChangeOnceIsWrittenEachTimeAndReadBack) {
  for (const auto& setting : stored) {
    Fixture f({{"target", "es"}});
    std::map<std::string, std::unique_ptr<QSignalSpy>> spies;
    const QMetaObject& meta = *f.settings.metaObject();
    for (const auto& each : stored) {
      const QMetaProperty property = meta.property(meta.indexOfProperty(each.name));
      spies[each.name] = std::make_unique<QSignalSpy>(&f.settings, property.notifySignal());
    }
    for (int assignment = 0; assignment < 2; ++assignment) {
      const auto writes = f.defaults.writes();
      ASSERT_TRUE(f.settings.setProperty(setting.name, setting.changed)) << setting.name;
      EXPECT_GT(f.defaults.writes(), writes) << setting.name;
    }
    for (const auto& [name, spy] : spies)
      EXPECT_EQ(spy->count(), name == setting.name ? 1 : 0) << name << " for " << setting.name;
    EXPECT_EQ(AppSettings(f.defaults, f.locale).property(setting.name), setting.changed) << setting.name;
  }
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
    const QSignalSpy announced(&f.settings, &AppSettings::dubChanged);
    f.settings.setDub(true);
    EXPECT_FALSE(f.settings.dub()) << target;
    EXPECT_FALSE(f.settings.showSource()) << target;
    EXPECT_EQ(f.stored("dub"), Value(false)) << target;
    EXPECT_EQ(announced.count(), 2) << "the switch goes on, and off again";
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
  EXPECT_TRUE(f.settings.captureMode().bundleID.isEmpty());
  f.settings.captureEverything();
  EXPECT_EQ(f.stored("captureMode"), text("all"));
  f.defaults.setObject("captureMode", std::string("app"));
  EXPECT_EQ(AppSettings(f.defaults, f.locale).captureMode(),
            CaptureMode::systemApp("org.example.Player", "Player"));
  EXPECT_EQ(Fixture({{"captureMode", "app"}}).settings.captureMode(), CaptureMode::systemApp("", ""));
}

} // namespace
} // namespace tolvera
