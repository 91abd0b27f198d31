#include "Tolvera/Views/Parts/Box.h"

#include <QPainter>

#include <algorithm>

namespace tolvera {

Box::Box(QQuickItem* parent) : QQuickPaintedItem(parent) {
  setAntialiasing(true);
  connect(this, &Box::changed, this, [this] { update(); });
}

void Box::paint(QPainter* painter) {
  painter->setRenderHint(QPainter::Antialiasing);
  const double inset = borderWidth_ / 2;
  const QRectF edge(inset, inset, width() - borderWidth_, height() - borderWidth_);
  const double radius = std::clamp(radius_ - inset, 0.0, std::min(edge.width(), edge.height()) / 2);
  painter->setPen(borderWidth_ > 0 ? QPen(borderColor_, borderWidth_) : QPen(Qt::NoPen));
  painter->setBrush(color_);
  painter->drawRoundedRect(edge, radius, radius);
}

} // namespace tolvera
