#pragma once

#include <QImage>
#include <QQuickPaintedItem>
#include <QtQml/qqmlregistration.h>

namespace tolvera {

// The application's icon: a rounded square with the program's figure. Main thread.
namespace AppIcon {

// Fills the square from (0, 0) to (`side`, `side`).
void draw(QPainter& painter, double side);
// The icon with a side of `pixels`, on a transparent ground.
[[nodiscard]] QImage image(int pixels);

} // namespace AppIcon

// The icon as an element of a view, as large as the element.
class AppIconItem : public QQuickPaintedItem {
  Q_OBJECT
  QML_NAMED_ELEMENT(AppIcon)

 public:
  explicit AppIconItem(QQuickItem* parent = nullptr);
  void paint(QPainter* painter) override;
};

} // namespace tolvera
