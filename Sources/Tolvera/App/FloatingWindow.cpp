#include "Tolvera/App/FloatingWindow.h"

#include "Tolvera/App/ScreenGeometry.h"
#include "Tolvera/Desktop/LayerShell.h"

#include <QCoreApplication>
#include <QEvent>
#include <QGuiApplication>
#include <QMouseEvent>
#include <QWindow>

#include <algorithm>
#include <chrono>
#include <utility>

namespace tolvera {

namespace {

using namespace std::chrono_literals;

// How far the corner of the window that covers the desktop is from the panel's at least: much further than
// the pointer goes between two of its events.
constexpr int reach = 400;

// A window that has been shown knows its screen for certain after this time.
constexpr auto choiceLimit = 200ms;

QPoint insideEveryScreen(QRect frame) {
  for (const auto* screen : QGuiApplication::screens()) {
    const QRectF visible(QPointF(0, 0), screen->size());
    frame = ScreenGeometry::movedInside(visible, frame).toRect();
  }
  return frame.topLeft();
}

} // namespace

FloatingWindow::FloatingWindow(QWindow& window) : window_(window), isLayer_(LayerShell::adopt(window)) {
  if (!isLayer_) return;
  window.installEventFilter(this);
  chosen_.setSingleShot(true);
  chosen_.setInterval(choiceLimit);
  const auto tell = [this] {
    if (window_.isVisible() && !isHeld_) Q_EMIT screenChosen();
  };
  connect(&chosen_, &QTimer::timeout, this, tell);
  const auto follow = [this, tell] {
    if (window_.screen() != screen_) tell();
  };
  connect(&window, &QWindow::screenChanged, this, follow, Qt::QueuedConnection);
}

QRect FloatingWindow::frame() const { return isLayer_ ? frame_ : window_.geometry(); }

void FloatingWindow::setFrame(const QRect& frame) {
  if (!isLayer_) return window_.setGeometry(frame);
  frame_ = frame;
  if (!isHeld_) {
    cover(frame);
  } else if (!isSpread_) {
    spread();
  } else if (covered_ == wanted_) {
    Q_EMIT frameInWindowChanged();
  }
}

void FloatingWindow::standOn(const QRect& screen, const QRect& frame) {
  if (!isLayer_) return setFrame(frame);
  frame_ = frame;
  auto* const own = QGuiApplication::screenAt(screen.center());
  const bool isNew = !window_.isVisible();
  const auto place = frame.topLeft() - screen.topLeft();
  const bool stands =
      screen_ && own == window_.screen() && frame.size() == covered_.size() && place == onScreen_;
  if (!isNew && !stands) return showOn(own ? *own : *window_.screen());
  screen_ = own;
  cover(frame);
  if (!isNew) return;
  LayerShell::choose(window_, LayerShell::Screen::current);
  if (QGuiApplication::screens().size() == 1) return;
  // On two screens at once, the window could not tell which one is its own.
  onScreen_ = insideEveryScreen({place, frame.size()});
  LayerShell::place(window_, onScreen_);
  chosen_.start();
}

void FloatingWindow::takeHold(QPointF inWindow) {
  isHeld_ = isLayer_;
  pressedCorner_ = covered_.topLeft();
  pointer_ = pressedCorner_ + inWindow;
}

void FloatingWindow::letGo() {
  isHeld_ = false;
  if (!std::exchange(isSpread_, false)) return;
  auto& screen = screenUnder(frame_);
  if (window_.isVisible() && &screen != screen_) {
    showOn(screen);
  } else {
    cover(frame_);
    isPointerStale_ = window_.isVisible();
  }
}

// While a button is down, one compositor counts from the window's corner as it was at the press, another one
// from where the corner is, and no event says when it begins to. The right point is the one near the last.
QPointF FloatingWindow::pointer(QPointF onDesktop, QPointF inWindow) {
  if (!isLayer_) return onDesktop;
  const auto before = pressedCorner_ + inWindow;
  const auto now = QPointF(covered_.topLeft()) + inWindow;
  const auto way = [this](QPointF point) { return (point - pointer_).manhattanLength(); };
  pointer_ = way(before) < way(now) ? before : now;
  return pointer_;
}

void FloatingWindow::spread() {
  isSpread_ = true;
  auto area = frame_;
  for (const auto* screen : QGuiApplication::screens()) area |= screen->geometry();
  cover(area.adjusted(-reach, 0, 0, 0));
}

void FloatingWindow::cover(const QRect& area) {
  const bool isResized = window_.isVisible() && window_.size() != area.size();
  wanted_ = area;
  window_.resize(area.size());
  if (!isResized) placeWindow();
}

bool FloatingWindow::eventFilter(QObject* watched, QEvent* event) {
  switch (event->type()) {
  case QEvent::Resize: // the place changes with the frame that has the new size
    if (covered_ != wanted_ && window_.size() == wanted_.size()) placeWindow();
    break;
  case QEvent::Enter:
  case QEvent::MouseMove:
    if (event->spontaneous()) isPointerStale_ = false;
    break;
  case QEvent::MouseButtonPress:
  case QEvent::MouseButtonDblClick:
  case QEvent::MouseButtonRelease:
    if (!isPointerStale_ || !event->spontaneous()) break;
    sendPointer(*static_cast<const QMouseEvent*>(event));
    return true;
  default:
    break;
  }
  return QObject::eventFilter(watched, event);
}

// Not every compositor tells where a pointer at rest is in a window that has moved.
void FloatingWindow::sendPointer(const QMouseEvent& original) {
  const auto inWindow = pointer_ - covered_.topLeft();
  QMouseEvent event(original.type(), inWindow, inWindow, original.globalPosition(), original.button(),
                    original.buttons(), original.modifiers(), original.pointingDevice());
  QCoreApplication::sendEvent(&window_, &event);
}

void FloatingWindow::placeWindow() {
  covered_ = wanted_;
  if (screen_) onScreen_ = covered_.topLeft() - screen_->geometry().topLeft();
  LayerShell::place(window_, onScreen_);
  Q_EMIT frameInWindowChanged();
}

// A layer surface stays with its screen, so that another screen needs another surface.
void FloatingWindow::showOn(QScreen& screen) {
  window_.hide();
  window_.setScreen(&screen);
  screen_ = &screen;
  LayerShell::choose(window_, LayerShell::Screen::own);
  cover(frame_);
  window_.show();
}

QScreen& FloatingWindow::screenUnder(const QRect& frame) const {
  const auto screens = QGuiApplication::screens();
  const auto under = std::find_if(screens.begin(), screens.end(), [&frame](const auto* screen) {
    return screen->geometry().intersects(frame);
  });
  return under == screens.end() ? *window_.screen() : **under;
}

} // namespace tolvera
