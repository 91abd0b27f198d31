#include "Harness/TemporaryEnvironment.h"
#include "Harness/TestLoop.h"
#include "Platform/Linux/Desktop/ExecutorNotificationCenter.h"
#include "Platform/Linux/Desktop/IcuLocale.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace tolvera {
namespace {

using adapters::IcuLocale;
using Texts = std::vector<std::string>;

TEST(Locale, FollowsEnvironment) {
  const Texts cases[] = {
      // LC_ALL, LC_MESSAGES, LANG, LANGUAGE, the preferred languages
      {"zh_CN.UTF-8", "fr_FR", "de_DE", "", "zh_CN"},      {"", "fr_FR.UTF-8", "de_DE", "", "fr_FR"},
      {"", "", "sr_RS.UTF-8@latin", "", "sr_Latn_RS"},     {"", "C", "", "", "en_US"},
      {"", "", "fr_FR", "zh_CN.UTF-8::en", "zh_CN", "en"},
  };
  test::TemporaryEnvironment environment;
  for (const Texts& each : cases) {
    auto value = each.begin();
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG", "LANGUAGE"}) environment.set(name, *value++);
    EXPECT_EQ(IcuLocale().preferredLanguages(), Texts(value, each.end()));
  }
  EXPECT_EQ(IcuLocale("yue_HK").currentLanguageCode(), "yue");
}

TEST(Locale, ComparesByUserLocale) {
  EXPECT_LT(IcuLocale("de_DE").localizedCompare("Öl", "Zebra"), 0);
  EXPECT_GT(IcuLocale("sv_SE").localizedCompare("Öl", "Zebra"), 0);
  EXPECT_LT(IcuLocale("zh_CN").localizedCompare("阿拉伯语", "德语"), 0); // by sound: a, de
  EXPECT_EQ(IcuLocale("en_US").localizedCaseInsensitiveCompare("ÖL", "öl"), 0);
}

TEST(Notifications, ReachObserversOnMainThread) {
  test::TestLoop loop;
  auto center = std::make_unique<adapters::ExecutorNotificationCenter>(loop.executor());
  const auto post = center->poster();
  int counted = 0;
  std::unique_ptr<platform::NotificationCenter::Registration> own, next;
  own = center->addObserver("output", [&] { // ends itself and the one after it, and adds one
    own.reset();
    next = center->addObserver("output", [&counted] { counted += 1; });
  });
  next = center->addObserver("output", [&counted] { counted += 1'000'000; });
  for (const char* name : {"input", "output"}) center->post(name);
  EXPECT_TRUE(own); // comes later
  loop.settle();
  std::jthread thread([post] {
    for (int number = 0; number < 500; ++number) post("output");
  });
  while (counted < 500) loop.settle();
  post("output");
  center.reset();
  loop.settle();
  EXPECT_EQ(counted, 500);
}

} // namespace
} // namespace tolvera
