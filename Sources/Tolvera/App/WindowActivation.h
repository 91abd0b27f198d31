#pragma once

class QWindow;

namespace tolvera {

// Shows a window in front of all others and gives it the keyboard, even if another program is in front. Only
// for a window that the user has just asked for. Main thread.
void bringForward(QWindow& window);

} // namespace tolvera
