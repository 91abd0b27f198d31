#pragma once

#include "Tolvera/App/MenuBarView.h"
#include "Tolvera/Desktop/TrayHost.h"

#include <QColor>
#include <QIcon>
#include <QObject>
#include <QSystemTrayIcon>

#include <functional>
#include <memory>

namespace tolvera {

class AppState;

// The program's icon in the desktop's tray, with its menu: there while the user wants it and the desktop
// has a tray. The icon tells whether a run is on. Main thread.
class MenuBarExtra final : public QObject {
  Q_OBJECT

 public:
  // Of the icon; without an outline where the tray's own colour is known.
  struct Colors {
    QColor figure;
    QColor outline;
  };

  // `state` outlives the icon. `openWindow` opens the main window and brings it to the front.
  MenuBarExtra(AppState& state, std::function<void()> openWindow);

  // The icon in every size that trays ask for, as squares.
  [[nodiscard]] static QIcon icon(bool running, Colors colors);

  // Without a tray, tells once in a login where the program is found.
  void tellIfThereIsNoTray();

 private:
  void insertOrRemove();
  void redraw();
  [[nodiscard]] Colors colors() const;

  AppState& state_;
  const std::function<void()> openWindow_;
  MenuBarView menu_;
  TrayHost host_;
  TrayHost::Kind insertedInto_ = TrayHost::Kind::none;
  std::unique_ptr<QSystemTrayIcon> icon_;
};

} // namespace tolvera
