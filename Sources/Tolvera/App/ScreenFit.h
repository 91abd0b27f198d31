#pragma once

#include <QMargins>
#include <QObject>
#include <QPointF>
#include <QRectF>
#include <QSize>
#include <QSizeF>

#include <functional>
#include <optional>

class QWindow;

namespace tolvera {

// Keeps a window with its frame on the visible part of its screen: it has its own size and place wherever
// they fit, and is made smaller and moved only as far as it must be. Looks when the window comes to the
// screen, when the window manager has framed it, and when the screen changes. The user may move it anywhere.
// Owned by its window; main thread.
class ScreenFit final : public QObject {
  Q_OBJECT

 public:
  // The first top left corner of a frame of this size on a screen with this visible frame. Without it the
  // window manager places the window.
  using Place = std::function<QPointF(const QRectF& visibleFrame, QSizeF frame)>;

  explicit ScreenFit(QWindow& window, Place place = nullptr);

  // What the window is not made smaller than, as far as the screen allows.
  void setMinimumSize(QSize size);
  // The size that the window has wherever it fits; the user cannot change it then.
  void setFixedSize(QSize size);
  void fit();

  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void followScreen();
  [[nodiscard]] QSize bounded(QSize size) const;

  QWindow& window_;
  const Place place_;
  QSize minimum_;
  QSize fixed_;
  std::optional<QMargins> framedBy_; // as it was at the last look
  bool isPlaced_ = false;            // with its frame; from then on it stays where the user moves it
};

} // namespace tolvera
