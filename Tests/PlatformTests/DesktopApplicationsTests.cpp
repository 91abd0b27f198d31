#include "Harness/PrivateGraph.h"
#include "Harness/TemporaryDirectory.h"
#include "Harness/TemporaryEnvironment.h"
#include "Platform/Linux/Desktop/PosixFileManager.h"
#include "Platform/Linux/Desktop/XdgRunningApplications.h"
#include "Platform/Linux/Desktop/XdgWorkspace.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <fstream>

namespace tolvera {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using adapters::XdgRunningApplications;

// A made-up process and the bundle identifier that it must have. '|' ends each text of a list.
struct Row {
  int pid, parent;
  std::string executable, bundle, arguments = {}, unit = {}, environment = {}, sandbox = {};
};

class Applications : public testing::Test {
 protected:
  Applications() {
    fs::create_directories(root / "applications");
    for (const char* variable : {"XDG_DATA_HOME", "XDG_CONFIG_HOME"}) environment.set(variable, root);
    environment.set("PATH", root.string() + ":" + ::getenv("PATH"));
    environment.set("LANGUAGE", "en");
    addEntry("browser", browser + " %U");
    addEntry("terminal", terminal);
    addEntry("daemon", daemon, "NoDisplay=true");
  }

  void addEntry(const std::string& id, const std::string& exec, const std::string& lines = "") const {
    std::ofstream file(root / "applications" / (id + ".desktop"));
    file << "[Desktop Entry]\nType=Application\nName=Name of " << id << "\nExec=" << exec << "\n" << lines;
  }
  // A script, or without a text a copy of a program that sleeps. Returns its path.
  [[nodiscard]] std::string program(const char* name, const std::string& script = "") const {
    const auto file = root / name;
    script.empty() ? fs::copy("/bin/sleep", file) : (void)(std::ofstream(file) << script);
    fs::permissions(file, fs::perms::owner_all);
    return file;
  }
  void addProcess(const Row& row) const {
    const auto place = root / "proc" / std::to_string(row.pid);
    fs::create_directories(place / "root");
    const std::string rest = " 0 0 0 0 0 0 0 0 0 0 0 0 0 20 0 1 0 ";
    std::ofstream(place / "stat") << "7 (odd) S 9 (name) S " << row.parent << rest << row.pid << " 0 0\n";
    std::ofstream(place / "cgroup") << "12:cpu:/x\n0::/user.slice/user@1000.service/" << row.unit << "\n";
    fs::create_symlink(row.executable, place / "exe");
    const auto list = [](std::string texts) { return std::ranges::replace(texts, '|', '\0'), texts; };
    std::ofstream(place / "cmdline") << list(row.arguments);
    std::ofstream(place / "environ") << list(row.environment);
    if (!row.sandbox.empty()) std::ofstream(place / "root/.flatpak-info") << "[Application]\nname=boxed";
  }
  [[nodiscard]] XdgRunningApplications madeUp() const { return {{root / "applications"}, root / "proc"}; }
  void expectBundles(const std::vector<Row>& rows) const {
    for (const Row& row : rows) addProcess(row);
    for (const Row& row : rows)
      EXPECT_EQ(madeUp().bundleIdentifier(row.pid).value_or("none"), row.bundle) << row.pid << row.unit;
  }

  const test::TemporaryDirectory temporary;
  const fs::path root = fs::canonical(temporary.path());
  test::TemporaryEnvironment environment;
  const std::string browser = program("browser-program");
  const std::string terminal = program("terminal-program");
  const std::string daemon = program("daemon-program");
  const std::string player = "/bin/true";
  const std::string shell = fs::canonical("/bin/sh");
};

// Comes first, as GIO reads the directories of the default applications once.
TEST_F(Applications, OpenAddresses) {
  const auto note = root / "note";
  addEntry("viewer", program("viewer", "#!/bin/sh\necho $# \"$1\" >" + note.string() + "\n") + " %u",
           "MimeType=x-scheme-handler/http;");
  std::ofstream(root / "mimeapps.list") << "[Default Applications]\nx-scheme-handler/http=viewer.desktop\n";
  adapters::XdgWorkspace workspace;
  const std::string address = "http://127.0.0.1:18790/x?a=$(touch$IFS/tmp/x);'&b=*";
  const auto isOpen = [&] { return adapters::PosixFileManager().contents(note) == "1 " + address + "\n"; };
  EXPECT_TRUE(workspace.openURL(platform::URL(address)) && test::eventually(isOpen));
  for (const char* refused : {"file:///etc/passwd", "javascript:1", "mailto:a@a", "//a.org/", "", "http:a"})
    EXPECT_FALSE(workspace.openURL(platform::URL(refused))) << refused;
}

TEST_F(Applications, AreFoundByUnit) {
  for (const char* id : {"org.Browser", "org.Terminal", "org.dash-ed", "fire_fire"}) addEntry(id, "true");
  const std::pair<const char*, const char*> units[] = {
      {"app-gnome-org.Browser-4711.scope", "org.Browser"},
      {"app-org.Browser@6f1b.service", "org.Browser"},
      {"app-gnome-org.dash\\x2ded-12.scope", "org.dash-ed"},
      {"app-org.Terminal.slice/vte-spawn-0a.scope", "org.Terminal"},
      {"dbus-:1.2-org.Terminal@0.service", "org.Terminal"},
      {"snap.fire.fire-0f7a1c5e-2b1c-4d7e-9d7b-0123456789ab.scope", "fire_fire"},
      {"snap.fire.hook.configure.scope", "fire_fire"},
      {"app-org.Browserish-1.scope", "none"},
      {"app-\\x2.scope", "none"}};
  for (int pid = 100; const auto& [unit, id] : units) expectBundles({{++pid, 1, player, id, "", unit}});
}

TEST_F(Applications, AreFoundByLaunch) {
  addEntry("boxed", "true run boxed");
  // Children inherit what the desktop told the terminal.
  const auto launch = "GIO_LAUNCHED_DESKTOP_FILE=" + (root / "applications/terminal.desktop").string() +
                      "|GIO_LAUNCHED_DESKTOP_FILE_PID=16|";
  expectBundles({
      {10, 1, terminal, "terminal", "", "app-terminal-7.scope"},
      {11, 10, shell, "terminal.helper", "", "app-terminal-7.scope"},
      {12, 11, browser, "browser", "", "app-terminal-7.scope"},
      {13, 12, browser, "browser.helper", "", "app-terminal-7.scope"},
      {15, 1, browser, "browser", "", "app-terminal.slice/vte-1.scope"}, // its shell has ended
      {16, 1, "/usr/bin/loader", "terminal", "", "", launch},
      {17, 16, browser, "browser", "", "", launch},
      {20, 1, daemon, "daemon"}, // no menu shows it
      {22, 12, daemon, "browser.helper"},
      {30, 31, player, "none"}, // a younger process took its parent's number
      {31, 1, browser, "browser"},
      {40, 1, "/usr/bin/bwrap", "boxed", "", "", "", "yes"}, // in a sandbox
      {41, 40, browser, "boxed.helper", "", "", "", "yes"},
  });
  std::string oldest;
  for (const auto& each : madeUp().runningApplications()) oldest += std::to_string(each.processIdentifier);
  EXPECT_EQ(oldest, "10122040");
  EXPECT_FALSE(madeUp().runningApplication(13)); // a helper
}

TEST_F(Applications, AreFoundByProgram) {
  const auto alarm = program("alarm-script", "#!/bin/sh\n");
  const auto loose = program("loose-script", "#!/bin/sh -e\n");
  const auto main = program("engine-file", "no more than text\n");
  addEntry("mail", browser + " --app=mail %U");
  addEntry("game", browser + " rungame 7");
  addEntry("alarm", "env LANG=C alarm-script --ring %U");
  addEntry("engine", daemon + " " + main);
  expectBundles({
      {10, 1, browser, "mail", "browser|--app=mail|--x|"},
      {11, 10, browser, "mail.helper", "browser|--tab|"},
      {12, 1, browser, "browser", "browser|https://a.org/|"},
      {13, 1, browser, "game", "browser|rungame|7|"},
      {15, 1, browser + " (deleted)", "browser"}, // by an update
      {20, 1, shell, "alarm", "/bin/sh|" + alarm + "|"},
      {21, 20, player, "alarm.helper"},
      {22, 1, "/nowhere/alarm-script", "alarm", "alarm|--ring|"}, // what the script started
      {23, 1, shell, "none", "sh|-e|" + loose + "|"},
      {30, 1, daemon, "engine", "daemon|" + main + "|"},
      {31, 1, daemon, "daemon", "daemon|-c|text|"},
  });
  // A circle of parents, a file cut short, a process that has ended, another user's.
  for (const auto [pid, parent] : {std::pair(40, 41), {41, 40}, {99, 1}})
    addProcess({pid, parent, browser, ""});
  (void)madeUp().bundleIdentifier(40);
  std::ofstream(root / "proc/20/stat") << "20 (a) S";
  if (::geteuid() == 0) EXPECT_EQ(::chown((root / "proc/99").c_str(), 12345, 12345), 0);
  for (const int pid : {0, 20, ::geteuid() == 0 ? 99 : 98}) EXPECT_FALSE(madeUp().bundleIdentifier(pid));
}

TEST_F(Applications, HaveTheirEntryNames) {
  addEntry("org.Player", "env LANG=C player-program --gui %U", "Name[zh_CN]=播放器\nName[de]=Spieler");
  addProcess({10, 1, program("player-program"), ""});
  const XdgRunningApplications applications({root / "proc", root / "applications"}, root / "proc");
  EXPECT_EQ(applications.runningApplication(10)->localizedName, "Name of org.Player");
  for (const char* variable : {"LANGUAGE", "LC_ALL", "LANG"}) environment.set(variable, "zh_CN.UTF-8");
  EXPECT_EQ(applications.runningApplication(10)->localizedName, "播放器");
  EXPECT_EQ(applications.bundleName("org.Player"), "Name of org.Player");
  // A hidden entry in an earlier directory removes it.
  std::ofstream(root / "proc/org.Player.desktop") << "[Desktop Entry]\nType=Application\nHidden=true\n";
  EXPECT_EQ(applications.bundleName("org.Player"), std::nullopt);
}

TEST_F(Applications, SkipBrokenEntries) {
  addProcess({10, 1, program("kind"), ""});
  fs::create_directory_symlink(".", root / "applications/circle");
  std::ofstream(root / "applications/noise.desktop") << "\xff\xfe[x";
  for (const char* line : {"Hidden=true", "TryExec=not-installed", "Type=Link", "Exec=\"unfinished"}) {
    addEntry("kind", "kind", line);
    EXPECT_FALSE(madeUp().runningApplication(10)) << line;
  }
}

TEST_F(Applications, NoticeInstalledEntries) {
  const auto applications = madeUp();
  const auto tick = fs::file_time_type::clock::now() - 1h;
  for (const std::string id : {"first", "second", "third"}) {
    EXPECT_EQ(applications.bundleName(id), std::nullopt);
    addEntry(id, "true");
    // First two changes within one tick of the file system's clock, then one long after a reading.
    fs::last_write_time(root / "applications", tick + (id == "third" ? 0h : 24h));
    EXPECT_EQ(applications.bundleName(id), "Name of " + id);
  }
  fs::remove(root / "applications/first.desktop");
  EXPECT_EQ(applications.bundleName("first"), std::nullopt);
}

} // namespace
} // namespace tolvera
