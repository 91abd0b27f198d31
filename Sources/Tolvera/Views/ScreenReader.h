#pragma once

#include <QObject>
#include <QQuickItem>
#include <QString>
#include <QtQml/qqmlregistration.h>

namespace tolvera {

// Has a text read aloud at once, also while the focus is elsewhere, if the user has a screen reader. Main
// thread.
class ScreenReader final : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_SINGLETON

 public:
  // `item` shows the text, and has it as its accessible name by the next turn of the event loop.
  Q_INVOKABLE static void announce(QQuickItem* item, const QString& text);
};

} // namespace tolvera
