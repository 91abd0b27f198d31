#pragma once

#include "Async/Spawn.h"
#include "Tolvera/App/LocationCheck.h"
#include "Tolvera/App/MainWindow.h"

#include <QObject>
#include <QPointer>
#include <QRect>
#include <QTimer>

#include <functional>
#include <optional>

class QQmlEngine;

namespace tolvera {

class AppState;
class LanguageNames;

// How the application behaves around its windows: closing the main one leaves it running, reopening it
// brings that one back, and every way to quit ends a run politely. Main thread.
class AppDelegate final : public QObject {
  Q_OBJECT

 public:
  // All outlive the delegate. `executor` is the main thread's.
  AppDelegate(QQmlEngine& engine, AppState& state, LanguageNames& names, Executor executor);
  ~AppDelegate() override;

  // Once the windows are there: ends the application, after it has told the user why, if it stands where it
  // cannot work. `path` is where it stands.
  void applicationDidFinishLaunching(const QString& path, const platform::Platform& platform,
                                     const RunAlert& runAlert);

  // Opens the main window, or brings it to the front.
  void openMainWindow();
  [[nodiscard]] MainWindow* mainWindow() const { return mainWindow_; }

  // Ends a run politely and then the program, with status 0: capture stops at once, the service hears
  // goodbye. Asked again meanwhile, the program ends at once.
  void terminate();

  // Turns every request to quit the application into `terminate`.
  bool eventFilter(QObject* watched, QEvent* event) override;

 Q_SIGNALS:
  // The user has closed the main window; the program goes on.
  void leftWithoutWindow();
  // The program is about to end; its windows go.
  void terminationBegan();

 private:
  void mainWindowClosed();
  void hidePanel();
  void finish();

  QQmlEngine& engine_;
  AppState& state_;
  LanguageNames& names_;
  const Executor executor_;
  QPointer<MainWindow> mainWindow_;
  std::optional<QRect> lastGeometry_; // of a main window that was closed
  bool terminating_ = false;
  TaskHandle stopTask_;
  QTimer deadline_;
};

} // namespace tolvera
