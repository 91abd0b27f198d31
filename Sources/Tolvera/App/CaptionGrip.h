#pragma once

#include <QPointF>
#include <QQuickItem>

namespace tolvera {

// The part of the caption panel that the pointer drags or resizes it by: either the ground below everything,
// which gets the presses that neither text nor controls take, or the edges above everything. An element of
// the panel's scene, as large as the panel and in the same place; main thread.
class CaptionGrip final : public QQuickItem {
  Q_OBJECT

 public:
  enum class Part { ground, edges };

  // `panel` outlives the grip, and is beside it.
  CaptionGrip(Part part, QQuickItem& panel);

  // The pointer's shape at these edges.
  [[nodiscard]] static Qt::CursorShape cursorFor(Qt::Edges edges);

  [[nodiscard]] bool contains(const QPointF& point) const override;

 Q_SIGNALS:
  // The pointer, not pressed, is at an edge.
  void hovered();
  // It is there no longer.
  void left();
  // Without edges the press drags the whole panel.
  void pressed(Qt::Edges edges, QPointF onDesktop, QPointF inWindow);
  void moved(QPointF onDesktop, QPointF inWindow);
  void released();

 protected:
  void hoverEnterEvent(QHoverEvent* event) override { hoverMoveEvent(event); }
  void hoverMoveEvent(QHoverEvent* event) override;
  void hoverLeaveEvent(QHoverEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void mouseUngrabEvent() override;

 private:
  [[nodiscard]] Qt::Edges edgesAt(QPointF point) const;

  const Part part_;
};

} // namespace tolvera
