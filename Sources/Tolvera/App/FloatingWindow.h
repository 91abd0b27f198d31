#pragma once

#include <QObject>
#include <QPoint>
#include <QPointF>
#include <QPointer>
#include <QRect>
#include <QScreen>
#include <QTimer>

class QMouseEvent;
class QWindow;

namespace tolvera {

// Brings the window of the caption panel to its place on the desktop. The window is one that no window
// manager manages, or a surface of a Wayland compositor's uppermost layer. While such a surface is dragged or
// resized, the window covers the desktop and the panel is drawn in a part of it: the compositor tells where
// the pointer is in the window, and the point means nothing while the window moves. Lengths are
// device-independent pixels, on the desktop if nothing else is said. Main thread.
class FloatingWindow final : public QObject {
  Q_OBJECT

 public:
  // `window` outlives this and has not been shown yet.
  explicit FloatingWindow(QWindow& window);

  [[nodiscard]] bool isLayer() const { return isLayer_; }

  [[nodiscard]] QRect frame() const;
  // For a window that is not shown, and during a drag.
  void setFrame(const QRect& frame);
  // Puts the panel on the screen with that geometry. When a layer surface is shown, it comes to the screen
  // that the compositor takes for the current one, and `screenChosen` tells.
  void standOn(const QRect& screen, const QRect& frame);
  // Of a layer surface: the part of the window that the panel is drawn in.
  [[nodiscard]] QRect frameInWindow() const { return frame_.translated(-covered_.topLeft()); }

  // A drag begins with a press at that point of the window. The frame may be set until it ends.
  void takeHold(QPointF inWindow);
  void letGo();
  // Where the pointer is. X tells it; for a layer surface it is found out from the point in the window.
  [[nodiscard]] QPointF pointer(QPointF onDesktop, QPointF inWindow);

 Q_SIGNALS:
  // The window's own screen is the one that the compositor has chosen, now or because the last one has gone.
  void screenChosen();
  void frameInWindowChanged();

 private:
  bool eventFilter(QObject* watched, QEvent* event) override;
  void spread();
  void cover(const QRect& area);
  void placeWindow();
  void sendPointer(const QMouseEvent& original);
  void showOn(QScreen& screen);
  [[nodiscard]] QScreen& screenUnder(const QRect& frame) const;

  QWindow& window_;
  const bool isLayer_;
  // Of a layer surface only:
  QRect frame_;
  QRect wanted_;             // what the window is to cover
  QRect covered_;            // what it covers
  QPoint onScreen_;          // the place of that on its screen
  QPointer<QScreen> screen_; // none: the screen has gone, and the surface with it
  QTimer chosen_;
  bool isHeld_ = false;
  bool isSpread_ = false; // over the desktop
  QPointF pressedCorner_; // the window's at the press
  QPointF pointer_;
  bool isPointerStale_ = false; // Qt counts it from the window's former place
};

} // namespace tolvera
