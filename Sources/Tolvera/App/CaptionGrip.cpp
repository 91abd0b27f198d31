#include "Tolvera/App/CaptionGrip.h"

#include "Tolvera/App/CaptionGeometry.h"

#include <QCursor>

namespace tolvera {

CaptionGrip::CaptionGrip(Part part, QQuickItem& panel) : QQuickItem(panel.parentItem()), part_(part) {
  setZ(part == Part::ground ? -1 : 1);
  setAcceptedMouseButtons(Qt::LeftButton);
  setAcceptHoverEvents(part == Part::edges);
  const auto follow = [this, &panel] {
    setPosition(panel.position());
    setSize(panel.size());
  };
  connect(&panel, &QQuickItem::xChanged, this, follow);
  connect(&panel, &QQuickItem::yChanged, this, follow);
  connect(&panel, &QQuickItem::widthChanged, this, follow);
  connect(&panel, &QQuickItem::heightChanged, this, follow);
  follow();
}

Qt::CursorShape CaptionGrip::cursorFor(Qt::Edges edges) {
  if (edges == (Qt::LeftEdge | Qt::TopEdge) || edges == (Qt::RightEdge | Qt::BottomEdge)) {
    return Qt::SizeFDiagCursor;
  }
  if (edges == (Qt::RightEdge | Qt::TopEdge) || edges == (Qt::LeftEdge | Qt::BottomEdge)) {
    return Qt::SizeBDiagCursor;
  }
  return edges & (Qt::LeftEdge | Qt::RightEdge) ? Qt::SizeHorCursor : Qt::SizeVerCursor;
}

Qt::Edges CaptionGrip::edgesAt(QPointF point) const {
  return part_ == Part::edges ? CaptionGeometry::edgesAt(size(), point) : Qt::Edges();
}

bool CaptionGrip::contains(const QPointF& point) const {
  return QQuickItem::contains(point) && (part_ == Part::ground || edgesAt(point));
}

void CaptionGrip::hoverMoveEvent(QHoverEvent* event) {
  const auto edges = edgesAt(event->position());
  if (edges) {
    setCursor(cursorFor(edges));
    Q_EMIT hovered();
  }
  event->ignore(); // what lies below is hovered over as well
}

void CaptionGrip::hoverLeaveEvent(QHoverEvent* event) {
  Q_EMIT left();
  event->ignore();
}

void CaptionGrip::mousePressEvent(QMouseEvent* event) {
  Q_EMIT pressed(edgesAt(event->position()), event->globalPosition(), event->scenePosition());
}

void CaptionGrip::mouseMoveEvent(QMouseEvent* event) {
  Q_EMIT moved(event->globalPosition(), event->scenePosition());
}

void CaptionGrip::mouseReleaseEvent(QMouseEvent*) { Q_EMIT released(); }

void CaptionGrip::mouseUngrabEvent() { Q_EMIT released(); }

} // namespace tolvera
