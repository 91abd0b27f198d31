#include "Fakes/InMemoryPlatform.h"
#include "Tolvera/Model/AppSettings.h"
#include "Tolvera/Model/Strings.h"
#include "Tolvera/Model/TokenStore.h"

#include <QMetaProperty>
#include <QSignalSpy>
#include <QVariant>
#include <gtest/gtest.h>

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
  for (const auto& values : {InMemoryUserDefaults::Values(), wrong}) {
    const Fixture f(values);
    for (const auto& setting : stored)
      EXPECT_EQ(f.settings.property(setting.name), setting.initial) << setting.name;
    EXPECT_EQ(f.defaults.values, values) << "nothing is written";
  }
}

TEST(AppSettings, AssignmentsAreAnnouncedOnce) {
  for (const auto& setting : stored) {
    Fixture f({{"target", "es"}});
    const auto* meta = f.settings.metaObject();
    const QSignalSpy spy(&f.settings, meta->property(meta->indexOfProperty(setting.name)).notifySignal());
    for (int assignment = 0; assignment < 2; ++assignment)
      ASSERT_TRUE(f.settings.setProperty(setting.name, setting.changed)) << setting.name;
    EXPECT_EQ(spy.count(), 1) << setting.name;
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

  Fixture f; // a Japanese desktop
  for (const auto& [language, target] :
       {std::pair{UILanguage::chinese, "zh"}, {UILanguage::system, "en"}, {UILanguage::english, "en"}}) {
    f.settings.setUILanguage(language);
    EXPECT_EQ(f.settings.target(), target);
    EXPECT_FALSE(f.defaults.values.contains("target"));
  }
  f.settings.setTarget("en"); // the same value is now the user's choice
  f.settings.setUILanguage(UILanguage::chinese);
  EXPECT_EQ(f.settings.target(), "en");
  EXPECT_EQ(f.defaults.values["target"], Value("en"));
}

TEST(AppSettings, DubNeedsATargetThatCanBeSpoken) {
  for (const auto& [target, spoken] : {std::pair{"es", true}, {"yue", false}, {"tlh", false}, {"", false}}) {
    Fixture f({{"showSource", false}, {"target", target}});
    f.settings.setDub(true);
    EXPECT_EQ(f.defaults.values["dub"], Value(spoken)) << target;
    f.settings.setDub(false);
    EXPECT_EQ(f.settings.showSource(), spoken) << "the dub shows the source, and leaves it shown";

    Fixture loaded({{"dub", true}, {"target", target}, {"showSource", false}});
    EXPECT_EQ(loaded.settings.dub(), spoken) << target;
    EXPECT_EQ(loaded.defaults.values["dub"], Value(spoken)) << target;
    EXPECT_FALSE(loaded.settings.showSource()) << "the rule is for assignments";
  }
}

TEST(AppSettings, LastApplicationIsRemembered) {
  Fixture f({{"captureMode", "app"}});
  EXPECT_EQ(f.settings.captureMode(), CaptureMode::systemApp("", ""));
  f.settings.captureApp("org.example.Player", "Player");
  f.settings.captureEverything();
  EXPECT_EQ(f.defaults.values["captureMode"], Value("all"));
  f.settings.captureMicrophone();
  EXPECT_EQ(std::exchange(f.defaults.values["captureMode"], "app"), Value("mic"));
  EXPECT_EQ(AppSettings(f.in.platform).captureMode(), CaptureMode::systemApp("org.example.Player", "Player"));
}

TEST(TokenStore, KeepsOneFileForEachServer) {
  constexpr const char* local = "http://127.0.0.1:18790/livetranslate";
  constexpr const char* localFile = "/support/Tolvera/token-http___127.0.0.1_18790_livetranslate";
  test::InMemoryFileManager files;
  TokenStore::clear(files, local);
  TokenStore::save(files, "first", local);
  TokenStore::save(files, "second", "https://example.org");
  EXPECT_EQ(files.files[localFile], "first");
  EXPECT_EQ(TokenStore::load(files, "https://example.org"), "second");
  TokenStore::clear(files, "https://example.org");
  EXPECT_FALSE(TokenStore::load(files, "https://example.org"));
  const std::pair<std::string, std::optional<std::string>> contents[] = {
      {" \t to ken\r\n\n", "to ken"},
      {"", ""},
      {"\n \n", ""},
      {"\xff\xfe token", std::nullopt},
      {"a\r\nb", std::nullopt},
      {"a\x1b[b", std::nullopt},
      {std::string(4096, 'a'), std::string(4096, 'a')},
      {std::string(4097, 'a'), std::nullopt}};
  for (const auto& [content, token] : contents) {
    files.files[localFile] = content;
    EXPECT_EQ(TokenStore::load(files, local), token) << content;
  }
}

TEST(Strings, FollowTheChoiceThenTheSystem) {
  const std::tuple<UILanguage, const char*, bool> cases[] = {
      {UILanguage::chinese, "en_US", true},     {UILanguage::english, "zh_CN", false},
      {UILanguage::system, "zh_TW", true},      {UILanguage::system, "zh-Hans", true},
      {UILanguage::system, "zh_Hant_HK", true}, {UILanguage::system, "ja_JP", false},
      {UILanguage::system, "yue_CN", false},    {UILanguage::system, "en_CN", false}};
  for (const auto& [language, locale, chinese] : cases)
    EXPECT_EQ(
        Strings::forSetting(language, adapters::IcuLocale(locale), platform::DesktopFamily::freedesktop).zh,
        chinese)
        << locale;
}

TEST(Strings, VersionLineNamesTheProduct) {
  EXPECT_EQ(detail::versionLine({.zh = true}, nullptr), "托维拉 —");
  EXPECT_EQ(detail::versionLine({.zh = false}, ""), "Tolvera —");
  EXPECT_EQ(detail::versionLine({.zh = false}, "1.2.3"), "Tolvera 1.2.3");
}

} // namespace
} // namespace tolvera
