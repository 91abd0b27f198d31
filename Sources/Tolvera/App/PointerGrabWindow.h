#pragma once

#include <QPointF>
#include <QRasterWindow>
#include <Qt>

#include <functional>

namespace tolvera {

// Keeps the pointer while it resizes the panel inside Wayland. There the compositor may take the pointer from
// an X window that the pointer has left, even with a button down, and a growing window lags behind the
// pointer. So while the pointer is at an edge of the panel, this invisible window covers the whole desktop
// and gets the press. Main thread.
class PointerGrabWindow final : public QRasterWindow {
  Q_OBJECT

 public:
  // `edgesAt` tells which edges a point of the desktop takes hold of.
  explicit PointerGrabWindow(std::function<Qt::Edges(QPointF)> edgesAt);

  // Covers the desktop until the pointer has left the edges.
  void cover();

 Q_SIGNALS:
  // As a grip's.
  void pressed(Qt::Edges edges, QPointF onDesktop, QPointF inWindow);
  void moved(QPointF onDesktop, QPointF inWindow);
  void released();

 protected:
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  bool event(QEvent* event) override;

 private:
  void watch(QPointF pointer);

  const std::function<Qt::Edges(QPointF)> edgesAt_;
};

} // namespace tolvera
