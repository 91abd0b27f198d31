#include "Tolvera/App/ScreenGeometry.h"

#include <QGuiApplication>
#include <QScreen>

#include <algorithm>

namespace tolvera::ScreenGeometry {

namespace {

// Unlike QRectF's own, a frame does not contain its right and bottom edges, which belong to the next screen.
bool contains(const QRectF& frame, QPointF point) {
  return point.x() >= frame.left() && point.x() < frame.right() && point.y() >= frame.top() &&
         point.y() < frame.bottom();
}

} // namespace

ScreenAreas currentScreens() {
  ScreenAreas areas;
  for (const auto* screen : QGuiApplication::screens()) {
    areas.push_back({screen->geometry(), screen->availableGeometry()});
  }
  return areas;
}

std::optional<ScreenArea> screenAt(const ScreenAreas& screens, QPointF point) {
  const auto under = std::find_if(screens.begin(), screens.end(),
                                  [point](const auto& screen) { return contains(screen.frame, point); });
  if (under != screens.end()) return *under;
  return screens.empty() ? std::nullopt : std::optional(screens.front());
}

QRectF movedInside(const QRectF& visibleFrame, QRectF frame) {
  frame.moveRight(std::min(frame.right(), visibleFrame.right()));
  frame.moveBottom(std::min(frame.bottom(), visibleFrame.bottom()));
  frame.moveLeft(std::max(frame.left(), visibleFrame.left()));
  frame.moveTop(std::max(frame.top(), visibleFrame.top()));
  return frame;
}

QPointF greetingOrigin(const QRectF& visibleFrame, QSizeF window) {
  const auto middle = visibleFrame.center();
  return {middle.x() - window.width() * 0.5,
          middle.y() - window.height() * 0.5 - visibleFrame.height() * 0.08};
}

QPointF previewOrigin(const QRectF& visibleFrame, QSizeF window) {
  const auto middle = visibleFrame.center();
  return {middle.x() - 170, std::max(visibleFrame.top(), middle.y() + 250 - window.height())};
}

} // namespace tolvera::ScreenGeometry
