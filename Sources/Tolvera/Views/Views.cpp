#include "Tolvera/Views/Views.h"

#include <QFont>
#include <QFontInfo>
#include <QGuiApplication>
#include <QQmlEngine>
#include <QQuickWindow>

namespace tolvera::Views {

void prepareApplication() {
  // Sharp at every scale, and the same as in other programs' windows.
  QQuickWindow::setTextRenderType(QQuickWindow::NativeTextRendering);
  // Named, since the fallback left to itself may draw Chinese with Japanese forms.
  auto font = QGuiApplication::font();
  font.setFamilies({QFontInfo(font).family(), QStringLiteral("Noto Sans CJK SC")});
  QGuiApplication::setFont(font);
}

void prepareEngine(QQmlEngine& engine) { engine.addImportPath(QStringLiteral("qrc:/qt/qml")); }

} // namespace tolvera::Views
