#include "Tolvera/Views/ScreenReader.h"

#include <QAccessible>

namespace tolvera {

void ScreenReader::announce(QQuickItem* item, const QString& text) {
  if (text.isEmpty()) return;
#if QT_VERSION >= QT_VERSION_CHECK(6, 8, 0)
  QAccessibleAnnouncementEvent event(item, text);
  QAccessible::updateAccessibility(&event);
#else
  // Older versions have no such event. A notification that appears is read by its name.
  const auto appear = [item] {
    QAccessibleEvent event(item, QAccessible::ObjectShow);
    QAccessible::updateAccessibility(&event);
  };
  QMetaObject::invokeMethod(item, appear, Qt::QueuedConnection);
#endif
}

} // namespace tolvera
