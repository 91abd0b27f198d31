#pragma once

class QWindow;

namespace tolvera {

// Shows a window, in front of all others and with the keyboard, also if another program is in front. For
// what the user has just asked for. Main thread.
void bringForward(QWindow& window);

} // namespace tolvera
