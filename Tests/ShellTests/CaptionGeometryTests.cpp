#include "Fakes/InMemoryUserDefaults.h"
#include "Tolvera/App/CaptionGeometry.h"

#include <gtest/gtest.h>

namespace tolvera::test {

namespace {

using CaptionGeometry::Place;

const QRectF plainScreen(0, 0, 1000, 800);
constexpr QSizeF usualSize(780, 132);

// Distance of a panel's bottom edge from the bottom of a screen.
double above(const QRectF& screen, const QRectF& panel) { return screen.bottom() - panel.bottom(); }

TEST(CaptionGeometry, standsWhereTheDefaultsSayWithoutAnyPreference) {
  const InMemoryUserDefaults empty;
  EXPECT_EQ(CaptionGeometry::savedSize(empty), usualSize);
  const QRectF panel(CaptionGeometry::origin(plainScreen, usualSize, CaptionGeometry::savedPlace(empty)),
                     usualSize);
  EXPECT_EQ(panel.left(), 110);
  EXPECT_EQ(above(plainScreen, panel), 176);
}

TEST(CaptionGeometry, readsASizeWithinItsLimitsAndTakesOtherTypesForMissing) {
  InMemoryUserDefaults defaults({{"overlayWidth", 100.0}, {"overlayHeight", 9000.0}});
  EXPECT_EQ(CaptionGeometry::savedSize(defaults), QSizeF(360, 460));
  defaults.setObject("overlayWidth", std::string("900"));
  defaults.setObject("overlayHeight", true);
  EXPECT_EQ(CaptionGeometry::savedSize(defaults), usualSize);
  defaults.setObject("overlayX", std::string("left"));
  EXPECT_EQ(CaptionGeometry::savedPlace(defaults), Place{});
}

TEST(CaptionGeometry, bringsAPlaceBackOnAScreenOfAnotherSizeWithPanelsAndAnOffset) {
  InMemoryUserDefaults defaults;
  const QRectF here(0, 30, 1920, 1050);
  const QRectF there(1920, 0, 1280, 1000);
  const QRectF panel(QPointF(600, 700), usualSize);
  const auto place = CaptionGeometry::placeOf(here, panel);
  CaptionGeometry::savePlace(defaults, place);
  const auto restored = CaptionGeometry::savedPlace(defaults);
  EXPECT_EQ(CaptionGeometry::origin(here, usualSize, restored), panel.topLeft());
  const QRectF moved(CaptionGeometry::origin(there, usualSize, restored), usualSize);
  EXPECT_DOUBLE_EQ((moved.center().x() - there.left()) / there.width(), place.x);
  EXPECT_DOUBLE_EQ(above(there, moved) / there.height(), place.y);
}

TEST(CaptionGeometry, acceptsAPlaceOutsideOfTheScreen) {
  const auto origin = CaptionGeometry::origin(plainScreen, usualSize, {.x = -1, .y = 2});
  EXPECT_LT(origin.x() + usualSize.width(), 0);
  EXPECT_LT(origin.y() + usualSize.height(), 0);
}

TEST(CaptionGeometry, knowsTheScreenThatAPanelStandsOn) {
  const ScreenAreas screens{{{0, 0, 1000, 800}, {0, 0, 1000, 780}},
                            {{1000, 0, 1000, 800}, {1000, 0, 1000, 800}}};
  const QPointF pointer(1500, 100);
  const auto screenOf = [&](QRectF panel) { return CaptionGeometry::screenOf(screens, panel, pointer); };
  EXPECT_EQ(screenOf({1100, 100, 360, 72}), screens[1]);
  EXPECT_EQ(screenOf({900, 100, 360, 72}), screens[0]) << "the first of two that it touches";
  EXPECT_EQ(screenOf({5000, 5000, 360, 72}), screens[1]) << "off every screen, the pointer's";
  EXPECT_EQ(CaptionGeometry::screenOf({}, {0, 0, 360, 72}, pointer), std::nullopt);
}

TEST(CaptionGeometry, takesHoldOfEdgesAndCornersOnly) {
  const auto edgesAt = [](double x, double y) { return CaptionGeometry::edgesAt(usualSize, {x, y}); };
  EXPECT_EQ(edgesAt(390, 66), Qt::Edges());
  EXPECT_EQ(edgesAt(16, 10), Qt::Edges()) << "where the text begins";
  EXPECT_EQ(edgesAt(2, 66), Qt::Edges(Qt::LeftEdge));
  EXPECT_EQ(edgesAt(779, 66), Qt::Edges(Qt::RightEdge));
  EXPECT_EQ(edgesAt(390, 0), Qt::Edges(Qt::TopEdge));
  EXPECT_EQ(edgesAt(390, 131), Qt::Edges(Qt::BottomEdge));
  EXPECT_EQ(edgesAt(2, 12), Qt::LeftEdge | Qt::TopEdge) << "along the edge, near the corner";
  EXPECT_EQ(edgesAt(778, 130), Qt::RightEdge | Qt::BottomEdge);
}

TEST(CaptionGeometry, resizesWithinTheLimitsAndLeavesTheOtherEdgesAlone) {
  const QRectF start(100, 100, 780, 132);
  const auto resized = [&start](Qt::Edges edges, QPointF moved) {
    return CaptionGeometry::resized(start, edges, moved);
  };
  EXPECT_EQ(resized(Qt::RightEdge | Qt::BottomEdge, {20, 30}), QRectF(100, 100, 800, 162));
  EXPECT_EQ(resized(Qt::LeftEdge | Qt::TopEdge, {-20, -30}), QRectF(80, 70, 800, 162));
  EXPECT_EQ(resized(Qt::LeftEdge, {700, 50}), QRectF(520, 100, 360, 132)) << "the right edge stays";
  EXPECT_EQ(resized(Qt::TopEdge, {0, -900}), QRectF(100, -228, 780, 460)) << "the bottom edge stays";
  EXPECT_EQ(resized(Qt::RightEdge | Qt::BottomEdge, {9000, -900}), QRectF(100, 100, 2200, 72));
}

TEST(ScreenGeometry, choosesTheScreenUnderThePointerAndElseTheMainOne) {
  const ScreenAreas screens{{{0, 0, 1000, 800}, {}}, {{1000, 0, 1000, 800}, {}}};
  EXPECT_EQ(ScreenGeometry::screenAt(screens, {999, 799}), screens[0]);
  EXPECT_EQ(ScreenGeometry::screenAt(screens, {1000, 0}), screens[1]);
  EXPECT_EQ(ScreenGeometry::screenAt(screens, {-1, 0}), screens[0]);
  EXPECT_EQ(ScreenGeometry::screenAt({}, {0, 0}), std::nullopt);
}

TEST(ScreenGeometry, raisesTheGreetingAboveTheMiddleAndPutsThePreviewBesideIt) {
  const QRectF visible(1000, 100, 1000, 800);
  EXPECT_EQ(ScreenGeometry::greetingOrigin(visible, {470, 400}), QPointF(1265, 236));
  EXPECT_EQ(ScreenGeometry::previewOrigin(visible, {340, 400}), QPointF(1330, 350));
  EXPECT_EQ(ScreenGeometry::previewOrigin(visible, {340, 760}), QPointF(1330, 100))
      << "its title stays in view";
}

} // namespace
} // namespace tolvera::test
