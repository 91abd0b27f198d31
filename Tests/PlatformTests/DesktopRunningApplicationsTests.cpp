#include "Platform/Linux/Desktop/XdgRunningApplications.h"

#include "Harness/PrivateGraph.h"
#include "Harness/TemporaryEnvironment.h"
#include "PlatformTests/DesktopFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <thread>

namespace tolvera {
namespace {

using namespace std::chrono_literals;
using platform::ActivationPolicy;
using platform::RunningApplication;
using testing::Contains;

// Real processes of made-up applications.
class DesktopRunningApplications : public testing::Test {
 protected:
  DesktopRunningApplications() {
    environment.set("XDG_DATA_HOME", installed.root() / "none");
    environment.set("XDG_DATA_DIRS", installed.dataDirectory());
    environment.set("PATH", (installed.root() / "bin").string() + ":" + std::getenv("PATH"));
    environment.set("LANGUAGE", "en");
    environment.set("XDG_CURRENT_DESKTOP", "Plain:Simple");
    applications = std::make_unique<adapters::XdgRunningApplications>();
  }

  // Starts a program, which sleeps, and waits until it runs instead of what started it. One that is just
  // being loaded has its file, but not its arguments yet.
  test::ChildProcess start(const std::string& command, const std::string& executable) {
    test::ChildProcess process({command, "60"});
    EXPECT_TRUE(test::eventually([&] {
      return table.executable(process.pid()) == executable && !table.arguments(process.pid()).empty();
    }));
    return process;
  }

  test::TemporaryEnvironment environment;
  test::InstalledApplications installed;
  adapters::ProcessTable table;
  std::unique_ptr<adapters::XdgRunningApplications> applications;
};

TEST_F(DesktopRunningApplications, KnowAMediaPlayerByItsProgram) {
  const auto player = installed.addProgram("lib/player");
  std::filesystem::create_symlink(player, installed.root() / "bin/play");
  installed.addEntry("org.Player", "env LANG=C play --gui %U", "Name[zh_CN]=播放器\nName[de]=Spieler\n");
  const auto process = start("play", player);
  const RunningApplication expected{.processIdentifier = process.pid(),
                                    .activationPolicy = ActivationPolicy::regular,
                                    .bundleIdentifier = "org.Player",
                                    .localizedName = "Name of org.Player"};
  EXPECT_EQ(applications->runningApplication(process.pid()), expected);
  EXPECT_THAT(applications->runningApplications(), Contains(expected));
  EXPECT_EQ(applications->bundleIdentifier(process.pid()), "org.Player");

  environment.set("LANGUAGE", "zh_CN:en");
  environment.set("LANG", "zh_CN.UTF-8");
  environment.set("LC_ALL", std::nullopt);
  EXPECT_EQ(applications->runningApplication(process.pid())->localizedName, "播放器");
  EXPECT_EQ(applications->localizedDisplayName("org.Player"), "播放器");
  EXPECT_EQ(applications->bundleName("org.Player"), "Name of org.Player");
}

TEST_F(DesktopRunningApplications, ShowWhatTheMenusShow) {
  const std::vector<std::pair<const char*, std::optional<ActivationPolicy>>> kinds = {
      {"Terminal=true\n", ActivationPolicy::regular},
      {"OnlyShowIn=Fancy;Simple;\n", ActivationPolicy::regular},
      {"NotShowIn=Fancy;\n", ActivationPolicy::regular},
      {"NoDisplay=true\n", ActivationPolicy::accessory},
      {"OnlyShowIn=Fancy;\n", ActivationPolicy::accessory},
      {"NotShowIn=Fancy;Plain;\n", ActivationPolicy::accessory},
      {"Hidden=true\n", std::nullopt},
      {"TryExec=not-installed\n", std::nullopt},
      {"Type=Link\n", std::nullopt}};
  const auto program = installed.addProgram("bin/shown");
  const auto process = start(program, program);
  for (const auto& [lines, policy] : kinds) {
    installed.addEntry("shown", "shown", lines);
    const auto application = adapters::XdgRunningApplications().runningApplication(process.pid());
    ASSERT_EQ(application.has_value(), policy.has_value()) << lines;
    if (policy) EXPECT_EQ(application->activationPolicy, *policy) << lines;
  }
}

TEST_F(DesktopRunningApplications, PreferTheUsersOwnEntries) {
  installed.addEntry("own", "own");
  const auto home = installed.root() / "none/applications";
  std::filesystem::create_directories(home);
  std::ofstream(home / "own.desktop") << "[Desktop Entry]\nType=Application\nHidden=true\n";
  EXPECT_EQ(applications->localizedDisplayName("own"), std::nullopt);
}

TEST_F(DesktopRunningApplications, NoticeWhatIsInstalledAndRemoved) {
  // Nothing has changed for long, so that what was read is kept.
  const auto settle = [this] {
    const auto longAgo = std::filesystem::file_time_type::clock::now() - 24h;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(installed.entries())) {
      if (entry.is_directory()) std::filesystem::last_write_time(entry, longAgo);
    }
    std::filesystem::last_write_time(installed.entries(), longAgo);
    EXPECT_EQ(applications->bundleName("none"), std::nullopt);
  };
  // The second is in a directory that is new, the third in one that is known.
  for (const auto& [file, id] :
       {std::pair("late", "late"), {"new/late", "new-late"}, {"new/later", "new-later"}}) {
    settle();
    installed.addEntry(file, "late");
    EXPECT_EQ(applications->bundleName(id), std::string("Name of ") + file);
  }
  settle();
  std::filesystem::remove(installed.entries() / "late.desktop");
  EXPECT_EQ(applications->bundleName("late"), std::nullopt);
}

TEST_F(DesktopRunningApplications, NoticeChangesThatTheFileSystemGivesOneTime) {
  const auto tick = std::filesystem::file_time_type::clock::now() + 5s;
  for (const char* id : {"first", "second"}) {
    installed.addEntry(id, "late");
    std::filesystem::last_write_time(installed.entries(), tick);
    EXPECT_EQ(applications->bundleName(id), std::string("Name of ") + id);
  }
}

TEST_F(DesktopRunningApplications, MakeNothingOfBrokenEntries) {
  std::ofstream(installed.entries() / "empty.desktop").flush();
  std::ofstream(installed.entries() / "noise.desktop") << std::string("\xff\xfe\0[x", 5);
  std::filesystem::create_symlink("nowhere", installed.entries() / "dangling.desktop");
  std::filesystem::create_directory_symlink(".", installed.entries() / "circle");
  installed.addEntry("quote", "\"unfinished");
  installed.addEntry("percent", "%");
  installed.addEntry("good", "good");
  for (const char* id : {"empty", "noise", "dangling", ""})
    EXPECT_EQ(applications->bundleName(id), std::nullopt) << id;
  EXPECT_EQ(applications->bundleName("quote"), "Name of quote");
  EXPECT_EQ(applications->bundleName("good"), "Name of good");
}

TEST_F(DesktopRunningApplications, AnswerOnManyThreadsWhileProcessesComeAndGo) {
  const auto program = installed.addProgram("bin/brief");
  installed.addEntry("brief", "brief");
  std::atomic<bool> ended = false;
  std::vector<std::thread> threads;
  for (int index = 0; index < 2; ++index)
    threads.emplace_back([&] {
      while (!ended) {
        for (const auto& application : applications->runningApplications())
          EXPECT_TRUE(application.bundleIdentifier.has_value());
        for (const std::int32_t pid : table.processes()) (void)applications->bundleIdentifier(pid);
      }
    });
  for (int round = 0; round < 50; ++round) {
    installed.addEntry("entry" + std::to_string(round), "brief");
    test::ChildProcess process({program, "0"});
    process.wait(10s);
  }
  ended = true;
  for (std::thread& thread : threads) thread.join();
}

} // namespace
} // namespace tolvera
