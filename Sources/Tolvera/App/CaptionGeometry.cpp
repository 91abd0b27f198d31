#include "Tolvera/App/CaptionGeometry.h"

#include <algorithm>

namespace tolvera::CaptionGeometry {

namespace {

constexpr auto xKey = "overlayX";
constexpr auto yKey = "overlayY";
constexpr auto widthKey = "overlayWidth";
constexpr auto heightKey = "overlayHeight";

constexpr QSizeF defaultSize{780, 132};

// Short of where the view's padding ends, so that no text is lost to resizing.
constexpr double edgeReach = 7;
constexpr double cornerReach = 16;

double clampWidth(double width) { return std::clamp(width, minimumSize.width(), maximumSize.width()); }
double clampHeight(double height) { return std::clamp(height, minimumSize.height(), maximumSize.height()); }

} // namespace

QSizeF savedSize(const platform::UserDefaults& defaults) {
  return {clampWidth(defaults.doubleForKey(widthKey).value_or(defaultSize.width())),
          clampHeight(defaults.doubleForKey(heightKey).value_or(defaultSize.height()))};
}

void saveSize(platform::UserDefaults& defaults, QSizeF size) {
  defaults.setObject(widthKey, size.width());
  defaults.setObject(heightKey, size.height());
}

Place savedPlace(const platform::UserDefaults& defaults) {
  return {defaults.doubleForKey(xKey).value_or(Place{}.x), defaults.doubleForKey(yKey).value_or(Place{}.y)};
}

void savePlace(platform::UserDefaults& defaults, Place place) {
  defaults.setObject(xKey, place.x);
  defaults.setObject(yKey, place.y);
}

QPointF origin(const QRectF& visibleFrame, QSizeF panel, Place place) {
  return {visibleFrame.left() + place.x * visibleFrame.width() - panel.width() / 2,
          visibleFrame.bottom() - place.y * visibleFrame.height() - panel.height()};
}

Place placeOf(const QRectF& visibleFrame, const QRectF& panel) {
  return {(panel.center().x() - visibleFrame.left()) / visibleFrame.width(),
          (visibleFrame.bottom() - panel.bottom()) / visibleFrame.height()};
}

std::optional<ScreenArea> screenOf(const ScreenAreas& screens, const QRectF& panel, QPointF pointer) {
  const auto touched = std::find_if(screens.begin(), screens.end(),
                                    [&panel](const auto& screen) { return screen.frame.intersects(panel); });
  if (touched != screens.end()) return *touched;
  return ScreenGeometry::screenAt(screens, pointer);
}

Qt::Edges edgesAt(QSizeF panel, QPointF point) {
  const auto near = [point, panel](double reach) {
    Qt::Edges edges;
    if (point.x() < reach) edges |= Qt::LeftEdge;
    if (point.x() >= panel.width() - reach) edges |= Qt::RightEdge;
    if (point.y() < reach) edges |= Qt::TopEdge;
    if (point.y() >= panel.height() - reach) edges |= Qt::BottomEdge;
    return edges;
  };
  const auto close = near(edgeReach);
  if (!close) return {};
  // Along an edge, the last stretch before its end takes hold of the corner.
  const auto wide = near(cornerReach);
  return close | wide;
}

QRectF resized(const QRectF& start, Qt::Edges edges, QPointF moved) {
  auto result = start;
  if (edges & Qt::LeftEdge) result.setLeft(start.right() - clampWidth(start.width() - moved.x()));
  if (edges & Qt::RightEdge) result.setWidth(clampWidth(start.width() + moved.x()));
  if (edges & Qt::TopEdge) result.setTop(start.bottom() - clampHeight(start.height() - moved.y()));
  if (edges & Qt::BottomEdge) result.setHeight(clampHeight(start.height() + moved.y()));
  return result;
}

} // namespace tolvera::CaptionGeometry
