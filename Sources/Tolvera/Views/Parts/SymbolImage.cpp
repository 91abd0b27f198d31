#include "Tolvera/Views/Parts/SymbolImage.h"

#include <QPainter>
#include <QPainterPath>

#include <array>

namespace tolvera {

namespace {

// Every symbol is drawn on a field of 24 by 24, y growing downward.
constexpr double field = 24;

QPainterPath polyline(std::initializer_list<QPointF> points) {
  QPainterPath path(*points.begin());
  for (const auto* point = points.begin() + 1; point != points.end(); ++point) path.lineTo(*point);
  return path;
}

QPainterPath arrowClockwise() {
  QPainterPath path;
  const QRectF circle(4.5, 4.5, 15, 15);
  path.arcMoveTo(circle, 32);
  path.arcTo(circle, 32, 296);
  path.addPath(polyline({{19.6, 3.6}, {19.6, 8.6}, {14.6, 8.6}}));
  return path;
}

QPainterPath pauseCircle() {
  QPainterPath path;
  path.addEllipse(QRectF(3, 3, 18, 18));
  path.addPath(polyline({{9.7, 8.6}, {9.7, 15.4}}));
  path.addPath(polyline({{14.3, 8.6}, {14.3, 15.4}}));
  return path;
}

QPainterPath headphones() {
  QPainterPath path;
  const QRectF band(3.5, 4, 17, 17);
  path.moveTo(3.5, 17);
  path.lineTo(3.5, 12.5);
  path.arcTo(band, 180, -180);
  path.lineTo(20.5, 17);
  path.addRoundedRect(QRectF(3.5, 13.5, 4.2, 7), 2, 2);
  path.addRoundedRect(QRectF(16.3, 13.5, 4.2, 7), 2, 2);
  return path;
}

QPainterPath waveform() {
  QPainterPath path;
  constexpr std::array halfHeights{2.0, 5.5, 9.0, 3.5, 7.0, 4.5, 1.5};
  double x = 3;
  for (const double half : halfHeights) {
    path.addPath(polyline({{x, 12 - half}, {x, 12 + half}}));
    x += 3;
  }
  return path;
}

QPainterPath ear() {
  QPainterPath path(QPointF(6, 9.2));
  path.cubicTo(6, 5.4, 8.8, 2.8, 12.2, 2.8);
  path.cubicTo(15.8, 2.8, 18.4, 5.6, 18.4, 9);
  path.cubicTo(18.4, 13.2, 14.6, 13.8, 14.2, 17);
  path.cubicTo(13.9, 19.6, 12.6, 21.2, 10.6, 21.2);
  path.cubicTo(8.8, 21.2, 7.6, 20, 7.4, 18.4);
  path.moveTo(9.2, 9.8);
  path.cubicTo(9.2, 7.4, 10.4, 6, 12.2, 6);
  path.cubicTo(14, 6, 15.2, 7.3, 15.2, 9);
  path.cubicTo(15.2, 11, 13.4, 11.2, 12.2, 12.2);
  path.cubicTo(11, 13.2, 12.6, 14.2, 11.2, 15.4);
  return path;
}

QPainterPath arrowDown() {
  auto path = polyline({{12, 4.5}, {12, 19}});
  path.addPath(polyline({{6, 13}, {12, 19}, {18, 13}}));
  return path;
}

QPainterPath xmark() {
  auto path = polyline({{6, 6}, {18, 18}});
  path.addPath(polyline({{18, 6}, {6, 18}}));
  return path;
}

QPainterPath magnifyingGlass() {
  QPainterPath path;
  path.addEllipse(QRectF(4, 4, 12.5, 12.5));
  path.addPath(polyline({{15, 15}, {20, 20}}));
  return path;
}

QPainterPath exclamationCircle() {
  QPainterPath path;
  path.addEllipse(QRectF(3, 3, 18, 18));
  path.addPath(polyline({{12, 7.5}, {12, 12.8}}));
  path.addPath(polyline({{12, 16.3}, {12, 16.4}}));
  return path;
}

QPainterPath chevrons() {
  auto path = polyline({{7.5, 9.5}, {12, 5}, {16.5, 9.5}});
  path.addPath(polyline({{7.5, 14.5}, {12, 19}, {16.5, 14.5}}));
  return path;
}

QPainterPath symbol(const QString& name) {
  if (name == QLatin1String("arrow.clockwise")) return arrowClockwise();
  if (name == QLatin1String("arrow.down")) return arrowDown();
  if (name == QLatin1String("pause.circle")) return pauseCircle();
  if (name == QLatin1String("headphones")) return headphones();
  if (name == QLatin1String("waveform")) return waveform();
  if (name == QLatin1String("ear")) return ear();
  if (name == QLatin1String("xmark")) return xmark();
  if (name == QLatin1String("magnifyingglass")) return magnifyingGlass();
  if (name == QLatin1String("exclamationmark.circle")) return exclamationCircle();
  if (name == QLatin1String("checkmark")) return polyline({{5, 12.6}, {10, 17.6}, {19.4, 6.8}});
  if (name == QLatin1String("chevron.down")) return polyline({{6.5, 9.5}, {12, 15}, {17.5, 9.5}});
  if (name == QLatin1String("chevron.up.chevron.down")) return chevrons();
  return {};
}

} // namespace

SymbolImage::SymbolImage(QQuickItem* parent) : QQuickPaintedItem(parent) {
  setAntialiasing(true);
  setImplicitSize(size_, size_);
}

void SymbolImage::setName(const QString& name) {
  if (name_ == name) return;
  name_ = name;
  Q_EMIT nameChanged();
  update();
}

void SymbolImage::setColor(const QColor& color) {
  if (color_ == color) return;
  color_ = color;
  Q_EMIT colorChanged();
  update();
}

void SymbolImage::setSize(double size) {
  if (size_ == size) return;
  size_ = size;
  setImplicitSize(size, size);
  Q_EMIT sizeChanged();
  update();
}

void SymbolImage::paint(QPainter* painter) {
  painter->setRenderHint(QPainter::Antialiasing);
  painter->translate((width() - size_) / 2, (height() - size_) / 2);
  painter->scale(size_ / field, size_ / field);
  painter->setPen(QPen(color_, 1.9, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
  painter->setBrush(Qt::NoBrush);
  painter->drawPath(symbol(name_));
}

} // namespace tolvera
