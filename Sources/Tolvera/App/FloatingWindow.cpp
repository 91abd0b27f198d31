#include "Tolvera/App/FloatingWindow.h"

#include "Tolvera/Desktop/LayerShell.h"

#include <QEvent>
#include <QGuiApplication>
#include <QWindow>

#include <algorithm>
#include <utility>

namespace tolvera {

namespace {

// How far the corner of the window that covers the desktop is from the panel's at least: much further than
// the pointer goes between two of its events.
constexpr int reach = 400;

} // namespace

FloatingWindow::FloatingWindow(QWindow& window) : window_(window), isLayer_(LayerShell::adopt(window)) {
  if (!isLayer_) return;
  window.installEventFilter(this);
  const auto follow = [this] {
    if (window_.isVisible() && !isHeld_ && window_.screen() != screen_) Q_EMIT screenChosen();
  };
  connect(&window, &QWindow::screenChanged, this, follow, Qt::QueuedConnection);
}

QRect FloatingWindow::frame() const { return isLayer_ ? frame_ : window_.geometry(); }

QRect FloatingWindow::frameInWindow() const {
  return isLayer_ ? frame_.translated(-covered_.topLeft()) : QRect(QPoint(), window_.size());
}

void FloatingWindow::setFrame(const QRect& frame) {
  if (!isLayer_) return window_.setGeometry(frame);
  frame_ = frame;
  if (isSpread_) {
    if (covered_ == wanted_) Q_EMIT frameInWindowChanged();
  } else if (isHeld_) {
    spread();
  } else if (!window_.isVisible()) {
    screen_ = window_.screen();
    cover(frame);
  } else {
    auto& screen = screenUnder(frame);
    const bool stands = screen_ && &screen == window_.screen() && frame.size() == covered_.size() &&
                        frame.topLeft() - screen.geometry().topLeft() == onScreen_;
    if (!stands) return showOn(screen);
    // The compositor chose a screen that is like the expected one.
    screen_ = &screen;
    wanted_ = covered_ = frame;
  }
}

void FloatingWindow::forgetScreen() {
  if (isLayer_) LayerShell::choose(window_, LayerShell::Screen::current);
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
  if (!isResized) followSize();
}

bool FloatingWindow::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::Resize) followSize();
  return QObject::eventFilter(watched, event);
}

// The window's place and its size change with the same frame.
void FloatingWindow::followSize() {
  if (window_.size() != wanted_.size() || !screen_) return;
  covered_ = wanted_;
  onScreen_ = covered_.topLeft() - screen_->geometry().topLeft();
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
