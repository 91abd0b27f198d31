#include "Platform/Linux/Desktop/XdgRunningApplications.h"

#include "PlatformTests/DesktopFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

namespace tolvera {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Sessions of every kind, without having to run one.
class DesktopProcessOwners : public testing::Test {
 protected:
  struct Row {
    test::MadeUpProcesses::Process process;
    std::string bundle;
  };

  DesktopProcessOwners() {
    installed.addEntry("browser", browser + " %U");
    installed.addEntry("terminal", terminal);
    installed.addEntry("daemon", daemon, "NoDisplay=true\n");
  }

  [[nodiscard]] adapters::XdgRunningApplications applications() const {
    return {{installed.entries()}, processes.root()};
  }
  [[nodiscard]] std::string bundle(std::int32_t pid) const {
    return applications().bundleIdentifier(pid).value_or("none");
  }
  // Whether it is an application's own, main process.
  [[nodiscard]] bool isMain(std::int32_t pid) const {
    return applications().runningApplication(pid).has_value();
  }
  void expectBundles(const std::vector<Row>& rows) const {
    for (const Row& row : rows) processes.add(row.process);
    for (const Row& row : rows) EXPECT_EQ(bundle(row.process.pid), row.bundle) << row.process.pid;
  }

  test::InstalledApplications installed;
  test::MadeUpProcesses processes;
  std::string browser = installed.addProgram("bin/browser");
  std::string terminal = installed.addProgram("bin/terminal");
  std::string daemon = installed.addProgram("bin/daemon");
  std::string player = "/usr/bin/pw-play";
};

TEST_F(DesktopProcessOwners, AreKnownByTheSessionUnitOfTheirApplication) {
  const std::string user = "/user.slice/user-1000.slice/user@1000.service/app.slice/";
  for (const char* id : {"org.Browser", "org.Terminal", "org.dash-ed", "fire_fire"}) {
    installed.addEntry(id, "/nowhere");
  }
  const std::pair<std::string, std::string> units[] = {
      {"app-gnome-org.Browser-4711.scope", "org.Browser"},
      {"app-org.Browser-4711.scope", "org.Browser"},
      {"app-flatpak-org.Browser-4711.scope", "org.Browser"},
      {"app-org.Browser@6f1b.service", "org.Browser"},
      {"app-org.Browser.service", "org.Browser"},
      {"app-gnome-org.dash\\x2ded-12.scope", "org.dash-ed"},
      {"app-gnome-org.dash-ed-12.scope", "org.dash-ed"},
      {"app-org.Terminal.slice/vte-spawn-0a.scope", "org.Terminal"},
      {"dbus-:1.2-org.Terminal@0.service", "org.Terminal"},
      {"snap.fire.fire-0f7a1c5e-2b1c-4d7e-9d7b-0123456789ab.scope", "fire_fire"},
      {"snap.fire.fire.0f7a1c5e-2b1c-4d7e-9d7b-0123456789ab.scope", "fire_fire"},
      {"snap.fire.hook.configure.scope", "fire_fire"},
      {"app-org.Browserish-1.scope", "none"},
      {"app-.scope", "none"},
      {"app-\\x2.scope", "none"},
      {"session-2.scope", "none"}};
  std::int32_t pid = 100;
  for (const auto& [unit, id] : units) {
    processes.add({.pid = ++pid, .executable = "/usr/bin/anything", .controlGroup = user + unit});
    EXPECT_EQ(bundle(pid), id) << unit;
  }
}

TEST_F(DesktopProcessOwners, AreTheirOwnApplicationInTheUnitOfAnother) {
  const std::string unit = "/app-terminal-7.scope";
  const std::string orphan = "/app-terminal.slice/vte-1.scope"; // its shell has ended
  // What the desktop told the terminal was about the terminal.
  const auto entry = installed.entries() / "terminal.desktop";
  const std::vector<std::string> told = {"GIO_LAUNCHED_DESKTOP_FILE=" + entry.string(),
                                         "GIO_LAUNCHED_DESKTOP_FILE_PID=16"};
  expectBundles({
      {{.pid = 10, .executable = terminal, .controlGroup = unit}, "terminal"},
      {{.pid = 11, .parent = 10, .executable = "/bin/sh", .controlGroup = unit}, "terminal.helper"},
      {{.pid = 12, .parent = 11, .executable = browser, .controlGroup = unit}, "browser"},
      {{.pid = 13, .parent = 12, .executable = browser, .controlGroup = unit}, "browser.helper"},
      {{.pid = 14, .parent = 11, .executable = player, .controlGroup = unit}, "terminal.helper"},
      {{.pid = 15, .executable = browser, .controlGroup = orphan}, "browser"},
      {{.pid = 16, .executable = "/usr/bin/loader", .environment = told}, "terminal"},
      {{.pid = 17, .parent = 16, .executable = browser, .environment = told}, "browser"},
      {{.pid = 18, .parent = 16, .executable = player, .environment = told}, "terminal.helper"},
  });
  EXPECT_TRUE(isMain(12));
  EXPECT_FALSE(isMain(13));
  EXPECT_FALSE(isMain(14));
}

TEST_F(DesktopProcessOwners, TellTheEntriesOfOneProgramApart) {
  installed.addEntry("mail", browser + " --app=mail %U");
  installed.addEntry("handler", browser + " --handler %u", "NoDisplay=true\n");
  installed.addEntry("game", browser + " rungame 7");
  expectBundles({
      {{.pid = 10, .executable = browser, .arguments = {"browser", "--app=mail", "--x"}}, "mail"},
      {{.pid = 11, .parent = 10, .executable = browser, .arguments = {"browser", "--tab"}}, "mail.helper"},
      {{.pid = 12, .executable = browser, .arguments = {"browser", "https://a.org/"}}, "browser"},
      {{.pid = 13, .executable = browser, .arguments = {"browser", "rungame", "7"}}, "game"},
      {{.pid = 14, .executable = browser, .controlGroup = "/app-mail-1.scope"}, "mail"},
  });
}

TEST_F(DesktopProcessOwners, AreTheApplicationWhoseScriptBecameThem) {
  const auto start = installed.addScript("lib/suite/start", "#!/bin/sh\n");
  const std::string suite = installed.root() / "lib/suite/suite.bin";
  installed.addEntry("writer", start + " --writer %U");
  installed.addEntry("painter", start + " --painter %U");
  installed.addEntry("work", installed.addScript("lib/office/work", "#!/bin/sh\n"));
  expectBundles({
      {{.pid = 10, .executable = suite, .arguments = {"suite.bin", "--painter"}}, "painter"},
      // Even if what it became has an entry of its own, as the session knows better.
      {{.pid = 11, .executable = browser, .controlGroup = "/app-work-1.scope"}, "work"},
  });
}

TEST_F(DesktopProcessOwners, AreTheApplicationOfTheScriptThatTheyRunAndNotOfItsInterpreter) {
  const std::string shell = std::filesystem::canonical("/bin/sh");
  const auto alarm = installed.addScript("bin/alarm", "#!/bin/sh\n# rings\n");
  const auto loose = installed.addScript("lib/loose", "#!/bin/sh -e\n");
  const auto engine = installed.addProgram("bin/engine");
  const auto main = installed.addScript("lib/main", "no more than text\n");
  const auto other = installed.addScript("lib/other", "#!/usr/bin/env " + engine + "\n");
  installed.addEntry("alarm", alarm);
  installed.addEntry("engine", engine);
  installed.addEntry("main", engine + " " + main);
  expectBundles({
      {{.pid = 10, .executable = shell, .arguments = {"/bin/sh", alarm}}, "alarm"},
      {{.pid = 11, .parent = 10, .executable = player}, "alarm.helper"},
      {{.pid = 20, .executable = terminal}, "terminal"},
      {{.pid = 21, .parent = 20, .executable = shell, .arguments = {"sh", "-e", loose}}, "terminal.helper"},
      {{.pid = 22, .parent = 21, .executable = player}, "terminal.helper"},
      {{.pid = 23, .parent = 20, .executable = shell, .arguments = {"sh", alarm}}, "alarm"},
      {{.pid = 24, .parent = 23, .executable = player}, "alarm.helper"},
      {{.pid = 30, .executable = shell, .arguments = {"sh", "-e", loose}}, "none"},
      {{.pid = 31, .parent = 30, .executable = player}, "none"},
      {{.pid = 40, .executable = engine, .arguments = {"engine", main}}, "main"},
      {{.pid = 41, .executable = engine, .arguments = {"engine", other}}, "none"},
      {{.pid = 42, .executable = engine, .arguments = {"engine", "-c", "text"}}, "engine"},
  });
}

TEST_F(DesktopProcessOwners, AreTheSandboxedApplicationWhateverTheirProgramIsCalledInThere) {
  installed.addEntry("boxed", "/usr/bin/flatpak run boxed");
  expectBundles({
      {{.pid = 10, .executable = "/usr/bin/bwrap", .sandbox = "boxed"}, "boxed"},
      {{.pid = 11, .parent = 10, .executable = browser, .sandbox = "boxed"}, "boxed.helper"},
      {{.pid = 12, .executable = browser, .sandbox = "missing"}, "none"},
  });
  EXPECT_TRUE(isMain(10));
}

TEST_F(DesktopProcessOwners, CountForWhatTheUserSeesIfTheirOwnEntryIsHidden) {
  expectBundles({
      {{.pid = 10, .executable = daemon}, "daemon"},
      {{.pid = 11, .parent = 10, .executable = player}, "none"},
      {{.pid = 20, .executable = browser}, "browser"},
      {{.pid = 21, .parent = 20, .executable = daemon}, "browser.helper"},
  });
  EXPECT_EQ(applications().runningApplication(10)->activationPolicy, platform::ActivationPolicy::accessory);
}

TEST_F(DesktopProcessOwners, SurviveProcessesThatVanishMakeNoSenseOrAreAnotherUsers) {
  std::filesystem::create_directories(processes.root() / "20");
  std::ofstream(processes.root() / "20/stat") << "20 (a) S";
  expectBundles({
      {{.pid = 10, .executable = browser, .startTime = 50}, "browser"}, // took the number of 11's parent
      {{.pid = 11, .parent = 10, .executable = player, .startTime = 40}, "none"},
      {{.pid = 15, .parent = 99, .executable = browser + " (deleted)"}, "browser"}, // by an update
  });
  processes.add({.pid = 12, .parent = 13, .executable = browser, .startTime = 30});
  processes.add({.pid = 13, .parent = 12, .executable = browser, .startTime = 30});
  (void)bundle(12); // comes back
  processes.remove(10);
  for (const std::int32_t pid : {-1, 0, 10, 20}) EXPECT_EQ(bundle(pid), "none") << pid;
  const adapters::XdgRunningApplications without({installed.entries()}, processes.root() / "none");
  EXPECT_THAT(without.runningApplications(), IsEmpty());

  if (::geteuid() != 0) GTEST_SKIP() << "needs another user's files";
  ASSERT_EQ(::chown((processes.root() / "15").c_str(), 12345, 12345), 0);
  EXPECT_EQ(bundle(15), "none");
}

TEST_F(DesktopProcessOwners, ListEachApplicationOnceByItsOldestMainProcess) {
  processes.add({.pid = 10, .executable = browser, .startTime = 70});
  processes.add({.pid = 20, .executable = browser, .startTime = 60});
  processes.add({.pid = 21, .parent = 20, .executable = browser, .startTime = 61});
  processes.add({.pid = 30, .executable = terminal, .startTime = 50});
  std::vector<std::int32_t> pids;
  for (const auto& application : applications().runningApplications()) {
    pids.push_back(application.processIdentifier);
  }
  EXPECT_THAT(pids, ElementsAre(30, 20));
}

} // namespace
} // namespace tolvera
