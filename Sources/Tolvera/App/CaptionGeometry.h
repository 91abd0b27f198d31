#pragma once

#include "Platform/UserDefaults.h"
#include "Tolvera/App/ScreenGeometry.h"

#include <QPointF>
#include <QRectF>
#include <QSizeF>
#include <Qt>

#include <optional>

namespace tolvera {

// Size and place of the caption panel. The place is kept as shares of a screen's visible frame, so that it
// makes sense on a screen of another size. Pure but for the preference store that it is handed; all lengths
// in device-independent pixels, y downward.
namespace CaptionGeometry {

inline constexpr QSizeF minimumSize{360, 72};
inline constexpr QSizeF maximumSize{2200, 460};

// What the user left, or the defaults, within the limits.
[[nodiscard]] QSizeF savedSize(const platform::UserDefaults& defaults);
void saveSize(platform::UserDefaults& defaults, QSizeF size);

// Of a screen's visible frame: the panel's horizontal centre from the left edge, and its bottom edge from
// the bottom edge. Without limits.
struct Place {
  double x = 0.5;
  double y = 0.22;

  bool operator==(const Place&) const = default;
};
[[nodiscard]] Place savedPlace(const platform::UserDefaults& defaults);
void savePlace(platform::UserDefaults& defaults, Place place);

// The panel's top left corner at a place.
[[nodiscard]] QPointF origin(const QRectF& visibleFrame, QSizeF panel, Place place);
// The place of a panel that stands there.
[[nodiscard]] Place placeOf(const QRectF& visibleFrame, const QRectF& panel);
// The screen that a panel stands on: the first that it touches, or else the one with the pointer.
[[nodiscard]] std::optional<ScreenArea> screenOf(const ScreenAreas& screens, const QRectF& panel,
                                                 QPointF pointer);

// The edges that a press at this point of the panel takes hold of; none inside. Corners reach further.
[[nodiscard]] Qt::Edges edgesAt(QSizeF panel, QPointF point);
// `start` with the edges moved along with the pointer. The limits stop the edge; the opposite one stays.
[[nodiscard]] QRectF resized(const QRectF& start, Qt::Edges edges, QPointF moved);

} // namespace CaptionGeometry
} // namespace tolvera
