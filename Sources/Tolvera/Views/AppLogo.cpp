#include "Tolvera/Views/AppLogo.h"

#include "Tolvera/Views/MenuBarIcon.h"

#include <QLinearGradient>
#include <QPainter>

#include <algorithm>

namespace tolvera {

void AppIcon::draw(QPainter& painter, double side) {
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  QLinearGradient ground(0, 0, 0, side);
  ground.setColorAt(0, QColor(0x5B, 0x8D, 0xF6));
  ground.setColorAt(1, QColor(0x2A, 0x52, 0xD6));
  painter.setPen(Qt::NoPen);
  painter.setBrush(ground);
  const double inset = side * 0.03;
  painter.drawRoundedRect(QRectF(inset, inset, side - 2 * inset, side - 2 * inset), side * 0.22, side * 0.22);

  // The figure's ink is not centred in its own measure; its middle is at (9.1, 6.9) from the top left.
  const double scale = side * 0.045;
  painter.translate(side / 2, side / 2);
  painter.scale(scale, scale);
  painter.translate(-9.1, -6.9);
  MenuBarIcon::draw(painter, false, Qt::white);
  painter.restore();
}

QImage AppIcon::image(int pixels) {
  QImage image(pixels, pixels, QImage::Format_ARGB32_Premultiplied);
  image.fill(Qt::transparent);
  QPainter painter(&image);
  draw(painter, pixels);
  return image;
}

AppIconItem::AppIconItem(QQuickItem* parent) : QQuickPaintedItem(parent) {}

void AppIconItem::paint(QPainter* painter) { AppIcon::draw(*painter, std::min(width(), height())); }

} // namespace tolvera
