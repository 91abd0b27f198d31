#pragma once

#include <QPointF>
#include <QRectF>
#include <QSizeF>

#include <optional>
#include <vector>

namespace tolvera {

// A screen as windows are placed on it, in device-independent pixels of the whole desktop, y downward.
struct ScreenArea {
  QRectF frame;
  QRectF visibleFrame; // without panels and docks

  bool operator==(const ScreenArea&) const = default;
};
// In the desktop's order, the main screen first.
using ScreenAreas = std::vector<ScreenArea>;

// The places of windows. Pure functions.
namespace ScreenGeometry {

// The screens as they are at this moment. Main thread.
[[nodiscard]] ScreenAreas currentScreens();

// The first screen with the point on it, or else the main one; nothing without screens.
[[nodiscard]] std::optional<ScreenArea> screenAt(const ScreenAreas& screens, QPointF point);

// The frame moved by the least that brings it into the visible frame; one that is too large stands at its top
// left corner.
[[nodiscard]] QRectF movedInside(const QRectF& visibleFrame, QRectF frame);
// The top left corner of a greeting of this size: in the middle of the screen, raised by 8 % of its height.
[[nodiscard]] QPointF greetingOrigin(const QRectF& visibleFrame, QSizeF window);
// The top left corner of the preview of the menu: its lower left corner is 170 to the left of the middle and
// 250 below it, unless its title would not be seen then.
[[nodiscard]] QPointF previewOrigin(const QRectF& visibleFrame, QSizeF window);

} // namespace ScreenGeometry
} // namespace tolvera
