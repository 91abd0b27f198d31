#include "Tolvera/Model/AppSettings.h"

#include "Fakes/InMemoryPlatform.h"

#include <QMetaProperty>
#include <QSignalSpy>
#include <QVariant>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>

namespace tolvera {
namespace {

using test::InMemoryUserDefaults;
using Value = platform::UserDefaults::Value;

// Settings over a store that a test has filled.
struct Fixture {
  explicit Fixture(InMemoryUserDefaults::Values values = {}, std::string localeIdentifier = "ja_JP")
      : settings(prepare(std::move(values), std::move(localeIdentifier))) {}

  platform::Platform& prepare(InMemoryUserDefaults::Values values, std::string localeIdentifier) {
    defaults.values = std::move(values);
    in.locale = adapters::IcuLocale(std::move(localeIdentifier));
    return in.platform;
  }

  [[nodiscard]] std::optional<Value> stored(const char* key) const { return defaults.objectForKey(key); }

  test::InMemoryPlatform in;
  InMemoryUserDefaults& defaults = in.userDefaults;
  AppSettings settings;
};

// Every property that is stored.
struct Setting {
  const char* name;
  QVariant initial;
  QVariant changed;
  Value wrong; // another type, or an unknown text
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

TEST(AppSettings, DefaultsReplaceMissingValues) {
  InMemoryUserDefaults::Values wrong;
  for (const auto& setting : stored) wrong[setting.name] = setting.wrong;
  const Fixture empty;
  const Fixture garbled(wrong);
  for (const auto& setting : stored) {
    EXPECT_EQ(empty.settings.property(setting.name), setting.initial) << setting.name;
    EXPECT_EQ(garbled.settings.property(setting.name), setting.initial) << setting.name;
  }
  EXPECT_EQ(empty.defaults.writes, 0U);
  EXPECT_EQ(Fixture({{"captureMode", "app"}}).settings.captureMode(), CaptureMode::systemApp("", ""));
}

TEST(AppSettings, AssignmentsAreAnnouncedOnce) {
  for (const auto& setting : stored) {
    Fixture f({{"target", "es"}});
    std::map<std::string, std::unique_ptr<QSignalSpy>> spies;
    const QMetaObject& meta = *f.settings.metaObject();
    for (const auto& each : stored) {
      const QMetaProperty property = meta.property(meta.indexOfProperty(each.name));
      spies[each.name] = std::make_unique<QSignalSpy>(&f.settings, property.notifySignal());
    }
    for (int assignment = 0; assignment < 2; ++assignment) { // each is written
      f.defaults.writes = 0;
      ASSERT_TRUE(f.settings.setProperty(setting.name, setting.changed)) << setting.name;
      EXPECT_GT(f.defaults.writes, 0U) << setting.name;
    }
    for (const auto& [name, spy] : spies)
      EXPECT_EQ(spy->count(), name == setting.name ? 1 : 0) << name << " for " << setting.name;
    EXPECT_EQ(AppSettings(f.in.platform).property(setting.name), setting.changed) << setting.name;
  }
}

TEST(AppSettings, TargetFollowsTheInterfaceLanguage) {
  const std::tuple<const char*, const char*, const char*> guesses[] = {{"en_US", "chinese", "zh"},
                                                                       {"eo", "chinese", "zh"},
                                                                       {"ja_JP", "chinese", "ja"},
                                                                       {"en_US", "english", "en"},
                                                                       {"zh_HK", "system", "yue"}};
  for (const auto& [locale, language, target] : guesses)
    EXPECT_EQ(Fixture({{"uiLanguage", language}}, locale).settings.target(), target) << locale;

  Fixture f({{"uiLanguage", "chinese"}});
  for (const auto& [language, target] : {std::pair{UILanguage::english, "en"},
                                         {UILanguage::chinese, "zh"},
                                         {UILanguage::system, "en"}}) { // of a Japanese desktop
    f.settings.setUILanguage(language);
    EXPECT_EQ(f.settings.target(), target);
    EXPECT_FALSE(f.stored("target"));
  }
  f.settings.setTarget("en"); // the same value is now the user's choice
  f.settings.setUILanguage(UILanguage::chinese);
  EXPECT_EQ(f.settings.target(), "en");
  EXPECT_EQ(f.stored("target"), Value(std::string("en")));
}

TEST(AppSettings, DubNeedsATargetThatCanBeSpoken) {
  for (const auto& [target, spoken] : {std::pair{"es", true}, {"yue", false}, {"tlh", false}, {"", false}}) {
    Fixture f({{"showSource", false}, {"target", target}});
    const QSignalSpy announced(&f.settings, &AppSettings::dubChanged);
    f.settings.setDub(true);
    EXPECT_EQ(announced.count(), spoken ? 1 : 2) << "the switch goes on, and off again";
    EXPECT_EQ(f.stored("dub"), Value(spoken)) << target;
    EXPECT_EQ(f.settings.showSource(), spoken) << "the dub shows the source";
    f.settings.setDub(false);
    EXPECT_EQ(f.settings.showSource(), spoken) << "and leaves it shown";

    const Fixture loaded({{"dub", true}, {"target", target}, {"showSource", false}});
    EXPECT_EQ(loaded.settings.dub(), spoken) << target;
    EXPECT_EQ(loaded.stored("dub"), Value(spoken)) << target;
    EXPECT_FALSE(loaded.settings.showSource()) << "the rule is for assignments";
  }
}

TEST(AppSettings, LastApplicationIsRemembered) {
  Fixture f;
  f.settings.captureApp("org.example.Player", "Player");
  f.settings.captureMicrophone();
  EXPECT_EQ(f.stored("captureMode"), Value(std::string("mic")));
  EXPECT_TRUE(f.settings.captureMode().bundleID.isEmpty());
  f.settings.captureEverything();
  EXPECT_EQ(f.stored("captureMode"), Value(std::string("all")));
  f.defaults.setObject("captureMode", std::string("app"));
  EXPECT_EQ(AppSettings(f.in.platform).captureMode(),
            CaptureMode::systemApp("org.example.Player", "Player"));
}

} // namespace
} // namespace tolvera
