#include "Tolvera/App/WindowActivation.h"

#include "Tolvera/Desktop/X11Desktop.h"

#include <QWindow>

namespace tolvera {

void bringForward(QWindow& window) {
  if (window.windowStates() & Qt::WindowMinimized) window.showNormal();
  window.show();
  window.raise();
  window.requestActivate();
  X11Desktop::activate(window);
}

} // namespace tolvera
