#pragma once

#include <QPointF>
#include <QQuickItem>

namespace tolvera {

// What the pointer takes hold of to drag or resize the caption panel: either the ground below everything,
// which gets the presses that neither text nor controls take, or the edges above everything. An element of
// the panel's scene, as large as the panel; main thread.
class CaptionGrip final : public QQuickItem {
  Q_OBJECT

 public:
  enum class Part { ground, edges };

  CaptionGrip(Part part, QQuickItem& scene);

  // What the pointer looks like at these edges.
  [[nodiscard]] static Qt::CursorShape cursorFor(Qt::Edges edges);

  [[nodiscard]] bool contains(const QPointF& point) const override;

 Q_SIGNALS:
  // The pointer, not pressed, is at an edge.
  void hovered();
  // Points of the desktop. Without edges the whole panel has been taken hold of.
  void pressed(Qt::Edges edges, QPointF pointer);
  void moved(QPointF pointer);
  void released();

 protected:
  void hoverMoveEvent(QHoverEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void mouseUngrabEvent() override;

 private:
  [[nodiscard]] Qt::Edges edgesAt(QPointF point) const;

  const Part part_;
};

} // namespace tolvera
