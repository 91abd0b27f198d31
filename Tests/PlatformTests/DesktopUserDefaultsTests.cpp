#include "Platform/Linux/JsonUserDefaults.h"

#include "Support/InMemoryUserDefaults.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TemporaryEnvironment.h"

#include <boost/json/parse.hpp>
#include <boost/json/value_to.hpp>

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <limits>
#include <memory>
#include <random>
#include <sstream>
#include <thread>

namespace tolvera {
namespace {

namespace fs = std::filesystem;
namespace json = boost::json;
using namespace std::chrono_literals;
using adapters::JsonUserDefaults;
using test::TemporaryDirectory;
using Value = platform::UserDefaults::Value;

std::string contentOf(const fs::path& file) {
  std::stringstream content;
  content << std::ifstream(file).rdbuf();
  return content.str();
}

void write(const fs::path& file, std::string_view content) { std::ofstream(file) << content; }

json::object parsed(const fs::path& file) { return json::parse(contentOf(file)).as_object(); }

std::vector<std::string> entriesIn(const fs::path& directory) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory)) names.push_back(entry.path().filename());
  return names;
}

struct InMemory {
  std::unique_ptr<platform::UserDefaults> store = std::make_unique<test::InMemoryUserDefaults>();
};

struct InFile {
  TemporaryDirectory directory;
  std::unique_ptr<platform::UserDefaults> store =
      std::make_unique<JsonUserDefaults>(directory / "preferences.json");
};

template<typename Subject>
class UserDefaultsContract : public testing::Test {
 protected:
  Subject subject;
};
using Subjects = testing::Types<InMemory, InFile>;
TYPED_TEST_SUITE(UserDefaultsContract, Subjects);

TYPED_TEST(UserDefaultsContract, AnswersAtOnceWithTheTypeThatWasAssigned) {
  platform::UserDefaults& store = *this->subject.store;
  EXPECT_FALSE(store.objectForKey("flag"));
  store.setObject("flag", true);
  store.setObject("number", 22.0);
  store.setObject("text", std::string("true 汉字 \"\\\n\x01"));
  EXPECT_EQ(store.objectForKey("flag"), Value(true));
  EXPECT_EQ(store.objectForKey("number"), Value(22.0));
  EXPECT_EQ(store.stringForKey("text"), "true 汉字 \"\\\n\x01");
  EXPECT_FALSE(store.stringForKey("flag"));
  EXPECT_FALSE(store.boolForKey("text"));
  EXPECT_FALSE(store.doubleForKey("flag"));

  store.setObject("flag", 0.5);
  EXPECT_EQ(store.objectForKey("flag"), Value(0.5));
  store.removeObjectForKey("flag");
  store.removeObjectForKey("flag");
  EXPECT_FALSE(store.objectForKey("flag"));
  EXPECT_FALSE(store.boolForKey("flag"));
}

TEST(DesktopUserDefaults, OutlastTheProcessWithTheirTypesInAPrivateFile) {
  const TemporaryDirectory root;
  test::TemporaryEnvironment environment;
  environment.set("XDG_CONFIG_HOME", root.path());
  const fs::path file = root / "tolvera/preferences.json";
  const Value values[] = {true,
                          false,
                          0.0,
                          -1.0,
                          22.0,
                          0.1,
                          1e300,
                          -2.5e-7,
                          9007199254740993.0,
                          std::string(),
                          std::string("汉字\t\"x\""),
                          std::string(3000, 'y')};
  {
    JsonUserDefaults store;
    EXPECT_FALSE(fs::exists(root / "tolvera")); // nothing to say yet
    for (std::size_t i = 0; i < std::size(values); ++i) store.setObject("key" + std::to_string(i), values[i]);
    store.setObject("gone", true);
    store.removeObjectForKey("gone");
  }
  struct stat status{};
  ASSERT_EQ(::stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
  ASSERT_EQ(::stat(file.parent_path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0700u);
  EXPECT_EQ(parsed(file).size(), std::size(values));

  const JsonUserDefaults again;
  for (std::size_t i = 0; i < std::size(values); ++i)
    EXPECT_EQ(again.objectForKey("key" + std::to_string(i)), values[i]) << i;
}

TEST(DesktopUserDefaults, ReachTheFileOnTheirOwn) {
  const TemporaryDirectory root;
  JsonUserDefaults store(root / "p.json");
  for (int round = 0; round < 3; ++round) {
    store.setObject("round", double(round));
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    const auto there = [&] {
      return fs::exists(root / "p.json") && json::value_to<double>(parsed(root / "p.json")["round"]) == round;
    };
    while (!there() && std::chrono::steady_clock::now() < deadline) std::this_thread::sleep_for(5ms);
    EXPECT_TRUE(there());
  }
}

TEST(DesktopUserDefaults, KeepWhatTheyDoNotKnowAndHonourAnEditByHand) {
  const TemporaryDirectory root;
  const fs::path file = root / "p.json";
  write(file, "\xEF\xBB\xBF{ \"nested\": {\"a\": [1, 2.5, null, {\"b\": \"c\"}]}, \"nothing\": null,\n"
              "\"big\": 18446744073709551615, \"target\": \"ja\", \"dub\" : true, \"overlayX\": 12 }");
  const std::string before = contentOf(file);
  {
    const JsonUserDefaults store(file);
  }
  EXPECT_EQ(contentOf(file), before); // reading alone changes nothing
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
  const json::object after = parsed(file);
  EXPECT_EQ(after.at("nested"), json::parse(R"({"a": [1, 2.5, null, {"b": "c"}]})"));
  EXPECT_TRUE(after.at("nothing").is_null());
  EXPECT_EQ(after.at("big").as_uint64(), 18446744073709551615u);
  EXPECT_EQ(after.at("overlayX").as_int64(), 12);
  EXPECT_EQ(after.begin()->key(), "nested"); // in their old order

  std::string edited = contentOf(file);
  edited.replace(edited.find("\"de\""), 4, "\"fr\"");
  write(file, edited);
  EXPECT_EQ(JsonUserDefaults(file).stringForKey("target"), "fr");
}

TEST(DesktopUserDefaults, PutAFileAsideThatCannotBeReadAndNeverOverAnother) {
  const TemporaryDirectory root;
  const fs::path file = root / "p.json";
  const std::string broken[] = {
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
  std::size_t number = 0;
  for (const std::string& content : broken)
    EXPECT_EQ(contentOf(root / ("p.unreadable-" + std::to_string(++number) + ".json")), content);
  EXPECT_TRUE(fs::is_symlink(root / "p.unreadable-8.json"));
}

TEST(DesktopUserDefaults, NeverWriteWhatCouldNotBeReadAgain) {
  const TemporaryDirectory root;
  const fs::path file = root / "p.json";
  {
    JsonUserDefaults store(file);
    store.setObject("infinite", 1.0);
    store.setObject("infinite", std::numeric_limits<double>::infinity());
    store.setObject("nan", std::numeric_limits<double>::quiet_NaN());
    store.setObject("text", std::string("a\xff\xc3z"));
    EXPECT_FALSE(store.objectForKey("infinite"));
    EXPECT_FALSE(store.objectForKey("nan"));
    EXPECT_EQ(store.stringForKey("text"), "a\uFFFD\uFFFDz");
  }
  EXPECT_EQ(JsonUserDefaults(file).stringForKey("text"), "a\uFFFD\uFFFDz");
  EXPECT_EQ(parsed(file).size(), 1u);
}

TEST(DesktopUserDefaults, GoOnTryingWhereTheFileCannotBeWritten) {
  const TemporaryDirectory root;
  write(root / "in the way", "");
  JsonUserDefaults store(root / "in the way" / "p.json");
  store.setObject("target", std::string("ja"));
  EXPECT_FALSE(store.flush());
  EXPECT_EQ(store.stringForKey("target"), "ja");
  fs::remove(root / "in the way");
  EXPECT_TRUE(store.flush());
  EXPECT_EQ(parsed(root / "in the way" / "p.json").at("target"), "ja");
}

// What the child of the next test does until it is killed.
[[noreturn]] void assignForever(const fs::path& file, JsonUserDefaults::Pace pace) {
  JsonUserDefaults store(file, pace);
  const double reached = store.doubleForKey("first").value_or(0);
  store.setObject("second", reached); // which may be one behind, after a kill
  for (double i = reached + 1;; ++i) {
    store.setObject("first", i);
    store.setObject("text", std::string(static_cast<std::size_t>(i) * 37 % 9000, 'x'));
    store.setObject("second", i);
    if (static_cast<int>(i) % 50 == 0) std::this_thread::sleep_for(1ms);
  }
}

TEST(DesktopUserDefaults, AKillAtAnyMomentLeavesAWholeFile) {
  const TemporaryDirectory root;
  const fs::path file = root / "p.json";
  std::mt19937 random(20);
  double reached = 0;
  for (int kill = 0; kill < 200; ++kill) {
    // Half of the children write without pause, so that the kill falls into a writing.
    const bool hurried = kill % 2 == 0;
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0)
      assignForever(file, hurried ? JsonUserDefaults::Pace{0ms, 0ms} : JsonUserDefaults::Pace{});
    const int longest = hurried ? 30'000 : 120'000;
    std::this_thread::sleep_for(std::chrono::microseconds(std::uniform_int_distribution(0, longest)(random)));
    ::kill(child, SIGKILL);
    ASSERT_EQ(::waitpid(child, nullptr, 0), child);
    if (!fs::exists(file)) continue;

    json::object object;
    ASSERT_NO_THROW(object = parsed(file)) << contentOf(file);
    const double first = object.contains("first") ? object.at("first").to_number<double>() : 0;
    const double second = object.at("second").to_number<double>();
    EXPECT_TRUE(first == second || first == second + 1) << first << " " << second;
    EXPECT_GE(first, reached);
    reached = first;
  }
  EXPECT_GT(reached, 1000);
  for (const std::string& name : entriesIn(root.path()))
    EXPECT_THAT(name, testing::Not(testing::HasSubstr("unreadable")));
}

} // namespace
} // namespace tolvera
