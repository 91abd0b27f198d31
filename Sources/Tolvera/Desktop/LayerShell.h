#pragma once

#include <QPoint>

class QWindow;

// Windows that a Wayland compositor keeps above all others, full-screen ones included, at the place that
// their program chooses: the layer-shell protocol. Qt and the library for it are asked here alone.
namespace tolvera::LayerShell {

// The compositor that the environment names offers the protocol, and this program was built for it. Asks at
// the first call, on a connection of its own and for 2 s at most. Needs no application object; any thread.
[[nodiscard]] bool isOffered();

// Makes a window such a surface, without the keyboard. False if it stays an ordinary one: the protocol is not
// offered, or Qt uses another platform. Main thread, as below; the window has not been shown yet.
[[nodiscard]] bool adopt(QWindow& window);

// Puts the window's top left corner there on its screen, in device-independent pixels, with its next frame.
void place(QWindow& window, QPoint onScreen);

// Which screen the next show puts the window on: its own, or the one that the compositor takes for current.
enum class Screen { own, current };
void choose(QWindow& window, Screen screen);

} // namespace tolvera::LayerShell
