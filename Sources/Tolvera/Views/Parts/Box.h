#pragma once

#include <QColor>
#include <QQuickPaintedItem>
#include <QtQml/qqmlregistration.h>

namespace tolvera {

// A filled rectangle with round corners and a border inside its edge, smooth at every scale, which the
// software renderer's own rectangles are not at fractions. Each is an image of its size.
class Box : public QQuickPaintedItem {
  Q_OBJECT
  QML_ELEMENT
  Q_PROPERTY(QColor color MEMBER color_ NOTIFY changed)
  Q_PROPERTY(double radius MEMBER radius_ NOTIFY changed)
  Q_PROPERTY(double borderWidth MEMBER borderWidth_ NOTIFY changed)
  Q_PROPERTY(QColor borderColor MEMBER borderColor_ NOTIFY changed)

 public:
  explicit Box(QQuickItem* parent = nullptr);
  void paint(QPainter* painter) override;

 Q_SIGNALS:
  void changed();

 private:
  QColor color_ = Qt::transparent;
  double radius_ = 0;
  double borderWidth_ = 0;
  QColor borderColor_ = Qt::black;
};

} // namespace tolvera
