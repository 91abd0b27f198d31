#include "ShellTests/DesktopFixture.h"
#include "Support/InMemoryModel.h"
#include "Support/TemporaryDirectory.h"
#include "Tolvera/App/CaptionGeometry.h"
#include "Tolvera/App/QuickCaptionWindow.h"
#include "Tolvera/Views/Views.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QQmlEngine>
#include <QWindow>

#include <gtest/gtest.h>

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
  static std::string focus() { return xdotool({"getwindowfocus"}); }

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

TEST_F(CaptionPanelTests, floatsAboveAFullScreenProgramAndLeavesItTheFocus) {
  const auto other = startOtherProgram(keysFile());
  const auto focusBefore = focus();
  const auto activeBefore = xdotool({"getactivewindow"});
  show();
  promise("above a full-screen window that was there first", isOnTop());
  promise("the focus stays when it comes", focus() == focusBefore);

  drag(background(), background() + QPoint(40, -60));
  press(text());
  release();
  promise("the focus stays through a drag and a click", focus() == focusBefore);
  promise("the active window stays the same", xdotool({"getactivewindow"}) == activeBefore);
  xdotool({"key", "a", "b", "c"});
  promise("keys go to the program in front", eventually([this] { return keys() == "abc"; }));

  xdotool({"set_desktop", "1"});
  settleDesktop();
  EXPECT_EQ(xdotool({"get_desktop"}), "1");
  promise("on every workspace", !resembles(at({3, 3}), otherColor) && showsText());
  xdotool({"set_desktop", "0"});
  settleDesktop();
}

TEST_F(CaptionPanelTests, staysAboveAFullScreenProgramThatComesLater) {
  show();
  const auto other = startOtherProgram(keysFile());
  promise("above a full-screen window that comes later", isOnTop());
}

TEST_F(CaptionPanelTests, isDraggedByItsBackgroundButNotByItsText) {
  show();
  const auto before = frame();
  drag(background(), background() + QPoint(-70, 50));
  promise("dragged by its background", frame() == before.translated(-70, 50));
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
  promise("resized at its right edge", frame() == before.adjusted(0, 0, -80, 0));
  drag(frame().topLeft() + QPoint(6, 6), frame().topLeft() + QPoint(6, 6 - 40));
  promise("resized at a corner", frame() == before.adjusted(0, -40, -80, 0));
  const auto wide = frame();
  drag({wide.left() + 2, wide.center().y()}, {wide.right() + 100, wide.center().y()});
  promise("no smaller than its limit", frame().width() == 360 && frame().right() == wide.right());
  EXPECT_EQ(CaptionGeometry::savedSize(model_.in().userDefaults), QSizeF(frame().size()));
}

TEST_F(CaptionPanelTests, showsNothingOfItselfAroundItsCard) {
  const auto other = startOtherProgram(keysFile());
  show();
  const auto corner = frame().topLeft();
  promise("nothing of it is seen around its card", resembles(at(corner), otherColor));
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
