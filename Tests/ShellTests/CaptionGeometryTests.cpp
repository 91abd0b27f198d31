#include "Fakes/InMemoryDesktop.h"
#include "Tolvera/App/CaptionGeometry.h"

#include <gtest/gtest.h>

namespace tolvera::test {

namespace {

using CaptionGeometry::Place;

const QRectF plainScreen(0, 0, 1000, 800);
constexpr QSizeF usualSize(780, 132);

// Distance of a panel's bottom edge from the bottom of a screen.
double above(const QRectF& screen, const QRectF& panel) { return screen.bottom() - panel.bottom(); }

TEST(CaptionGeometry, UsesDefaultsWithoutPreferences) {
  const InMemoryUserDefaults empty;
  EXPECT_EQ(CaptionGeometry::savedSize(empty), usualSize);
  const QRectF panel(CaptionGeometry::origin(plainScreen, usualSize, CaptionGeometry::savedPlace(empty)),
                     usualSize);
  EXPECT_EQ(panel.left(), 110);
  EXPECT_EQ(above(plainScreen, panel), 176);
}

TEST(CaptionGeometry, ReadsASizeWithinItsLimits) {
  InMemoryUserDefaults defaults({{"overlayWidth", 100.0}, {"overlayHeight", 9000.0}});
  EXPECT_EQ(CaptionGeometry::savedSize(defaults), QSizeF(360, 460));
  defaults.setObject("overlayWidth", std::string("900"));
  defaults.setObject("overlayHeight", true);
  EXPECT_EQ(CaptionGeometry::savedSize(defaults), usualSize);
  defaults.setObject("overlayX", std::string("left"));
  EXPECT_EQ(CaptionGeometry::savedPlace(defaults), Place{});
}

TEST(CaptionGeometry, FindsTheScreenOfAPanel) {
  const ScreenAreas screens{{{0, 0, 1000, 800}, {0, 0, 1000, 780}},
                            {{1000, 0, 1000, 800}, {1000, 0, 1000, 800}}};
  const QPointF pointer(1500, 100);
  const auto screenOf = [&](QRectF panel) { return CaptionGeometry::screenOf(screens, panel, pointer); };
  EXPECT_EQ(screenOf({1100, 100, 360, 72}), screens[1]);
  EXPECT_EQ(screenOf({900, 100, 360, 72}), screens[0]) << "the first of two that it touches";
  EXPECT_EQ(screenOf({5000, 5000, 360, 72}), screens[1]) << "off every screen, the pointer's";
  EXPECT_EQ(CaptionGeometry::screenOf({}, {0, 0, 360, 72}, pointer), std::nullopt);
}

TEST(ScreenGeometry, ChoosesTheScreenOfThePointer) {
  const ScreenAreas screens{{{0, 0, 1000, 800}, {}}, {{1000, 0, 1000, 800}, {}}};
  EXPECT_EQ(ScreenGeometry::screenAt(screens, {999, 799}), screens[0]);
  EXPECT_EQ(ScreenGeometry::screenAt(screens, {1000, 0}), screens[1]);
  EXPECT_EQ(ScreenGeometry::screenAt(screens, {-1, 0}), screens[0]);
  EXPECT_EQ(ScreenGeometry::screenAt({}, {0, 0}), std::nullopt);
}

TEST(ScreenGeometry, MovesFrameInsideByLeast) {
  const QRectF visible(1000, 100, 1000, 800);
  const std::pair<QRectF, QPointF> rows[] = {{{1200, 200, 400, 300}, {1200, 200}},
                                             {{900, 50, 400, 300}, {1000, 100}},
                                             {{1700, 700, 400, 300}, {1600, 600}},
                                             {{1100, 50, 1200, 900}, {1000, 100}}};
  for (const auto& [frame, corner] : rows)
    EXPECT_EQ(ScreenGeometry::movedInside(visible, frame).topLeft(), corner);
}

TEST(ScreenGeometry, PlacesGreetingBesidePreview) {
  const QRectF visible(1000, 100, 1000, 800);
  EXPECT_EQ(ScreenGeometry::greetingOrigin(visible, {470, 400}), QPointF(1265, 236));
  EXPECT_EQ(ScreenGeometry::previewOrigin(visible, {340, 400}), QPointF(1330, 350));
  EXPECT_EQ(ScreenGeometry::previewOrigin(visible, {340, 760}), QPointF(1330, 100))
      << "its title stays in view";
}

} // namespace
} // namespace tolvera::test
