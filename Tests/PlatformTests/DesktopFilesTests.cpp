#include "Harness/TemporaryDirectory.h"
#include "Platform/Linux/Desktop/JsonUserDefaults.h"
#include "Platform/Linux/Desktop/PosixFileManager.h"

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <limits>
#include <random>
#include <thread>

namespace tolvera {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using adapters::JsonUserDefaults;

mode_t modeOf(const fs::path& path) {
  struct stat status{};
  return ::lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

class Files : public testing::Test {
 protected:
  Files() { ::umask(0); }
  ~Files() override { ::umask(0022); }
  [[nodiscard]] auto entries() const { return std::distance(fs::directory_iterator(root.path()), {}); }
  static void put(const fs::path& path, std::string_view content) { std::ofstream(path) << content; }

  test::TemporaryDirectory root;
  adapters::PosixFileManager files;
  const fs::path file = root / "p.json";
};

using Preferences = Files;

TEST_F(Files, StayPrivateUnderAnyMask) {
  for (const mode_t mask : {0000U, 0022U, 0777U}) {
    const fs::path directory = root / std::to_string(mask);
    put(file, "old");
    fs::permissions(file, fs::perms(0644));
    EXPECT_EQ(files.contents(file), "old");
    EXPECT_EQ(modeOf(file), 0600U) << "others could read it";
    ::umask(mask);
    EXPECT_TRUE(files.createPrivateDirectory(directory / "leaf"));
    for (const auto& each : {file, directory / "leaf/file"}) {
      EXPECT_TRUE(files.writePrivateFile(each, std::string("a\0b", 3)));
      EXPECT_EQ(files.contents(each), std::string("a\0b", 3));
      EXPECT_EQ(modeOf(each), 0600U) << mask;
    }
    for (const auto& each : {directory, directory / "leaf"}) EXPECT_EQ(modeOf(each), 0700U) << mask;
    ::umask(0);
    files.remove(file);
  }
}

TEST_F(Files, StayPrivateAtEveryMoment) {
  const fs::path directory = root / "support";
  const fs::path token = directory / "token";
  std::atomic<int> looks = 0;
  std::atomic<int> faults = 0;
  std::jthread watcher([&](const std::stop_token& stop) {
    for (; !stop.stop_requested(); ++looks) {
      std::error_code gone;
      faults += (modeOf(directory) & 0077) != 0;
      for (const auto& entry : fs::directory_iterator(directory, gone)) faults += (modeOf(entry) & 0077) != 0;
      const std::string content = files.contents(token).value_or(std::string(5000, 'a'));
      faults += content != std::string(5000, content[0]); // only whole ones
    }
  });
  for (int i = 0; i < 300 || looks < 300; ++i) {
    if (i % 3 == 0) fs::remove_all(directory);
    files.createPrivateDirectory(directory);
    EXPECT_TRUE(files.writePrivateFile(token, std::string(5000, i % 2 == 0 ? 'a' : 'b')));
  }
  watcher = {};
  EXPECT_EQ(faults, 0);
}

TEST_F(Files, ReplaceSymbolicLinks) {
  put(root / "target", "untouched");
  for (const char* target : {"target", "nowhere"}) {
    fs::remove(file);
    fs::create_symlink(root / target, file);
    EXPECT_TRUE(files.writePrivateFile(file, "secret"));
    EXPECT_FALSE(fs::is_symlink(file));
  }
  EXPECT_EQ(files.contents(root / "target"), "untouched");
  EXPECT_EQ(entries(), 2);
}

TEST_F(Files, KeepOldContentOnFailure) {
  put(file, "old");
  fs::create_directories(root / "directory/inside");
  EXPECT_EQ(::mkfifo((root / "pipe").c_str(), 0600), 0);
  for (const auto& path : {root / "directory", root / std::string(300, 'n'), root / "none/file", fs::path()})
    EXPECT_FALSE(files.writePrivateFile(path, "x")) << path;
  EXPECT_FALSE(files.createPrivateDirectory(file) || files.createPrivateDirectory(file / "below"));
  EXPECT_FALSE(files.contents(root / "pipe"));
  rlimit before{};
  ::getrlimit(RLIMIT_FSIZE, &before);
  ::signal(SIGXFSZ, SIG_IGN);
  const rlimit fullDisk{.rlim_cur = 2, .rlim_max = before.rlim_max};
  ::setrlimit(RLIMIT_FSIZE, &fullDisk);
  EXPECT_FALSE(files.writePrivateFile(file, "too long"));
  ::setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_EQ(files.contents(file), "old");
  EXPECT_EQ(modeOf(file), 0600U);
  EXPECT_EQ(entries(), 3);
}

TEST_F(Preferences, KeepTheirTypes) {
  using Value = platform::UserDefaults::Value;
  const std::pair<const char*, Value> values[] = {
      {"flag", true}, {"text", "汉字\t\"\\\n\x01"}, {"whole", 9007199254740993.0}, {"tiny", -2.5e-7}};
  for (const bool isFresh : {true, false}) {
    JsonUserDefaults store(root / "new/p.json");
    if (isFresh) {
      for (const auto& [key, value] : values) store.setObject(key, value);
      store.setObject("gone", true);
      store.removeObjectForKey("gone");
      store.setObject("infinite", std::numeric_limits<double>::infinity());
      store.setObject("bytes", std::string("a\xffz"));
    }
    for (const auto& [key, value] : values) EXPECT_EQ(store.objectForKey(key), value);
    EXPECT_FALSE(store.stringForKey("flag") || store.doubleForKey("flag") || store.boolForKey("text"));
    EXPECT_FALSE(store.objectForKey("gone") || store.objectForKey("infinite"));
    EXPECT_EQ(store.stringForKey("bytes"), "a\uFFFDz");
  }
  EXPECT_TRUE(modeOf(root / "new") == 0700 && modeOf(root / "new/p.json") == 0600);
}

TEST_F(Preferences, StayWholeAfterKill) {
  std::mt19937 random(20);
  double reached = 0;
  for (int kill = 0; kill < 150; ++kill) {
    const pid_t child = ::fork();
    if (child == 0) {
      JsonUserDefaults store(file, {0ms, 0ms});
      store.setObject("second", reached);
      for (double i = reached + 1;; ++i) {
        store.setObject("first", i);
        store.setObject("text", std::string(static_cast<std::size_t>(i) * 37 % 9000, 'x'));
        store.setObject("second", i);
        std::this_thread::sleep_for(20us);
      }
    }
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 40'000));
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    const JsonUserDefaults store(file);
    const double first = store.doubleForKey("first").value_or(0);
    const double second = store.doubleForKey("second").value_or(first);
    EXPECT_TRUE(first >= reached && first - second >= 0 && first - second <= 1) << first << " " << second;
    reached = first;
  }
  EXPECT_GT(reached, 100); // it wrote
}

TEST_F(Preferences, KeepForeignValues) {
  const std::string text = "\xEF\xBB\xBF{ \"nested\": [1, 2.5, {\"b\": null}], \"x\" : 12 }";
  put(file, text);
  {
    JsonUserDefaults store(file);
    EXPECT_FALSE(store.objectForKey("nested"));
    store.setObject("x", store.doubleForKey("x").value_or(0)); // equal: nothing to write
    EXPECT_TRUE(store.flush());
    EXPECT_EQ(files.contents(file), text);
    store.setObject("x", false);
  }
  EXPECT_EQ(files.contents(file), "{\n  \"nested\": [1,2.5E0,{\"b\":null}],\n  \"x\": false\n}\n");
}

TEST_F(Preferences, PutBrokenFilesAside) {
  int number = 0;
  for (const std::string content : {"", "{\"a\": ", "[1]", "{} x", "{\"a\": \"\xff\"}"}) {
    put(file, content);
    JsonUserDefaults(file).setObject("dub", true);
    EXPECT_EQ(files.contents(root / ("p.unreadable-" + std::to_string(++number) + ".json")), content);
    EXPECT_TRUE(JsonUserDefaults(file).boolForKey("dub"));
  }
}

TEST_F(Preferences, RetryAfterFailedWrite) {
  put(file, "");
  JsonUserDefaults store(file / "p.json");
  store.setObject("dub", true);
  EXPECT_FALSE(store.flush());
  fs::remove(file);
  EXPECT_TRUE(store.flush());
  EXPECT_TRUE(JsonUserDefaults(file / "p.json").boolForKey("dub"));
}

} // namespace
} // namespace tolvera
