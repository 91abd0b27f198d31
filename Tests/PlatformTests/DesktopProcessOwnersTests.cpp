#include "Platform/Linux/XdgRunningApplications.h"

#include "PlatformTests/DesktopFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

namespace tolvera {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Sessions of every kind, without having to run one.
class DesktopProcessOwners : public testing::Test {
 protected:
  DesktopProcessOwners() {
    installed.addEntry("org.example.Browser", browser + " %U");
    installed.addEntry("org.example.Terminal", terminal);
    installed.addEntry("org.example.Daemon", daemon, "NoDisplay=true\n");
  }

  [[nodiscard]] adapters::XdgRunningApplications applications() const {
    return {{installed.entries()}, processes.root()};
  }
  [[nodiscard]] std::string bundle(std::int32_t pid) const {
    return applications().bundleIdentifier(pid).value_or("none");
  }
  // Those that are an application's own, main process.
  [[nodiscard]] std::string main(std::int32_t pid) const {
    const auto application = applications().runningApplication(pid);
    return application ? *application->bundleIdentifier : "none";
  }

  test::InstalledApplications installed;
  test::MadeUpProcesses processes;
  std::string browser = installed.addProgram("bin/browser");
  std::string terminal = installed.addProgram("bin/terminal");
  std::string daemon = installed.addProgram("bin/daemon");
};

TEST_F(DesktopProcessOwners, AreKnownByTheSessionUnitOfTheirApplication) {
  const std::string user = "/user.slice/user-1000.slice/user@1000.service/app.slice/";
  installed.addEntry("org.example.dash-ed", "/nowhere");
  installed.addEntry("fire_fire", "/nowhere");
  std::int32_t pid = 100;
  for (const auto& [unit, id] : std::vector<std::pair<std::string, std::string>>{
           {"app-gnome-org.example.Browser-4711.scope", "org.example.Browser"},
           {"app-org.example.Browser-4711.scope", "org.example.Browser"},
           {"app-flatpak-org.example.Browser-4711.scope", "org.example.Browser"},
           {"app-org.example.Browser@6f1b.service", "org.example.Browser"},
           {"app-org.example.Browser@autostart.service", "org.example.Browser"},
           {"app-org.example.Browser.service", "org.example.Browser"},
           {"app-gnome-org.example.dash\\x2ded-12.scope", "org.example.dash-ed"},
           {"app-gnome-org.example.dash-ed-12.scope", "org.example.dash-ed"},
           {"app-org.example.Terminal.slice/vte-spawn-0a.scope", "org.example.Terminal"},
           {"dbus-:1.2-org.example.Terminal@0.service", "org.example.Terminal"},
           {"snap.fire.fire-0f7a1c5e-2b1c-4d7e-9d7b-0123456789ab.scope", "fire_fire"},
           {"snap.fire.fire.0f7a1c5e-2b1c-4d7e-9d7b-0123456789ab.scope", "fire_fire"},
           {"snap.fire.hook.configure.scope", "fire_fire"},
           {"app-org.example.Browserish-1.scope", "none"},
           {"app-.scope", "none"},
           {"app-\\x2.scope", "none"},
           {"session-2.scope", "none"}}) {
    processes.add({.pid = ++pid, .executable = "/usr/bin/anything", .controlGroup = user + unit});
    EXPECT_EQ(bundle(pid), id) << unit;
  }
}

TEST_F(DesktopProcessOwners, AreTheirOwnApplicationInTheUnitOfAnother) {
  const std::string unit = "/app-org.example.Terminal-7.scope";
  processes.add({.pid = 10, .executable = terminal, .controlGroup = unit});
  processes.add({.pid = 11, .parent = 10, .executable = "/usr/bin/sh", .controlGroup = unit});
  processes.add({.pid = 12, .parent = 11, .executable = browser, .controlGroup = unit});
  processes.add({.pid = 13, .parent = 12, .executable = browser, .controlGroup = unit});
  processes.add({.pid = 14, .parent = 11, .executable = "/usr/bin/pw-play", .controlGroup = unit});
  // Its shell has ended.
  processes.add(
      {.pid = 15, .executable = browser, .controlGroup = "/app-org.example.Terminal.slice/vte-1.scope"});
  // What the desktop told the terminal was about the terminal.
  const std::vector<std::string> told = {"GIO_LAUNCHED_DESKTOP_FILE=" +
                                             (installed.entries() / "org.example.Terminal.desktop").string(),
                                         "GIO_LAUNCHED_DESKTOP_FILE_PID=16"};
  processes.add({.pid = 16, .executable = "/usr/bin/loader", .environment = told});
  processes.add({.pid = 17, .parent = 16, .executable = browser, .environment = told});
  EXPECT_EQ(bundle(15), "org.example.Browser");
  EXPECT_EQ(bundle(16), "org.example.Terminal");
  EXPECT_EQ(bundle(17), "org.example.Browser");
  EXPECT_EQ(bundle(10), "org.example.Terminal");
  EXPECT_EQ(bundle(12), "org.example.Browser");
  EXPECT_EQ(bundle(13), "org.example.Browser.helper");
  EXPECT_EQ(bundle(14), "org.example.Terminal.helper");
  EXPECT_EQ(main(12), "org.example.Browser");
  EXPECT_EQ(main(13), "none");
  EXPECT_EQ(main(14), "none");
}

TEST_F(DesktopProcessOwners, TellTheEntriesOfOneProgramApart) {
  installed.addEntry("org.example.Mail", browser + " --app=mail %U");
  installed.addEntry("org.example.Handler", browser + " --handler %u", "NoDisplay=true\n");
  installed.addEntry("org.example.Game", browser + " rungame 7");
  processes.add({.pid = 10, .executable = browser, .arguments = {"browser", "--app=mail", "--x"}});
  processes.add({.pid = 11, .parent = 10, .executable = browser, .arguments = {"browser", "--type=tab"}});
  processes.add({.pid = 12, .executable = browser, .arguments = {"browser", "https://example.org/"}});
  processes.add({.pid = 13, .executable = browser, .arguments = {"browser", "rungame", "7"}});
  processes.add({.pid = 14, .executable = browser, .controlGroup = "/app-org.example.Mail-1.scope"});
  EXPECT_EQ(bundle(10), "org.example.Mail");
  EXPECT_EQ(bundle(11), "org.example.Mail.helper");
  EXPECT_EQ(bundle(12), "org.example.Browser");
  EXPECT_EQ(bundle(13), "org.example.Game");
  EXPECT_EQ(bundle(14), "org.example.Mail");
}

TEST_F(DesktopProcessOwners, AreTheApplicationWhoseScriptBecameThem) {
  installed.addScript("lib/suite/start", "#!/bin/sh\n");
  installed.addEntry("org.example.Writer", (installed.root() / "lib/suite/start").string() + " --writer %U");
  installed.addEntry("org.example.Painter",
                     (installed.root() / "lib/suite/start").string() + " --painter %U");
  processes.add({.pid = 10,
                 .executable = installed.root() / "lib/suite/suite.bin",
                 .arguments = {"suite.bin", "--painter"}});
  EXPECT_EQ(bundle(10), "org.example.Painter");

  // Even if what it became has an entry of its own, as the session knows better.
  installed.addEntry("org.example.Work", installed.addScript("lib/office/work", "#!/bin/sh\n"));
  processes.add({.pid = 11, .executable = browser, .controlGroup = "/app-org.example.Work-1.scope"});
  EXPECT_EQ(bundle(11), "org.example.Work");
}

TEST_F(DesktopProcessOwners, AreTheSandboxedApplicationWhateverTheirProgramIsCalledInThere) {
  installed.addEntry("org.example.Boxed", "/usr/bin/flatpak run org.example.Boxed");
  processes.add({.pid = 10, .executable = "/usr/bin/bwrap", .sandbox = "org.example.Boxed"});
  processes.add({.pid = 11, .parent = 10, .executable = browser, .sandbox = "org.example.Boxed"});
  processes.add({.pid = 12, .executable = browser, .sandbox = "org.example.NotInstalled"});
  EXPECT_EQ(main(10), "org.example.Boxed");
  EXPECT_EQ(bundle(11), "org.example.Boxed.helper");
  EXPECT_EQ(bundle(12), "none");
}

TEST_F(DesktopProcessOwners, CountForWhatTheUserSeesIfTheirOwnEntryIsHidden) {
  processes.add({.pid = 10, .executable = daemon});
  processes.add({.pid = 11, .parent = 10, .executable = "/usr/bin/pw-play"});
  processes.add({.pid = 20, .executable = browser});
  processes.add({.pid = 21, .parent = 20, .executable = daemon});
  EXPECT_EQ(bundle(10), "org.example.Daemon");
  EXPECT_EQ(applications().runningApplication(10)->activationPolicy, platform::ActivationPolicy::accessory);
  EXPECT_EQ(bundle(11), "none");
  EXPECT_EQ(bundle(21), "org.example.Browser.helper");
}

TEST_F(DesktopProcessOwners, SurviveProcessesThatVanishOrMakeNoSense) {
  processes.add({.pid = 10, .executable = browser, .startTime = 50}); // took the number of 11's parent
  processes.add({.pid = 11, .parent = 10, .executable = "/usr/bin/pw-play", .startTime = 40});
  processes.add({.pid = 12, .parent = 13, .executable = browser, .startTime = 30});
  processes.add({.pid = 13, .parent = 12, .executable = browser, .startTime = 30});
  std::filesystem::create_directories(processes.root() / "14");
  std::ofstream(processes.root() / "14/stat") << "14 (a) S";
  processes.add({.pid = 15, .parent = 99, .executable = browser + " (deleted)"});
  EXPECT_EQ(bundle(11), "none");
  EXPECT_EQ(bundle(14), "none");
  EXPECT_EQ(bundle(15), "org.example.Browser"); // replaced by an update while it runs
  EXPECT_EQ(bundle(-1), "none");
  EXPECT_EQ(bundle(0), "none");
  (void)bundle(12); // comes back
  processes.remove(10);
  EXPECT_EQ(bundle(10), "none");
  const adapters::XdgRunningApplications without({installed.entries()}, processes.root() / "none");
  EXPECT_THAT(without.runningApplications(), IsEmpty());
}

TEST_F(DesktopProcessOwners, LeaveOtherUsersProcessesToThem) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs another user's files";
  processes.add({.pid = 10, .executable = browser});
  EXPECT_EQ(bundle(10), "org.example.Browser");
  const auto directory = processes.root() / "10";
  ASSERT_EQ(::chown(directory.c_str(), 12345, 12345), 0);
  EXPECT_EQ(bundle(10), "none");
  EXPECT_THAT(applications().runningApplications(), IsEmpty());
}

TEST_F(DesktopProcessOwners, ListEachApplicationOnceByItsOldestMainProcess) {
  processes.add({.pid = 10, .executable = browser, .startTime = 70});
  processes.add({.pid = 20, .executable = browser, .startTime = 60});
  processes.add({.pid = 21, .parent = 20, .executable = browser, .startTime = 61});
  processes.add({.pid = 30, .executable = terminal, .startTime = 50});
  std::vector<std::int32_t> pids;
  for (const auto& application : applications().runningApplications())
    pids.push_back(application.processIdentifier);
  EXPECT_THAT(pids, ElementsAre(30, 20));
}

} // namespace
} // namespace tolvera
