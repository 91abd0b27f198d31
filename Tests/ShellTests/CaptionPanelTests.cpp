#include "Fakes/InMemoryModel.h"
#include "Harness/TemporaryDirectory.h"
#include "ShellTests/DesktopControl.h"
#include "ShellTests/DesktopFixture.h"
#include "Tolvera/App/CaptionGeometry.h"
#include "Tolvera/App/QuickCaptionWindow.h"
#include "Tolvera/Views/Views.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QQmlEngine>
#include <QScreen>
#include <QWindow>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace tolvera::test {

namespace {

const std::string caption = "Nothing of this is in the way of anything";

// The caption panel of a live run on a real window server, driven by a real pointer.
class CaptionPanelTests : public testing::Test {
 protected:
  CaptionPanelTests() {
    Views::prepareEngine(engine_);
    model_.live();
    model_.translation(caption);
  }
  ~CaptionPanelTests() override { controller_.close(); }

  void show() {
    controller_.show(model_.app());
    settleDesktop();
  }
  QWindow& panel() {
    for (auto* window : QGuiApplication::topLevelWindows()) {
      if (qobject_cast<QuickCaptionPanel*>(window)) return *window;
    }
    throw std::runtime_error("there is no panel");
  }
  QRect frame() { return panel().geometry(); }
  // As exactly as the desktop's pointer is.
  bool isAt(QRect where) {
    const auto difference = [](int a, int b) { return std::abs(a - b); };
    const auto is = frame();
    return std::max({difference(is.left(), where.left()), difference(is.top(), where.top()),
                     difference(is.right(), where.right()), difference(is.bottom(), where.bottom())}) <=
           desktop().inaccuracy();
  }
  // In the card, below the text.
  QPoint background() { return {frame().center().x(), frame().bottom() - 24}; }
  // On the caption, which is the second line from the top.
  QPoint text() { return frame().topLeft() + QPoint(40, 46); }

  static QColor at(QPoint point) { return screenshot().pixelColor(point); }
  bool isOnTop() { return !resembles(at(background()), otherColor); }
  bool showsText() {
    const auto image = screenshot().copy(frame());
    int bright = 0;
    for (int y = 0; y < image.height(); ++y) {
      for (int x = 0; x < image.width(); ++x) bright += image.pixelColor(x, y).lightness() > 200 ? 1 : 0;
    }
    return bright > 100;
  }

  std::string keys() {
    std::ifstream file(keysFile());
    return {std::istreambuf_iterator<char>(file), {}};
  }
  [[nodiscard]] std::string keysFile() const { return (directory_.path() / "keys").string(); }

  TemporaryDirectory directory_;
  InMemoryModel model_;
  QQmlEngine engine_;
  QuickCaptionWindowController controller_{engine_};
};

// Beside another program, of each kind that the desktop can run.
class BesideOthersCaptionPanelTests : public CaptionPanelTests,
                                      public testing::WithParamInterface<std::string> {
 protected:
  ChildProcess startOther() { return startOtherProgram(keysFile(), GetParam()); }
  void promiseBeside(const std::string& text, bool kept) { promise(text + " (" + GetParam() + ")", kept); }
};
INSTANTIATE_TEST_SUITE_P(Platforms, BesideOthersCaptionPanelTests, testing::ValuesIn(desktopPlatforms()));

TEST_P(BesideOthersCaptionPanelTests, floatsAboveAFullScreenProgramAndLeavesItTheFocus) {
  const auto other = startOther();
  const auto focus = desktop().focus();
  show();
  promiseBeside("above a full-screen window that was there first", isOnTop());
  promiseBeside("the focus stays when it comes", desktop().focus() == focus);

  drag(background(), background() + QPoint(40, -60));
  press(text());
  release();
  promiseBeside("the focus stays through a drag and a click", desktop().focus() == focus);
  desktop().type("abc");
  promiseBeside("keys go to the program in front", eventually([this] { return keys() == "abc"; }));

  desktop().showWorkspace(1);
  settleDesktop();
  promiseBeside("on every workspace", !resembles(at({3, 3}), otherColor) && showsText());
  desktop().showWorkspace(0);
  settleDesktop();
}

TEST_P(BesideOthersCaptionPanelTests, staysAboveAFullScreenProgramThatComesLater) {
  show();
  const auto other = startOther();
  promiseBeside("above a full-screen window that comes later", isOnTop());
}

TEST_P(BesideOthersCaptionPanelTests, showsNothingOfItselfAroundItsCard) {
  const auto other = startOther();
  show();
  promiseBeside("nothing of it is seen around its card", resembles(at(frame().topLeft()), otherColor));
}

TEST_F(CaptionPanelTests, isDraggedByItsBackgroundButNotByItsText) {
  show();
  const auto before = frame();
  drag(background(), background() + QPoint(-70, 50));
  promise("dragged by its background", isAt(before.translated(-70, 50)));
  const auto place = CaptionGeometry::savedPlace(model_.in().userDefaults);
  const auto screen = ScreenGeometry::currentScreens().front();
  EXPECT_EQ(CaptionGeometry::origin(screen.visibleFrame, frame().size(), place).toPoint(), frame().topLeft());

  const auto placed = frame();
  drag(text(), text() + QPoint(200, 0));
  promise("selecting its text does not move it", frame() == placed);
  const auto selected = QGuiApplication::clipboard()->text(QClipboard::Selection);
  promise("the selection can be pasted elsewhere",
          selected.size() > 3 && caption.find(selected.toStdString()) != std::string::npos);

  controller_.panel()->savePosition();
  controller_.panel()->orderOut();
  settleDesktop();
  show();
  promise("hidden and shown again it stands where it stood", frame() == placed);
}

TEST_F(CaptionPanelTests, isResizedAtItsEdgesWithinItsLimits) {
  show();
  const auto before = frame();
  drag({before.right() - 2, before.center().y()}, {before.right() - 82, before.center().y()});
  promise("resized at its right edge", isAt(before.adjusted(0, 0, -80, 0)));
  drag(frame().topLeft() + QPoint(6, 6), frame().topLeft() + QPoint(6, 6 - 40));
  promise("resized at a corner", isAt(before.adjusted(0, -40, -80, 0)));
  const auto narrow = frame();
  drag({narrow.right() - 1, narrow.center().y()}, {narrow.right() + 119, narrow.center().y()});
  promise("grown by a pointer that hurries ahead", isAt(narrow.adjusted(0, 0, 120, 0)));
  const auto wide = frame();
  drag({wide.left() + 2, wide.center().y()}, {wide.right() + 100, wide.center().y()});
  promise("no smaller than its limit", frame().width() == 360 && frame().right() == wide.right());
  EXPECT_EQ(CaptionGeometry::savedSize(model_.in().userDefaults), QSizeF(frame().size()));
}

// Screens that change while the panel is on one.
class ScreensCaptionPanelTests : public CaptionPanelTests {
 protected:
  static bool has(const ScreenAreas& screens) {
    return eventually([&screens] {
      const auto current = ScreenGeometry::currentScreens();
      return std::equal(current.begin(), current.end(), screens.begin(), screens.end(),
                        [](const auto& a, const auto& b) { return a.frame == b.frame; });
    });
  }
  // Whether the panel comes to stand, and is seen, on the screen of that number where its shares say.
  bool comesToStandOn(std::size_t screen) {
    const auto place = CaptionGeometry::savedPlace(model_.in().userDefaults);
    return eventually([&] {
      const auto screens = ScreenGeometry::currentScreens();
      if (screen >= screens.size()) return false;
      const auto origin = CaptionGeometry::origin(screens[screen].visibleFrame, frame().size(), place);
      return isAt(QRect(origin.toPoint(), frame().size())) && showsText();
    });
  }

  const ScreenArea large_{{0, 0, 1280, 900}, {}};
  const ScreenArea small_{{0, 0, 1024, 768}, {}};
  const ScreenArea smallBeside_{{1280, 0, 1024, 768}, {}};
};

TEST_F(ScreensCaptionPanelTests, findsAPlaceOnScreensThatComeAndGo) {
  const auto xrandr = [](std::vector<std::string> words) {
    words.insert(words.begin(), {"xrandr", "--output"});
    outputOf(std::move(words));
  };
  show();
  xrandr({"DUMMY0", "--mode", "1024x768"});
  ASSERT_TRUE(has({small_}));
  promise("keeps its place when its screen changes its size", comesToStandOn(0));
  xrandr({"DUMMY0", "--mode", "1280x900"});
  ASSERT_TRUE(has({large_}));
  outputOf({"xrandr", "--addmode", "DUMMY1", "1024x768"});
  xrandr({"DUMMY1", "--mode", "1024x768", "--right-of", "DUMMY0"});
  ASSERT_TRUE(has({large_, smallBeside_}));
  promise("stays when another screen comes", comesToStandOn(0));

  movePointer({1500, 300});
  show();
  promise("comes to the screen of the pointer", comesToStandOn(1));
  drag(background(), background() + QPoint(60, -150));
  promise("dragged on another screen it keeps shares of that", comesToStandOn(1));

  xrandr({"DUMMY1", "--off"});
  ASSERT_TRUE(has({large_}));
  promise("comes to a screen that is there when its own goes", comesToStandOn(0));

  xrandr({"DUMMY1", "--mode", "1024x768", "--right-of", "DUMMY0"});
  ASSERT_TRUE(has({large_, smallBeside_}));
  movePointer({1500, 300});
  show();
  ASSERT_TRUE(comesToStandOn(1));
  controller_.panel()->orderOut();
  xrandr({"DUMMY1", "--off"});
  ASSERT_TRUE(has({large_}));
  show();
  promise("shown after its screen has gone, it stands on one that is there", comesToStandOn(0));
}

class ScalesCaptionPanelTests : public ScreensCaptionPanelTests {};

TEST_F(ScalesCaptionPanelTests, keepsItsPlaceOnAScreenThatChangesItsScale) {
  show();
  for (const std::string scale : {"1.25", "1.5", "2"}) {
    const auto before = ScreenGeometry::currentScreens();
    outputOf({"swaymsg", "output", "HEADLESS-1", "scale", scale});
    ASSERT_TRUE(eventually([&before] { return ScreenGeometry::currentScreens() != before; }));
    promise("keeps its place when the scale becomes " + scale, comesToStandOn(0));
  }
}

TEST_F(CaptionPanelTests, isMadeOnceAndComesToTheScreenOfThePointer) {
  show();
  const auto* const first = controller_.panel();
  model_.in().userDefaults.setObject("overlayY", 0.6);
  show();
  EXPECT_EQ(controller_.panel(), first);
  const auto screen = ScreenGeometry::currentScreens().front().visibleFrame;
  EXPECT_NEAR(screen.bottom() - QRectF(frame()).bottom(), 0.6 * screen.height(), 1);
}

} // namespace
} // namespace tolvera::test
