#include "Tolvera/Desktop/LayerShell.h"

#ifdef TOLVERA_LAYER_SHELL

#include <LayerShellQt/Window>

#include <QGuiApplication>
#include <QMargins>
#include <QPointF>
#include <QWindow>

#include <poll.h>
#include <wayland-client.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <memory>

namespace tolvera::LayerShell {

namespace {

using namespace std::chrono_literals;
using Surface = LayerShellQt::Window;

constexpr auto answerLimit = 2s;

// One look at what a compositor offers.
struct Look {
  bool hasLayerShell = false;
  bool isComplete = false;

  static void note(void* look, wl_registry*, std::uint32_t, const char* interface, std::uint32_t) {
    if (std::strcmp(interface, "zwlr_layer_shell_v1") == 0) static_cast<Look*>(look)->hasLayerShell = true;
  }
  static void forget(void*, wl_registry*, std::uint32_t) {}
  static void complete(void* look, wl_callback*, std::uint32_t) {
    static_cast<Look*>(look)->isComplete = true;
  }
};

// Waits for the next events and handles them; false if there were none in time.
bool takeEvents(wl_display* display, std::chrono::steady_clock::time_point deadline) {
  while (wl_display_prepare_read(display) != 0) wl_display_dispatch_pending(display);
  wl_display_flush(display);
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
  pollfd waiting{wl_display_get_fd(display), POLLIN, 0};
  if (left <= 0ms || ::poll(&waiting, 1, static_cast<int>(left.count())) <= 0) {
    wl_display_cancel_read(display);
    return false;
  }
  return wl_display_read_events(display) == 0 && wl_display_dispatch_pending(display) >= 0;
}

bool look() {
  // A connection that the program inherits can be used once, and is Qt's.
  if (qEnvironmentVariableIsSet("WAYLAND_SOCKET")) return false;
  const std::unique_ptr<wl_display, decltype(&wl_display_disconnect)> display(wl_display_connect(nullptr),
                                                                              &wl_display_disconnect);
  if (!display) return false;
  const std::unique_ptr<wl_registry, decltype(&wl_registry_destroy)> registry(
      wl_display_get_registry(display.get()), &wl_registry_destroy);
  const std::unique_ptr<wl_callback, decltype(&wl_callback_destroy)> end(wl_display_sync(display.get()),
                                                                         &wl_callback_destroy);
  Look look;
  constexpr wl_registry_listener globals{.global = &Look::note, .global_remove = &Look::forget};
  constexpr wl_callback_listener last{.done = &Look::complete};
  wl_registry_add_listener(registry.get(), &globals, &look);
  wl_callback_add_listener(end.get(), &last, &look);
  const auto deadline = std::chrono::steady_clock::now() + answerLimit;
  while (!look.isComplete && takeEvents(display.get(), deadline)) {
  }
  return look.isComplete && look.hasLayerShell;
}

} // namespace

bool isOffered() {
  static const bool isOffered = look();
  return isOffered;
}

bool adopt(QWindow& window) {
  if (!QGuiApplication::platformName().startsWith(QStringLiteral("wayland")) || !isOffered()) return false;
  auto& surface = *Surface::get(&window);
  surface.setLayer(Surface::LayerOverlay);
  surface.setAnchors({Surface::AnchorTop, Surface::AnchorLeft});
  surface.setExclusiveZone(-1); // the place counts from the screen's corner, also where a panel is
  surface.setKeyboardInteractivity(Surface::KeyboardInteractivityNone);
  surface.setScope(QStringLiteral("tolvera-captions"));
  // The window outlives its screen.
  surface.setCloseOnDismissed(false);
  return true;
}

void place(QWindow& window, QPoint onScreen) {
  // The library counts in the compositor's pixels, which differ from Qt's if the user scales Qt's programs.
  const double scale = qEnvironmentVariable("QT_SCALE_FACTOR").toDouble();
  if (scale > 0) onScreen = (QPointF(onScreen) * scale).toPoint();
  Surface::get(&window)->setMargins({onScreen.x(), onScreen.y(), 0, 0});
}

void choose(QWindow& window, Screen screen) {
  Surface::get(&window)->setScreenConfiguration(screen == Screen::own ? Surface::ScreenFromQWindow
                                                                      : Surface::ScreenFromCompositor);
}

} // namespace tolvera::LayerShell

#else

namespace tolvera::LayerShell {

bool isOffered() { return false; }
bool adopt(QWindow&) { return false; }
void place(QWindow&, QPoint) {}
void choose(QWindow&, Screen) {}

} // namespace tolvera::LayerShell

#endif
