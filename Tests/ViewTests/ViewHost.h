#pragma once

#include "Fakes/InMemoryModel.h"
#include "Tolvera/Views/LanguageNames.h"

#include <QAccessible>
#include <QImage>
#include <QQuickItem>
#include <QQuickView>
#include <QSize>
#include <QStringList>

#include <functional>
#include <memory>

namespace tolvera::test {

// A view of the program in a window of its own, on a model. Drawn, looked at and worked as a user does: by
// what the accessibility tree says, by the pointer and by the keyboard. Main thread.
class ViewHost {
 public:
  enum class Kind { main, caption, onboarding };

  ViewHost(InMemoryModel& model, const platform::Locale& locale, Kind kind, QSize size);
  ~ViewHost();

  QQuickView& window() { return *view_; }
  [[nodiscard]] QQuickItem& root() { return *view_->rootObject(); }

  // Lets the model and the windows catch up with each other.
  void settle();
  QImage grab();

  // The visible element of this role and name; null if there is none.
  QQuickItem* find(QAccessible::Role role, const QString& name);
  // What a control of this name shows: its description for a picker, "on" or "off" for what is checked.
  QString valueOf(QAccessible::Role role, const QString& name);
  bool isEnabled(QAccessible::Role role, const QString& name);
  // The names of all visible elements of a role, in reading order.
  QStringList names(QAccessible::Role role);
  // Whether a text stands on screen.
  bool shows(const QString& text) { return find(QAccessible::StaticText, text) != nullptr; }
  // Every visible item of the window.
  void forEachItem(const std::function<void(QQuickItem&)>& visit);

  void click(QAccessible::Role role, const QString& name); // throws if there is none
  void click(QQuickItem& item);
  void press(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier);
  void type(const QString& text);
  // The name of what has the keyboard's focus.
  QString focused();

  // Texts that are cut off or stand outside of the window, and controls that the accessibility tree does not
  // tell apart: each as what it is and why.
  QStringList faults();

  // Warnings of Qt and QML since the last call.
  static QStringList takeWarnings();
  // Begins to collect them; once in a program.
  static void collectWarnings();

 private:
  QAccessibleInterface* interface(QAccessible::Role role, const QString& name);
  void forEachInterface(const std::function<void(QAccessibleInterface&)>& visit);

  InMemoryModel& model_;
  LanguageNames names_;
  std::unique_ptr<QQuickView> view_;
};

} // namespace tolvera::test
