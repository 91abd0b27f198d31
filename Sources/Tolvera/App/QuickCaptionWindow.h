#pragma once

#include "Platform/UserDefaults.h"
#include "Tolvera/App/CaptionGrip.h"
#include "Tolvera/App/FloatingWindow.h"
#include "Tolvera/App/PointerGrabWindow.h"
#include "Tolvera/App/ScreenGeometry.h"
#include "Tolvera/Desktop/X11Desktop.h"
#include "Tolvera/Model/WindowControllers.h"

#include <QPointF>
#include <QQuickView>
#include <QRectF>
#include <QTimer>

#include <memory>
#include <optional>

class QQmlEngine;

namespace tolvera {

// The floating panel with the captions: above every window, on every workspace, never with the keyboard.
// No window manager manages it, so the panel itself handles being dragged, by its ground, and being
// resized, at its edges. Its geometry is kept in the preference store. Main thread.
class QuickCaptionPanel final : public QQuickView, public CaptionPanel {
  Q_OBJECT

 public:
  // `engine`, `state` and `defaults` outlive the panel, which is not yet on the screen.
  QuickCaptionPanel(QQmlEngine& engine, AppState& state, platform::UserDefaults& defaults);

  // Places the panel on the screen with the pointer, where the user left it on its last screen. A compositor
  // that has layer surfaces chooses the screen.
  void restorePosition();
  // Keeps the place where the panel stands, as shares of its screen.
  void savePosition() override;
  void saveSize();
  // Shows the panel above everything, without a change of the focus.
  void orderFrontRegardless();
  void orderOut() override;

 protected:
  void resizeEvent(QResizeEvent* event) override;

 private:
  // A press that drags the panel or, with edges, resizes it.
  struct Gesture {
    Qt::Edges edges;
    QPointF pressedAt; // on the desktop
    QRectF start;
  };

  void addGrip(CaptionGrip::Part part);
  void coverDesktop();
  // Tells the view, which lies below the edges, whether the pointer is there.
  void notePointerAtEdge(bool isThere);
  // `source` has the signals of a grip.
  template<typename Source>
  void takeGestures(Source& source);
  void begin(Gesture gesture);
  void follow(QPointF pointer);
  void end();
  void placeOn(const ScreenArea& screen);
  void placeOnOwnScreen();
  void followWindowOrder();
  void followScreens();
  void screensChanged();
  void updateMask();

  platform::UserDefaults& defaults_;
  FloatingWindow floating_{*this};
  std::optional<Gesture> gesture_;
  std::optional<PointerGrabWindow> grabWindow_; // made at the first use
  QTimer compositorPoll_;                       // while the panel is on the screen
  X11Desktop::WindowOrder windowOrder_;
  QTimer raiseAgain_;
  bool masked_ = false;
};

// Makes the panel at the first show and keeps it.
class QuickCaptionWindowController final : public CaptionWindowController {
 public:
  // The engine outlives the controller.
  explicit QuickCaptionWindowController(QQmlEngine& engine) : engine_(engine) {}

  void show(AppState& state) override;
  CaptionPanel* panel() override { return panel_.get(); }
  // Destroys the panel. For the end of the program, where the model may outlast the engine.
  void close() { panel_.reset(); }

 private:
  QQmlEngine& engine_;
  std::unique_ptr<QuickCaptionPanel> panel_;
};

} // namespace tolvera
