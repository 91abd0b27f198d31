#pragma once

#include "Tolvera/Model/Phase.h"
#include "Tolvera/Model/Strings.h"

#include <QColor>
#include <QMenu>
#include <QString>

#include <functional>

namespace tolvera {

class AppState;

// The texts and rules of the menu. Pure functions of their arguments; balances in seconds.
namespace MenuBarRules {

// What is going on; `balance` is the time left as text.
[[nodiscard]] QString statusLine(const Strings& strings, const Phase& phase, const QString& balance);
[[nodiscard]] QString startTitle(const Strings& strings, const Phase& phase);
// A run that has used up its balance can still be stopped; one that is just starting cannot.
[[nodiscard]] bool startEnabled(const Phase& phase, double secondsLeft);
// The colour of entries that cannot be chosen: fainter than the others, and still read, with a contrast
// of 4.5.
[[nodiscard]] QColor faintText(const QColor& text, const QColor& ground);

} // namespace MenuBarRules

// The menu of the tray icon: the status, a run's start and stop, the main window, quitting. It follows the
// model, also while it is open. Main thread.
class MenuBarView final : public QMenu {
  Q_OBJECT

 public:
  // `state` outlives the menu. `openWindow` opens the main window and brings it to the front.
  MenuBarView(AppState& state, std::function<void()> openWindow);

 protected:
  void changeEvent(QEvent* event) override;

 private:
  void update();
  void keepStatusReadable();
  void toggleRun();

  AppState& state_;
  QAction* status_;
  QAction* start_;
  QAction* open_;
  QAction* settings_;
  QAction* quit_;
};

} // namespace tolvera
