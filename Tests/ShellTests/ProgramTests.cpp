#include "Harness/ChildProcess.h"
#include "Harness/TemporaryDirectory.h"
#include "Harness/TemporaryEnvironment.h"
#include "ShellTests/DesktopControl.h"
#include "ShellTests/DesktopFixture.h"

#include <QDir>
#include <QFile>
#include <QSysInfo>

#include <gtest/gtest.h>

#include <csignal>
#include <optional>

namespace tolvera::test {

namespace {

using namespace std::chrono_literals;

// The program itself, as a user starts and ends it.
class ProgramTests : public testing::Test {
 protected:
  ProgramTests() {
    qputenv("XDG_CONFIG_HOME", QByteArray::fromStdString(directory_.path().string()));
    std::filesystem::create_directories(directory_ / "tolvera");
    QFile preferences(QString::fromStdString((directory_ / "tolvera/preferences.json").string()));
    if (preferences.open(QIODevice::WriteOnly)) preferences.write(R"({"seenOnboarding":true})");
  }

  static ChildProcess launch() { return ChildProcess({TOLVERA_PROGRAM}, "/dev/stderr"); }

  // The visible window with this title that a process has; nothing without one.
  static std::optional<std::string> window(const ChildProcess& program,
                                           const std::string& title = "^Tolvera$") {
    try {
      return xdotool(
          {"search", "--onlyvisible", "--all", "--pid", std::to_string(program.pid()), "--name", title});
    } catch (const std::runtime_error&) {
      return std::nullopt;
    }
  }
  static bool comesUp(const ChildProcess& program) {
    return eventually([&program] { return window(program).has_value(); });
  }
  static bool isInFront(const ChildProcess& program) {
    return eventually([&program] {
      try {
        return window(program) == xdotool({"getactivewindow"});
      } catch (const std::runtime_error&) {
        return false; // no window is active
      }
    });
  }
  static void close(const ChildProcess& program) {
    xdotool({"windowclose", window(program).value()});
    eventually([&program] { return !window(program); });
  }
  static int end(ChildProcess& program, int signal) {
    ::kill(program.pid(), signal);
    return program.wait(15s);
  }

  TemporaryDirectory directory_;
};

TEST_F(ProgramTests, comesForwardWhenItIsLaunchedAgain) {
  auto first = launch();
  ASSERT_TRUE(comesUp(first));
  const auto other = startOtherProgram((directory_ / "keys").string());
  EXPECT_FALSE(window(first) == xdotool({"getactivewindow"}));
  auto second = launch();
  promise("a second launch ends with status 0", second.wait(15s) == 0);
  promise("and brings the first one's window to the front", isInFront(first));

  xdotool({"key", "ctrl+w"});
  promise("closing the window leaves the program running",
          eventually([&] { return !window(first); }) && first.running());
  auto third = launch();
  EXPECT_EQ(third.wait(15s), 0);
  promise("a further launch brings the closed window back", isInFront(first));
  promise("SIGTERM ends it with status 0", end(first, SIGTERM) == 0);
}

TEST_F(ProgramTests, isNotKeptFromStartingByOneThatIsDeadOrHangs) {
  auto killed = launch();
  ASSERT_TRUE(comesUp(killed));
  killed.kill();
  auto hanging = launch();
  promise("one that was killed does not block the next", comesUp(hanging));
  ::kill(hanging.pid(), SIGSTOP);
  auto next = launch();
  promise("one that hangs does not block the next", comesUp(next));
  ::kill(hanging.pid(), SIGCONT);
  promise("and ends when it wakes up", hanging.wait(15s) == 0);
  promise("SIGINT ends it with status 0", end(next, SIGINT) == 0);
}

TEST_F(ProgramTests, endsWithTheSession) {
  // The programs that the session starts with: none.
  QFile startup(QDir::home().filePath(QStringLiteral(".xsmstartup")));
  ASSERT_TRUE(startup.open(QIODevice::WriteOnly));
  ChildProcess session({"xsm", "-session", "default"});
  const auto socket = "/tmp/.ICE-unix/" + std::to_string(session.pid());
  ASSERT_TRUE(eventually([&socket] { return std::filesystem::exists(socket); }));
  const auto host = QSysInfo::machineHostName().toStdString();
  TemporaryEnvironment environment;
  environment.set("SESSION_MANAGER", "local/" + host + ":@" + socket + ",unix/" + host + ":" + socket);
  auto program = launch();
  ASSERT_TRUE(comesUp(program));
  ::kill(session.pid(), SIGTERM);
  promise("the session's end ends it with status 0", program.wait(15s) == 0);
  session.wait(5s);
}

TEST_F(ProgramTests, startsWithoutASessionBus) {
  TemporaryEnvironment environment;
  environment.set("DBUS_SESSION_BUS_ADDRESS", "unix:path=/dev/null");
  auto program = launch();
  promise("it starts without a session bus", comesUp(program));
  EXPECT_TRUE(isInFront(program));
  xdotool({"key", "ctrl+q"});
  promise("the quit command ends it with status 0", program.wait(15s) == 0);
}

} // namespace
} // namespace tolvera::test
