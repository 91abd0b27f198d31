#pragma once

class QWindow;

// What only the X server and its window manager can tell or do. Elsewhere every question is answered with
// false and every request does nothing. Main thread, with the application object made.
namespace tolvera::X11Desktop {

// A compositing manager runs, so that a window's transparent parts are transparent.
[[nodiscard]] bool hasCompositor();
// A tray of the older kind, which embeds windows, is there.
[[nodiscard]] bool hasEmbeddingTray();
// Activates a window at the user's request, whatever program is in front. The window is mapped.
void activate(const QWindow& window);

} // namespace tolvera::X11Desktop
