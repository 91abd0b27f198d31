#pragma once

#include <QAbstractNativeEventFilter>
#include <QColor>
#include <QObject>

#include <cstdint>
#include <optional>

class QWindow;

// What only the X server and its window manager can tell or do. Elsewhere every question is answered with
// false and every request does nothing. Main thread, with the application object made.
namespace tolvera::X11Desktop {

// The only combination that stands above full-screen windows under every window manager tried.
inline constexpr auto floatingFlags = Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                                      Qt::WindowDoesNotAcceptFocus | Qt::NoDropShadowWindowHint |
                                      Qt::X11BypassWindowManagerHint;

// An X server is at the place that the environment names. Needs no application object.
[[nodiscard]] bool isReachable();
// The X server is that of a Wayland compositor.
[[nodiscard]] bool isInsideWayland();
// A compositing manager runs, so that a window's transparent parts are transparent.
[[nodiscard]] bool hasCompositor();
// A tray of the older kind, which embeds windows, is there.
[[nodiscard]] bool hasEmbeddingTray();
// The colour in which that tray wants symbols, if it says so.
[[nodiscard]] std::optional<QColor> embeddingTrayColor();
// Activates a mapped window at the user's request, also if another program is in front.
void activate(const QWindow& window);

// Tells when the window manager has put the windows that it manages into another order, or has activated
// another one. Silent elsewhere. Main thread.
class WindowOrder final : public QObject, public QAbstractNativeEventFilter {
  Q_OBJECT

 public:
  WindowOrder();
  ~WindowOrder() override;

  bool nativeEventFilter(const QByteArray& type, void* message, qintptr* result) override;

 Q_SIGNALS:
  void changed();

 private:
  std::uint32_t stacking_ = 0; // atoms
  std::uint32_t active_ = 0;
};

} // namespace tolvera::X11Desktop
