#include "Tolvera/App/QuickCaptionWindow.h"

#include "Async/Log.h"
#include "Tolvera/App/CaptionGeometry.h"
#include "Tolvera/App/ViewLoading.h"
#include "Tolvera/Desktop/X11Desktop.h"
#include "Tolvera/Model/AppState.h"
#include "Tolvera/Views/Views.h"

#include <QCursor>
#include <QGuiApplication>
#include <QPainterPath>
#include <QRegion>
#include <QScreen>

#include <algorithm>
#include <chrono>

namespace tolvera {

namespace {

using namespace std::chrono_literals;

constexpr auto compositorPollInterval = 2s;
constexpr auto raiseDelay = 100ms;
constexpr double cardRadius = 12;

// Far beyond any screen, and within what a window server can express.
constexpr double farAway = 20'000;

QRect frameAt(QPointF origin, QSize size) {
  const QPointF near(std::clamp(origin.x(), -farAway, farAway), std::clamp(origin.y(), -farAway, farAway));
  return {near.toPoint(), size};
}

// On Wayland only the compositor moves ordinary windows.
bool desktopMovesWindows() { return QGuiApplication::platformName().startsWith(QStringLiteral("wayland")); }

} // namespace

QuickCaptionPanel::QuickCaptionPanel(QQmlEngine& engine, AppState& state, platform::UserDefaults& defaults)
    : QQuickView(&engine, nullptr), defaults_(defaults) {
  setFlags(X11Desktop::floatingFlags);
  setProperty("_q_showWithoutActivating", true);
  setTitle(state.settings()->strings().productName());
  setColor(Qt::transparent);
  setMinimumSize(CaptionGeometry::minimumSize.toSize());
  setMaximumSize(CaptionGeometry::maximumSize.toSize());
  setResizeMode(QQuickView::SizeRootObjectToView);
  floating_.setFrame({QPoint(), CaptionGeometry::savedSize(defaults).toSize()});
  loadView(*this, Views::captionPanel, state);
  addGrip(CaptionGrip::Part::ground);
  addGrip(CaptionGrip::Part::edges);
  connect(&floating_, &FloatingWindow::frameInWindowChanged, this,
          [this] { rootObject()->setProperty("frame", QRectF(floating_.frameInWindow())); });
  connect(&floating_, &FloatingWindow::screenChosen, this, &QuickCaptionPanel::placeOnOwnScreen);
  compositorPoll_.setInterval(compositorPollInterval);
  connect(&compositorPoll_, &QTimer::timeout, this, &QuickCaptionPanel::updateMask);
  followWindowOrder();
  followScreens();
}

void QuickCaptionPanel::restorePosition() {
  if (floating_.isLayer()) return placeOnOwnScreen();
  const auto screen = ScreenGeometry::screenAt(ScreenGeometry::currentScreens(), QCursor::pos());
  if (screen) placeOn(*screen);
}

void QuickCaptionPanel::placeOnOwnScreen() { placeOn({screen()->geometry(), screen()->availableGeometry()}); }

void QuickCaptionPanel::placeOn(const ScreenArea& screen) {
  const auto& frame = screen.frame;
  log::trace(log::Category::windows, "panel placed on the screen at ", frame.x(), ", ", frame.y(), ", ",
             frame.width(), " by ", frame.height());
  const auto size = floating_.frame().size();
  floating_.standOn(frame.toRect(), frameAt(CaptionGeometry::origin(screen.visibleFrame, size,
                                                                    CaptionGeometry::savedPlace(defaults_)),
                                            size));
}

void QuickCaptionPanel::savePosition() {
  const QRectF frame = floating_.frame();
  const auto screen = CaptionGeometry::screenOf(ScreenGeometry::currentScreens(), frame, QCursor::pos());
  if (screen) CaptionGeometry::savePlace(defaults_, CaptionGeometry::placeOf(screen->visibleFrame, frame));
}

void QuickCaptionPanel::saveSize() { CaptionGeometry::saveSize(defaults_, floating_.frame().size()); }

void QuickCaptionPanel::orderFrontRegardless() {
  log::trace(log::Category::windows, "panel shown");
  updateMask();
  show();
  raise();
  compositorPoll_.start();
}

void QuickCaptionPanel::orderOut() {
  compositorPoll_.stop();
  log::trace(log::Category::windows, "panel hidden");
  grabWindow_.reset();
  hide();
  end();
}

void QuickCaptionPanel::addGrip(CaptionGrip::Part part) {
  auto* const grip = new CaptionGrip(part, *rootObject()->property("panel").value<QQuickItem*>());
  connect(grip, &CaptionGrip::hovered, this, [this] {
    notePointerAtEdge(true);
    coverDesktop();
  });
  connect(grip, &CaptionGrip::left, this, [this] { notePointerAtEdge(false); });
  takeGestures(*grip);
}

void QuickCaptionPanel::notePointerAtEdge(bool isThere) {
  // The window that covers the desktop is there as long as the pointer is.
  const bool isCovered = grabWindow_ && grabWindow_->isVisible();
  rootObject()->setProperty("atEdge", isThere || isCovered);
}

void QuickCaptionPanel::coverDesktop() {
  if (!X11Desktop::isInsideWayland() || gesture_) return;
  if (!grabWindow_) {
    grabWindow_.emplace(
        [this](QPointF point) { return CaptionGeometry::edgesAt(size(), point - position()); });
    takeGestures(*grabWindow_);
    connect(&*grabWindow_, &QWindow::visibleChanged, this, [this] { notePointerAtEdge(false); });
  }
  grabWindow_->cover();
}

template<typename Source>
void QuickCaptionPanel::takeGestures(Source& source) {
  connect(&source, &Source::pressed, this, [this](Qt::Edges edges, QPointF onDesktop, QPointF inWindow) {
    floating_.takeHold(inWindow);
    begin({edges, floating_.pointer(onDesktop, inWindow), floating_.frame()});
  });
  connect(&source, &Source::moved, this,
          [this](QPointF onDesktop, QPointF inWindow) { follow(floating_.pointer(onDesktop, inWindow)); });
  connect(&source, &Source::released, this, &QuickCaptionPanel::end);
}

void QuickCaptionPanel::begin(Gesture gesture) {
  if (floating_.isLayer() || !desktopMovesWindows()) {
    gesture_ = gesture;
  } else if (gesture.edges) {
    startSystemResize(gesture.edges);
  } else {
    startSystemMove();
  }
}

void QuickCaptionPanel::follow(QPointF pointer) {
  if (!gesture_) return;
  const auto moved = pointer - gesture_->pressedAt;
  if (!gesture_->edges) {
    floating_.setFrame(frameAt(gesture_->start.topLeft() + moved, gesture_->start.size().toSize()));
  } else {
    floating_.setFrame(CaptionGeometry::resized(gesture_->start, gesture_->edges, moved).toRect());
    saveSize();
  }
  savePosition();
}

void QuickCaptionPanel::end() {
  gesture_.reset();
  floating_.letGo();
}

// Some window managers put a full-screen window above windows that they do not manage, so the panel raises
// itself again. Menus and screen lockers, which they do not manage either, stay above it.
void QuickCaptionPanel::followWindowOrder() {
  // The window manager may signal the new order before it has made it.
  raiseAgain_.setSingleShot(true);
  raiseAgain_.setInterval(raiseDelay);
  connect(&raiseAgain_, &QTimer::timeout, this, [this] {
    if (isVisible()) raise();
  });
  connect(&windowOrder_, &X11Desktop::WindowOrder::changed, this, [this] {
    if (!isVisible()) return;
    raise();
    raiseAgain_.start();
  });
}

void QuickCaptionPanel::followScreens() {
  const auto follow = [this](const QScreen* screen) {
    connect(screen, &QScreen::geometryChanged, this, &QuickCaptionPanel::screensChanged,
            Qt::QueuedConnection);
    connect(screen, &QScreen::availableGeometryChanged, this, &QuickCaptionPanel::screensChanged,
            Qt::QueuedConnection);
  };
  for (const auto* screen : QGuiApplication::screens()) follow(screen);
  connect(qGuiApp, &QGuiApplication::screenAdded, this, follow);
  connect(qGuiApp, &QGuiApplication::screenRemoved, this, &QuickCaptionPanel::screensChanged,
          Qt::QueuedConnection);
}

// Puts the panel back to its place on its screen, or on another one if that screen has gone.
void QuickCaptionPanel::screensChanged() {
  if (!isVisible() || gesture_) return;
  const auto screen =
      CaptionGeometry::screenOf(ScreenGeometry::currentScreens(), floating_.frame(), QCursor::pos());
  if (screen) placeOn(*screen);
}

void QuickCaptionPanel::resizeEvent(QResizeEvent* event) {
  QQuickView::resizeEvent(event);
  if (masked_) updateMask();
}

// Without a compositor the window's transparent corners would be black.
void QuickCaptionPanel::updateMask() {
  const bool needed =
      QGuiApplication::platformName() == QStringLiteral("xcb") && !X11Desktop::hasCompositor();
  if (!needed && !masked_) return;
  masked_ = needed;
  if (!needed) return setMask({});
  QPainterPath card;
  card.addRoundedRect(QRectF(QPointF(0, 0), QSizeF(size())), cardRadius, cardRadius);
  const QRegion mask(card.toFillPolygon().toPolygon());
  if (mask != this->mask()) setMask(mask);
}

void QuickCaptionWindowController::show(AppState& state) {
  if (!panel_) {
    panel_ = std::make_unique<QuickCaptionPanel>(engine_, state, state.settings()->defaults());
  }
  panel_->restorePosition();
  panel_->orderFrontRegardless();
}

} // namespace tolvera
