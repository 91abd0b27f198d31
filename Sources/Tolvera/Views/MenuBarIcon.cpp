#include "Tolvera/Views/MenuBarIcon.h"

#include <QPainter>
#include <QPainterPath>

namespace tolvera::MenuBarIcon {

namespace {

QPainterPath flame() {
  QPainterPath path;
  path.moveTo(9.2, 11.2);
  path.quadTo(7.2, 13.2, 7.4, 15.6);
  path.quadTo(10.4, 13.6, 11.4, 11.6);
  path.closeSubpath();
  path.setFillRule(Qt::WindingFill);
  return path;
}

QPainterPath bubble(bool running) {
  QPainterPath path;
  path.addEllipse(QRectF(6.4, 2.6, 9.2, 9.2));
  if (!running) path.addEllipse(QRectF(10.6, 7.0, 2.6, 2.6));
  path.setFillRule(Qt::OddEvenFill);
  return path;
}

QPainterPath tail() {
  QPainterPath path;
  path.moveTo(9.6, 10.4);
  path.cubicTo(5.6, 10.2, 2.4, 7.4, 2.6, 4.2);
  path.cubicTo(3.0, 6.0, 5.2, 6.0, 7.4, 5.8);
  path.closeSubpath();
  path.setFillRule(Qt::WindingFill);
  return path;
}

} // namespace

void draw(QPainter& painter, bool running, const QColor& color, const QColor& outline) {
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  // The paths have their origin at the lower left.
  painter.translate(0, size.height());
  painter.scale(1, -1);
  if (outline.isValid()) {
    // Around the figure as a whole, and in its hole.
    const auto figure = flame().united(bubble(true)).united(tail());
    constexpr double outlineWidth = 1;
    painter.setPen(QPen(outline, 2 * outlineWidth, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.setBrush(outline);
    painter.drawPath(figure);
  }
  for (const auto& shape : {flame(), bubble(running), tail()}) painter.fillPath(shape, color);
  painter.restore();
}

} // namespace tolvera::MenuBarIcon
