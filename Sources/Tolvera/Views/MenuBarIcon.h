#pragma once

#include <QColor>
#include <QSize>

class QPainter;

// The program's figure, a speech bubble with a flame above it, drawn in code. Stateless; main thread.
namespace tolvera::MenuBarIcon {

// The figure's own measure in points.
inline constexpr QSize size{18, 16};

// Draws the figure into the rectangle (0, 0) to `size` of the painter's coordinates, y growing downward.
// While no run is active the bubble has a round hole. A valid `outline` surrounds the figure and fills the
// hole.
void draw(QPainter& painter, bool running, const QColor& color = Qt::black, const QColor& outline = QColor());

} // namespace tolvera::MenuBarIcon
