#pragma once

#include "Fakes/InMemoryModel.h"
#include "Tolvera/Views/LanguageNames.h"

#include <QAccessible>
#include <QApplication>
#include <QImage>
#include <QQuickItem>
#include <QQuickView>

#include <functional>
#include <memory>

namespace tolvera::test {

// An application without a desktop: it draws windows in memory, asks no desktop service for its settings,
// and ends with a message at the first warning of Qt or QML.
class Offscreen {
 public:
  Offscreen(int& argc, char** argv);

  // These act as the desktop's own settings do.
  static void setDark(bool dark);
  static void setTextSize(int pixels);

 private:
  static void prepareEnvironment();

  QApplication application_; // as the program has it
};

// One view of the program in a window of its own, on a model. It is used as a person uses it: through the
// accessibility tree, the pointer and the keyboard. Main thread.
class ViewHost {
 public:
  // `address` is one of `Views`.
  ViewHost(InMemoryModel& model, const platform::Locale& locale, const char* address, QSize size);

  QQuickView& window() { return *view_; }
  [[nodiscard]] QQuickItem& root() { return *view_->rootObject(); }

  // Lets the model and the window catch up with each other, and draws, which puts everything in its place.
  QImage grab();

  // What the control of this name shows: a picker's choice, "on", "off" or nothing, with " (disabled)" behind
  // it; "(absent)" if there is no such control.
  QString valueOf(const QString& name);
  // Whether one control, or alert, ends above where the other begins.
  bool isAbove(const QString& upper, const QString& lower);
  // Every name and description in the accessibility tree, in reading order.
  QStringList texts();
  // Every visible item of the window.
  void forEachItem(const std::function<void(QQuickItem&)>& visit);

  void click(const QString& name); // the control of this name; throws if there is none
  void dragScrollBar(int pixels);  // the one that is seen
  void press(Qt::Key key, const QString& letter = {});
  // The name of what has the keyboard's focus.
  QString focused();

  // Texts that are cut off or outside the window, and controls without a name: each as what it is and why.
  QStringList faults();

 private:
  QAccessibleInterface* control(const QString& name);
  void forEachElement(const std::function<void(QAccessibleInterface&)>& visit);

  InMemoryModel& model_;
  LanguageNames names_;
  std::unique_ptr<QQuickView> view_;
};

} // namespace tolvera::test
