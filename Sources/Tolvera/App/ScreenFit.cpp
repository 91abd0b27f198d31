#include "Tolvera/App/ScreenFit.h"

#include "Tolvera/App/ScreenGeometry.h"

#include <QEvent>
#include <QScreen>
#include <QWindow>

#include <utility>

namespace tolvera {

ScreenFit::ScreenFit(QWindow& window, Place place)
    : QObject(&window), window_(window), place_(std::move(place)) {
  window.installEventFilter(this);
  connect(&window, &QWindow::screenChanged, this, &ScreenFit::followScreen);
  followScreen();
}

void ScreenFit::followScreen() {
  connect(window_.screen(), &QScreen::availableGeometryChanged, this, &ScreenFit::fit,
          static_cast<Qt::ConnectionType>(Qt::QueuedConnection | Qt::UniqueConnection));
}

void ScreenFit::setMinimumSize(QSize size) {
  minimum_ = size;
  fit();
}

void ScreenFit::setFixedSize(QSize size) {
  fixed_ = size;
  fit();
}

QSize ScreenFit::bounded(QSize size) const {
  const auto visible = window_.screen()->availableGeometry().marginsRemoved(window_.frameMargins());
  return size.boundedTo(visible.size());
}

void ScreenFit::fit() {
  if (window_.windowStates() & (Qt::WindowMaximized | Qt::WindowFullScreen | Qt::WindowMinimized)) return;
  if (fixed_.isValid()) {
    window_.setMinimumSize(bounded(fixed_));
    window_.setMaximumSize(bounded(fixed_));
    window_.resize(bounded(fixed_));
  } else {
    window_.setMinimumSize(bounded(minimum_));
    window_.resize(bounded(window_.size()));
  }
  // Before it is on the screen, the window manager has not placed it.
  if (!window_.isVisible() && !place_) return;
  const QRectF visible = window_.screen()->availableGeometry();
  const auto margins = window_.frameMargins();
  QRectF frame(window_.framePosition(), window_.size().grownBy(margins));
  if (place_ && !isPlaced_) frame.moveTopLeft(place_(visible, frame.size()));
  const auto corner = ScreenGeometry::movedInside(visible, frame).topLeft().toPoint();
  if (corner != window_.framePosition()) window_.setFramePosition(corner);
}

bool ScreenFit::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::Hide) framedBy_.reset();
  // The window manager frames the window by the time it is drawn.
  if (event->type() == QEvent::Expose && window_.isExposed() && framedBy_ != window_.frameMargins()) {
    framedBy_ = window_.frameMargins();
    fit();
    isPlaced_ = !framedBy_->isNull();
  }
  return QObject::eventFilter(watched, event);
}

} // namespace tolvera
