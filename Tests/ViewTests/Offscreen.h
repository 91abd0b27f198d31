#pragma once

#include <QGuiApplication>
#include <QPalette>

namespace tolvera::test {

// An application without a desktop: windows are drawn in memory by the software renderer, accessibility is
// on, and no desktop service is asked for its settings.
class Offscreen {
 public:
  Offscreen(int& argc, char** argv);

  // As the desktop's own settings would.
  static void setDark(bool dark);
  static void setTextSize(int pixels);

 private:
  static bool prepareEnvironment();

  const bool prepared_ = prepareEnvironment();
  QGuiApplication application_;
};

} // namespace tolvera::test
