#include "Platform/Linux/XdgRunningApplications.h"

#include "PlatformTests/DesktopFixture.h"
#include "Support/ChildProcess.h"
#include "Support/FixedLocale.h"
#include "Support/InMemoryAudioHardware.h"
#include "Support/TemporaryEnvironment.h"
#include "TolveraCore/AudioProcesses.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <thread>

namespace tolvera {
namespace {

using namespace std::chrono_literals;
using platform::ActivationPolicy;
using platform::RunningApplication;
using testing::Contains;

bool waitUntil(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + 10s;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(2ms);
  }
  return true;
}

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

  // Starts a program and waits until it runs instead of what started it.
  test::ChildProcess start(std::vector<std::string> command, const std::string& executable) {
    test::ChildProcess process(std::move(command));
    EXPECT_TRUE(waitUntil([&] { return runs(process.pid(), executable); })) << executable;
    return process;
  }
  // A program that is just being loaded has its file, but not its arguments yet.
  [[nodiscard]] bool runs(std::int32_t pid, const std::string& executable) const {
    return table.executable(pid) == executable && !table.arguments(pid).empty();
  }
  // The one descendant that runs the executable.
  std::int32_t descendant(std::int32_t ancestor, const std::string& executable) {
    std::int32_t found = -1;
    EXPECT_TRUE(waitUntil([&] {
      for (const std::int32_t pid : table.processes()) {
        if (pid == ancestor || !runs(pid, executable)) continue;
        auto status = table.status(pid);
        while (status && status->pid != ancestor) status = table.status(status->parent);
        if (status) found = pid;
      }
      return found > 0;
    })) << executable;
    return found;
  }
  [[nodiscard]] std::string bundle(std::int32_t pid) const {
    return applications->bundleIdentifier(pid).value_or("none");
  }

  test::TemporaryEnvironment environment;
  test::InstalledApplications installed;
  adapters::ProcessTable table;
  std::unique_ptr<adapters::XdgRunningApplications> applications;
  const std::string shell = std::filesystem::canonical("/bin/sh");
};

TEST_F(DesktopRunningApplications, KnowAMediaPlayerByItsProgram) {
  const auto player = installed.addProgram("lib/player");
  std::filesystem::create_symlink(player, installed.root() / "bin/play");
  installed.addEntry("org.example.Player", "env LANG=C play --gui %U",
                     "Name[zh_CN]=播放器\nName[de]=Spieler\n");
  const auto process = start({"play", "60"}, player);
  const RunningApplication expected{.processIdentifier = process.pid(),
                                    .activationPolicy = ActivationPolicy::regular,
                                    .bundleIdentifier = "org.example.Player",
                                    .localizedName = "Name of org.example.Player"};
  EXPECT_EQ(applications->runningApplication(process.pid()), expected);
  EXPECT_THAT(applications->runningApplications(), Contains(expected));
  EXPECT_EQ(bundle(process.pid()), "org.example.Player");

  environment.set("LANGUAGE", "zh_CN:en");
  environment.set("LANG", "zh_CN.UTF-8");
  environment.set("LC_ALL", std::nullopt);
  EXPECT_EQ(applications->runningApplication(process.pid())->localizedName, "播放器");
  EXPECT_EQ(applications->localizedDisplayName("org.example.Player"), "播放器");
  EXPECT_EQ(applications->bundleName("org.example.Player"), "Name of org.example.Player");
  EXPECT_EQ(applications->bundleName("org.example.Play"), std::nullopt);
}

TEST_F(DesktopRunningApplications, AttributeABrowsersTabsToTheBrowser) {
  // The entry's command is a script that becomes the program, as browsers have it.
  const auto browser = installed.addProgram("lib/webbrowser/webbrowser", shell);
  const auto helper = installed.addProgram("lib/webbrowser/audio-helper");
  installed.addScript("bin/webbrowser", "#!/bin/sh\nexec " + browser + " \"$@\"\n");
  installed.addEntry("webbrowser-stable", "webbrowser %U");
  const auto process =
      start({"webbrowser", "-c", "\"$0\" -c 'sleep 61; :' tab & " + helper + " 60 & wait", browser}, browser);
  const auto tab = descendant(process.pid(), browser);
  const auto audio = descendant(process.pid(), helper);
  EXPECT_EQ(bundle(process.pid()), "webbrowser-stable");
  EXPECT_EQ(bundle(tab), "webbrowser-stable.helper");
  EXPECT_EQ(bundle(audio), "webbrowser-stable.helper");
  EXPECT_TRUE(applications->runningApplication(process.pid()).has_value());
  EXPECT_FALSE(applications->runningApplication(tab).has_value());

  test::InMemoryAudioHardware hardware;
  const auto first = hardware.addProcess(tab, bundle(tab), true);
  const auto second = hardware.addProcess(audio, bundle(audio));
  const auto third = hardware.addProcess(process.pid(), bundle(process.pid()));
  const auto apps = AudioProcesses::userApps(hardware, *applications, test::FixedLocale());
  ASSERT_EQ(apps.size(), 1U);
  EXPECT_EQ(apps[0], (AudioApp{.bundleID = "webbrowser-stable",
                               .name = "Name of webbrowser-stable",
                               .isPlaying = true,
                               .objectIDs = {first, second, third}}));
}

TEST_F(DesktopRunningApplications, AttributeWhatAScriptPlaysToItsApplicationOrToTheTerminal) {
  const auto player = installed.addProgram("bin/tone-player");
  const auto terminal = installed.addProgram("bin/terminal", shell);
  const auto script = installed.addScript("bin/alarm", "#!/bin/sh\n# rings\ntone-player 60\n:\n");
  const auto loose = installed.addScript("lib/loose", "#!/bin/sh -e\ntone-player 60\n:\n");
  installed.addEntry("alarm", "alarm");
  installed.addEntry("org.example.Terminal", "terminal");

  const auto alarm = start({"alarm"}, shell);
  EXPECT_EQ(bundle(alarm.pid()), "alarm");
  EXPECT_EQ(bundle(descendant(alarm.pid(), player)), "alarm.helper");

  const auto emulator = start({"terminal", "-c", loose + "; :"}, terminal);
  EXPECT_EQ(bundle(descendant(emulator.pid(), player)), "org.example.Terminal.helper");

  const auto within = start({"terminal", "-c", script + "; :"}, terminal);
  EXPECT_EQ(bundle(descendant(within.pid(), player)), "alarm.helper");

  const auto nobodys = start({loose}, shell);
  EXPECT_EQ(bundle(descendant(nobodys.pid(), player)), "none");
}

TEST_F(DesktopRunningApplications, DoNotTakeAScriptForItsInterpretersApplication) {
  const auto interpreter = installed.addProgram("bin/interpreter", shell);
  const auto main = installed.addScript("lib/main", "sleep 60; :\n");
  const auto other = installed.addScript("lib/other", "#!/usr/bin/env interpreter\nsleep 60; :\n");
  installed.addEntry("interpreter", "interpreter", "Terminal=true\n");
  installed.addEntry("org.example.Main", "interpreter " + main);
  const auto application = start({"interpreter", main}, interpreter);
  const auto stranger = start({other}, interpreter);
  const auto itself = start({"interpreter", "-c", "sleep 60; :"}, interpreter);
  EXPECT_EQ(bundle(application.pid()), "org.example.Main");
  EXPECT_EQ(bundle(stranger.pid()), "none");
  EXPECT_EQ(bundle(itself.pid()), "interpreter");
}

TEST_F(DesktopRunningApplications, BelieveTheDesktopThatStartedThem) {
  const auto program = installed.addProgram("lib/unknown", shell);
  installed.addEntry("sub/org.example.Started", "somewhere-else");
  const std::string file = installed.entries() / "sub/org.example.Started.desktop";
  const auto process = start({"/bin/sh", "-c",
                              "GIO_LAUNCHED_DESKTOP_FILE=" + file +
                                  " GIO_LAUNCHED_DESKTOP_FILE_PID=$$ exec " + program + " -c 'sleep 60; :'"},
                             program);
  EXPECT_EQ(bundle(process.pid()), "sub-org.example.Started");
  const auto child = descendant(process.pid(), std::filesystem::canonical("/bin/sleep"));
  EXPECT_EQ(bundle(child), "sub-org.example.Started.helper");
  EXPECT_FALSE(applications->runningApplication(child).has_value());
}

TEST_F(DesktopRunningApplications, SeeIntoASandbox) {
  // A root directory of its own, with what says whose it is.
  const auto box = (installed.root() / "box").string();
  std::filesystem::create_directories(box);
  const std::string sandbox =
      "mount -t tmpfs none $0 && cd $0 && for d in bin sbin lib lib64 usr; do if [ -e /$d ]; then "
      "mkdir $d; mount --rbind /$d $d; fi; done && printf '[Application]\\nname=org.example.Boxed\\n' "
      ">.flatpak-info && exec chroot . /bin/sleep 60";
  installed.addEntry("org.example.Boxed", "env run-boxed org.example.Boxed");
  test::ChildProcess process({"unshare", "-rm", "/bin/sh", "-c", sandbox, box});
  const auto inside = [&] { return table.fileInside(process.pid(), "/.flatpak-info").has_value(); };
  if (!waitUntil([&] { return inside() || !process.running(); }) || !inside())
    GTEST_SKIP() << "this machine allows no mount name spaces";
  EXPECT_EQ(bundle(process.pid()), "org.example.Boxed");
  EXPECT_TRUE(applications->runningApplication(process.pid()).has_value());
}

TEST_F(DesktopRunningApplications, ShowWhatTheMenusShow) {
  const std::vector<std::pair<std::string, ActivationPolicy>> kinds = {
      {"", ActivationPolicy::regular},
      {"Terminal=true\n", ActivationPolicy::regular},
      {"OnlyShowIn=Fancy;Simple;\n", ActivationPolicy::regular},
      {"NotShowIn=Fancy;\n", ActivationPolicy::regular},
      {"NoDisplay=true\n", ActivationPolicy::accessory},
      {"OnlyShowIn=Fancy;\n", ActivationPolicy::accessory},
      {"NotShowIn=Fancy;Plain;\n", ActivationPolicy::accessory}};
  const auto program = installed.addProgram("bin/shown");
  const auto process = start({program, "60"}, program);
  for (const auto& [lines, policy] : kinds) {
    installed.addEntry("shown", "shown", lines);
    const auto application = adapters::XdgRunningApplications().runningApplication(process.pid());
    ASSERT_TRUE(application.has_value()) << lines;
    EXPECT_EQ(application->activationPolicy, policy) << lines;
  }
  for (const char* lines : {"Hidden=true\n", "TryExec=not-installed\n", "Type=Link\n"}) {
    installed.addEntry("shown", "shown", lines);
    EXPECT_FALSE(adapters::XdgRunningApplications().runningApplication(process.pid()).has_value()) << lines;
  }
}

TEST_F(DesktopRunningApplications, PreferTheUsersOwnEntries) {
  installed.addEntry("own", "own");
  const auto home = installed.root() / "none/applications";
  std::filesystem::create_directories(home);
  std::ofstream(home / "own.desktop") << "[Desktop Entry]\nType=Application\nName=Mine\nExec=own\n";
  EXPECT_EQ(applications->localizedDisplayName("own"), "Mine");
  std::ofstream(home / "own.desktop") << "[Desktop Entry]\nType=Application\nHidden=true\n";
  EXPECT_EQ(adapters::XdgRunningApplications().localizedDisplayName("own"), std::nullopt);
}

TEST_F(DesktopRunningApplications, NoticeWhatIsInstalledAndRemoved) {
  // Nothing has changed for long, so that what was read is kept.
  const auto settle = [this] {
    const auto longAgo = std::filesystem::file_time_type::clock::now() - 24h;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(installed.entries()))
      if (entry.is_directory()) std::filesystem::last_write_time(entry, longAgo);
    std::filesystem::last_write_time(installed.entries(), longAgo);
    EXPECT_EQ(applications->bundleName("none"), std::nullopt);
  };
  settle();
  installed.addEntry("late", "late");
  EXPECT_EQ(applications->bundleName("late"), "Name of late");
  settle();
  installed.addEntry("new/late", "late"); // in a directory that is new
  EXPECT_EQ(applications->bundleName("new-late"), "Name of new/late");
  settle();
  installed.addEntry("new/later", "late"); // and then known
  EXPECT_EQ(applications->bundleName("new-later"), "Name of new/later");
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
