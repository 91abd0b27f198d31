#include "Tolvera/Views/Views.h"

#include <QApplication>

#include <gtest/gtest.h>

// Tests that need widgets and fonts but neither a window server nor a desktop's services.
int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  qputenv("QT_QPA_PLATFORM", "offscreen");
  qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/dev/null");
  const QApplication application(argc, argv);
  return RUN_ALL_TESTS();
}
