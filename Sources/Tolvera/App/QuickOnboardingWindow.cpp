#include "Tolvera/App/QuickOnboardingWindow.h"

#include "Async/Log.h"
#include "Tolvera/App/ScreenFit.h"
#include "Tolvera/App/ScreenGeometry.h"
#include "Tolvera/App/ViewLoading.h"
#include "Tolvera/App/WindowActivation.h"
#include "Tolvera/Model/AppState.h"
#include "Tolvera/Views/Views.h"

#include <QCursor>
#include <QGuiApplication>
#include <QQuickItem>

#include <algorithm>

namespace tolvera {

namespace {

// Makes the view's layouts compute their sizes now instead of at the first frame, from the innermost to the
// outermost. The first round settles the widths, the next ones the heights that depend on them.
void layOut(QQuickItem& view) {
  auto items = view.findChildren<QQuickItem*>();
  std::reverse(items.begin(), items.end());
  for (int round = 0; round < 3; ++round) {
    for (auto* item : items) item->ensurePolished();
  }
}

} // namespace

void QuickOnboardingWindowController::show(AppState& state) {
  if (!window_) make(state);
  log::trace(log::Category::windows, "onboarding shown");
  bringForward(*window_);
}

void QuickOnboardingWindowController::make(AppState& state) {
  window_ = std::make_unique<QQuickView>(&engine_, nullptr);
  window_->setFlags(Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowSystemMenuHint |
                    Qt::WindowCloseButtonHint);
  window_->setResizeMode(QQuickView::SizeRootObjectToView);
  loadView(*window_, Views::onboardingView, state);
  auto* const view = window_->rootObject();
  window_->setTitle(view->property("title").toString());
  connect(view, SIGNAL(done()), this, SLOT(done()));

  // The view asks for another height in another language; the user does not resize it.
  if (auto* const screen = QGuiApplication::screenAt(QCursor::pos())) window_->setScreen(screen);
  auto* const fit = new ScreenFit(*window_, ScreenGeometry::greetingOrigin);
  const auto follow = [fit, view] {
    fit->setFixedSize(QSizeF(view->implicitWidth(), view->implicitHeight()).toSize());
  };
  connect(view, &QQuickItem::implicitHeightChanged, window_.get(), follow);
  connect(view, &QQuickItem::implicitWidthChanged, window_.get(), follow);
  follow();
  layOut(*view);
  follow();
}

void QuickOnboardingWindowController::done() {
  if (!window_) return;
  log::trace(log::Category::windows, "onboarding done");
  window_->close();
  // The view is still in the handler of its button.
  window_.release()->deleteLater();
}

} // namespace tolvera
