#include "Platform/Linux/Desktop/JsonUserDefaults.h"

#include "Fakes/InMemoryUserDefaults.h"
#include "Harness/PrivateGraph.h"
#include "Harness/TemporaryDirectory.h"
#include "Harness/TemporaryEnvironment.h"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>

#include <sys/wait.h>

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <limits>
#include <random>
#include <sstream>
#include <thread>

namespace tolvera {
namespace {

namespace fs = std::filesystem;
namespace json = boost::json;
using namespace std::chrono_literals;
using adapters::JsonUserDefaults;
using Value = platform::UserDefaults::Value;

std::string contentOf(const fs::path& file) {
  std::stringstream content;
  content << std::ifstream(file).rdbuf();
  return content.str();
}

void write(const fs::path& file, std::string_view content) { std::ofstream(file) << content; }

json::object parsed(const fs::path& file) { return json::parse(contentOf(file)).as_object(); }

class DesktopUserDefaults : public testing::Test {
 protected:
  test::TemporaryDirectory root;
  const fs::path file = root / "p.json";
};

TEST_F(DesktopUserDefaults, AnswerAtOnceWithTheTypeThatWasAssignedAsThoseInMemoryDo) {
  test::InMemoryUserDefaults inMemory;
  JsonUserDefaults inFile(file);
  for (platform::UserDefaults* store : std::initializer_list<platform::UserDefaults*>{&inMemory, &inFile}) {
    EXPECT_FALSE(store->objectForKey("value"));
    store->setObject("value", true);
    EXPECT_EQ(store->objectForKey("value"), Value(true));
    EXPECT_FALSE(store->stringForKey("value"));
    EXPECT_FALSE(store->doubleForKey("value"));
    store->setObject("value", std::string("true 汉字 \"\\\n\x01"));
    EXPECT_EQ(store->stringForKey("value"), "true 汉字 \"\\\n\x01");
    EXPECT_FALSE(store->boolForKey("value"));
    store->removeObjectForKey("value");
    store->removeObjectForKey("value");
    EXPECT_FALSE(store->objectForKey("value"));
  }
}

TEST_F(DesktopUserDefaults, OutlastTheProcessWithTheirTypesInAPrivateFile) {
  test::TemporaryEnvironment environment;
  environment.set("XDG_CONFIG_HOME", root.path());
  std::vector<Value> values = {true, false, std::string(), std::string("汉字\t\"x\""),
                               std::string(3000, 'y')};
  for (const double number : {0.0, -1.0, 0.1, 1e300, -2.5e-7, 9007199254740993.0})
    values.emplace_back(number);
  {
    JsonUserDefaults store;
    EXPECT_FALSE(fs::exists(root / "tolvera")); // nothing to say yet
    for (std::size_t i = 0; i < values.size(); ++i) store.setObject("key" + std::to_string(i), values[i]);
    store.setObject("gone", true);
    store.removeObjectForKey("gone");
  }
  const auto modeOf = [](const fs::path& path) { return fs::status(path).permissions(); };
  EXPECT_EQ(modeOf(root / "tolvera"), fs::perms::owner_all);
  EXPECT_EQ(modeOf(root / "tolvera/preferences.json"), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(parsed(root / "tolvera/preferences.json").size(), values.size());
  const JsonUserDefaults again;
  for (std::size_t i = 0; i < values.size(); ++i) {
    EXPECT_EQ(again.objectForKey("key" + std::to_string(i)), values[i]) << i;
  }
}

// Whoever reads it meanwhile, or after a kill, finds a whole file: a part of one does not parse.
TEST_F(DesktopUserDefaults, ReachTheFileOnTheirOwnAndAreWholeAtEveryMoment) {
  JsonUserDefaults store(file, {0ms, 0ms});
  for (double round = 0; round < 100; ++round) {
    store.setObject("round", round);
    store.setObject("text", std::string(200'000, 'x'));
    store.setObject("text", std::string(100, 'y'));
    EXPECT_TRUE(test::eventually(
        [&] { return fs::exists(file) && parsed(file).at("round").to_number<double>() == round; }));
  }
}

// Two numbers that go up one after the other, without end.
[[noreturn]] void countForever(const fs::path& file, JsonUserDefaults::Pace pace) {
  JsonUserDefaults store(file, pace);
  const double reached = store.doubleForKey("first").value_or(0);
  store.setObject("second", reached);
  for (double i = reached + 1;; ++i) {
    store.setObject("first", i);
    store.setObject("text", std::string(static_cast<std::size_t>(i) * 37 % 9000, 'x'));
    store.setObject("second", i);
    if (static_cast<int>(i) % 50 == 0) std::this_thread::sleep_for(1ms);
  }
}

TEST_F(DesktopUserDefaults, AreWholeAfterAKillAtAnyMoment) {
  std::mt19937 random(20);
  double reached = 0;
  for (int kill = 0; kill < 200; ++kill) {
    // Half of the children write without pause, so that the kill falls into a writing.
    const bool hurried = kill % 2 == 0;
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) countForever(file, hurried ? JsonUserDefaults::Pace{0ms, 0ms} : JsonUserDefaults::Pace{});
    std::uniform_int_distribution moment(0, hurried ? 30'000 : 120'000);
    std::this_thread::sleep_for(std::chrono::microseconds(moment(random)));
    ::kill(child, SIGKILL);
    ASSERT_EQ(::waitpid(child, nullptr, 0), child);
    if (!fs::exists(file)) continue;
    const auto object = parsed(file);
    const double first = object.contains("first") ? object.at("first").to_number<double>() : 0;
    const double second = object.at("second").to_number<double>();
    EXPECT_TRUE(first == second || first == second + 1) << first << " " << second;
    EXPECT_GE(first, reached);
    reached = first;
  }
  EXPECT_GT(reached, 1000);
  for (const auto& entry : fs::directory_iterator(root.path())) {
    EXPECT_EQ(entry.path().filename().string().find("unreadable"), std::string::npos) << entry.path();
  }
}

TEST_F(DesktopUserDefaults, KeepWhatTheyDoNotKnowAndHonourAnEditByHand) {
  const std::string before =
      "\xEF\xBB\xBF{ \"nested\": {\"a\": [1, 2.5, null, {\"b\": \"c\"}]}, \"nothing\": null,\n"
      "\"big\": 18446744073709551615, \"target\": \"ja\", \"dub\" : true, \"overlayX\": 12 }";
  write(file, before);
  {
    JsonUserDefaults store(file);
    EXPECT_EQ(store.stringForKey("target"), "ja");
    EXPECT_EQ(store.objectForKey("overlayX"), Value(12.0));
    EXPECT_FALSE(store.objectForKey("nested"));
    EXPECT_FALSE(store.objectForKey("nothing"));
    store.setObject("overlayX", 12.0); // equal: nothing to write
    EXPECT_TRUE(store.flush());
    EXPECT_EQ(contentOf(file), before);
    store.setObject("target", std::string("de"));
  }
  EXPECT_EQ(json::serialize(parsed(file)), // in the old order
            R"({"nested":{"a":[1,2.5E0,null,{"b":"c"}]},"nothing":null,"big":18446744073709551615,)"
            R"("target":"de","dub":true,"overlayX":12})");
}

TEST_F(DesktopUserDefaults, PutAFileAsideThatCannotBeReadAndNeverOverAnother) {
  const std::vector<std::string> broken = {
      "", "{\"target\": ", "[1]", "{} x", "\xff\xfe", "{\"a\": \"\xff\"}", std::string(100'000, '[')};
  for (const std::string& content : broken) {
    write(file, content);
    JsonUserDefaults store(file);
    EXPECT_FALSE(fs::exists(file));
    EXPECT_FALSE(store.objectForKey("target"));
    store.setObject("target", std::string("ja"));
    EXPECT_TRUE(store.flush());
    EXPECT_EQ(parsed(file).at("target"), "ja");
  }
  fs::remove(file);
  fs::create_symlink(root / "nowhere", file);
  EXPECT_FALSE(JsonUserDefaults(file).objectForKey("target"));
  for (std::size_t i = 0; i < broken.size(); ++i) {
    EXPECT_EQ(contentOf(root / ("p.unreadable-" + std::to_string(i + 1) + ".json")), broken[i]);
  }
  EXPECT_TRUE(fs::is_symlink(root / "p.unreadable-8.json"));
}

TEST_F(DesktopUserDefaults, NeverWriteWhatCouldNotBeReadAgain) {
  {
    JsonUserDefaults store(file);
    store.setObject("infinite", 1.0);
    store.setObject("infinite", std::numeric_limits<double>::infinity());
    store.setObject("nan", std::numeric_limits<double>::quiet_NaN());
    store.setObject("text", std::string("a\xff\xc3z"));
    EXPECT_FALSE(store.objectForKey("infinite"));
    EXPECT_EQ(store.stringForKey("text"), "a\uFFFD\uFFFDz");
  }
  EXPECT_EQ(parsed(file), json::parse("{\"text\": \"a\uFFFD\uFFFDz\"}"));
}

TEST_F(DesktopUserDefaults, GoOnTryingWhereTheFileCannotBeWritten) {
  write(root / "in the way", "");
  JsonUserDefaults store(root / "in the way/p.json");
  store.setObject("target", std::string("ja"));
  EXPECT_FALSE(store.flush());
  EXPECT_EQ(store.stringForKey("target"), "ja");
  fs::remove(root / "in the way");
  EXPECT_TRUE(store.flush());
  EXPECT_EQ(parsed(root / "in the way/p.json").at("target"), "ja");
}

} // namespace
} // namespace tolvera
