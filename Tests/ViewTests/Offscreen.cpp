#include "ViewTests/Offscreen.h"

#include "Tolvera/Views/Views.h"

#include <QAccessible>
#include <QFont>
#include <QQuickWindow>

namespace tolvera::test {

Offscreen::Offscreen(int& argc, char** argv) : application_(argc, argv) {
  Views::prepareApplication();
  QAccessible::setActive(true);
  setTextSize(14);
  setDark(false);
}

bool Offscreen::prepareEnvironment() {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/dev/null");
  qputenv("TOLVERA_REDUCED_MOTION", "1");
  QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
  QQuickWindow::setDefaultAlphaBuffer(true);
  return true;
}

void Offscreen::setDark(bool dark) {
  QPalette palette;
  palette.setColor(QPalette::Window, dark ? Qt::black : Qt::white);
  palette.setColor(QPalette::WindowText, dark ? Qt::white : Qt::black);
  QGuiApplication::setPalette(palette);
}

void Offscreen::setTextSize(int pixels) {
  auto font = QGuiApplication::font();
  font.setPixelSize(pixels);
  QGuiApplication::setFont(font);
}

} // namespace tolvera::test
