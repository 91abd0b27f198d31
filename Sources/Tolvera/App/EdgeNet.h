#pragma once

#include <QPointF>
#include <QRasterWindow>
#include <Qt>

#include <functional>

namespace tolvera {

// Holds on to the pointer while it resizes a window, where the desktop would not: a Wayland compositor may
// take the pointer from an X window that it has left, be it pressed, and a growing window lags behind the
// pointer. While the pointer is at an edge, this window lies unseen over the whole desktop; the press then
// lands on it, and nothing is lost. Main thread.
class EdgeNet final : public QRasterWindow {
  Q_OBJECT

 public:
  // `edgesAt` tells which edges a point of the desktop takes hold of.
  explicit EdgeNet(std::function<Qt::Edges(QPointF)> edgesAt);

  // Lies over the desktop until the pointer is at no edge any more.
  void spread();

 Q_SIGNALS:
  // As a grip's.
  void pressed(Qt::Edges edges, QPointF pointer);
  void moved(QPointF pointer);
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
