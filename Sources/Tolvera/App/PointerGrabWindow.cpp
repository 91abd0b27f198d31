#include "Tolvera/App/PointerGrabWindow.h"

#include "Tolvera/App/CaptionGrip.h"
#include "Tolvera/Desktop/X11Desktop.h"

#include <QGuiApplication>
#include <QMouseEvent>
#include <QScreen>

#include <utility>

namespace tolvera {

PointerGrabWindow::PointerGrabWindow(std::function<Qt::Edges(QPointF)> edgesAt)
    : edgesAt_(std::move(edgesAt)) {
  setFlags(X11Desktop::floatingFlags);
  auto format = requestedFormat();
  format.setAlphaBufferSize(8);
  setFormat(format);
}

void PointerGrabWindow::cover() {
  if (isVisible()) return;
  setGeometry(QGuiApplication::primaryScreen()->virtualGeometry());
  show();
}

void PointerGrabWindow::mousePressEvent(QMouseEvent* event) {
  const auto edges = edgesAt_(event->globalPosition());
  if (event->button() != Qt::LeftButton || !edges) return;
  Q_EMIT pressed(edges, event->globalPosition(), event->position());
}

void PointerGrabWindow::mouseMoveEvent(QMouseEvent* event) {
  if (event->buttons() & Qt::LeftButton) {
    Q_EMIT moved(event->globalPosition(), event->position());
  } else {
    watch(event->globalPosition());
  }
}

void PointerGrabWindow::mouseReleaseEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton) return;
  Q_EMIT released();
  watch(event->globalPosition());
}

bool PointerGrabWindow::event(QEvent* event) {
  if (event->type() == QEvent::Leave && !QGuiApplication::mouseButtons()) hide();
  return QRasterWindow::event(event);
}

void PointerGrabWindow::watch(QPointF pointer) {
  const auto edges = edgesAt_(pointer);
  if (edges) {
    setCursor(CaptionGrip::cursorFor(edges));
  } else {
    hide();
  }
}

} // namespace tolvera
