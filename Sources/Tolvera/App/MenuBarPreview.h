#pragma once

#include <QWidget>

#include <functional>
#include <memory>

namespace tolvera {

class AppState;

// A window with the tray's menu in it, to look at the menu without a tray. For developers; main thread.
class MenuBarPreview {
 public:
  // Makes the window on the screen with the pointer and brings it to the front. As for the menu itself,
  // `state` outlives it, and `openWindow` opens the main window.
  void show(AppState& state, std::function<void()> openWindow);
  void close() { window_.reset(); }

 private:
  std::unique_ptr<QWidget> window_;
};

} // namespace tolvera
