#include "ShellTests/DesktopFixture.h"
#include "ShellTests/NotifierWatcher.h"
#include "Tolvera/App/TolveraApp.h"

#include <QApplication>

#include <gtest/gtest.h>

#include <string_view>

// Tests on a real window server, which on-desktop provides. The program is also what such tests need beside
// them: another program in front, and a tray.
int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  tolvera::TolveraApp::prepareProcess();
  const QApplication application(argc, argv);
  tolvera::TolveraApp::prepareApplication();
  const auto mode = argc > 1 ? std::string_view(argv[1]) : std::string_view();
  if (mode == "--other-program") return tolvera::test::runOtherProgram(argv[2]);
  if (mode == "--notifier-watcher") return tolvera::test::runNotifierWatcher();
  const int status = RUN_ALL_TESTS();
  tolvera::test::printPromises();
  return status;
}
