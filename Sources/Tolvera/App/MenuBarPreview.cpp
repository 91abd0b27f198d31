#include "Tolvera/App/MenuBarPreview.h"

#include "Tolvera/App/MenuBarView.h"
#include "Tolvera/App/ScreenGeometry.h"
#include "Tolvera/App/WindowActivation.h"

#include <QCursor>
#include <QVBoxLayout>
#include <QWindow>

namespace tolvera {

namespace {

constexpr QSize windowSize{340, 760};

} // namespace

void MenuBarPreview::show(AppState& state, std::function<void()> openWindow) {
  window_ = std::make_unique<QWidget>();
  window_->setWindowFlags(Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                          Qt::WindowSystemMenuHint | Qt::WindowCloseButtonHint);
  window_->setWindowTitle(QStringLiteral("MenuBarView preview"));
  window_->setFixedSize(windowSize);

  auto* const menu = new MenuBarView(state, std::move(openWindow));
  menu->setWindowFlags(Qt::Widget);
  auto* const layout = new QVBoxLayout(window_.get());
  layout->setContentsMargins(0, 0, 0, 0);
  layout->addWidget(menu, 0, Qt::AlignTop);
  menu->show();

  const auto screen = ScreenGeometry::screenAt(ScreenGeometry::currentScreens(), QCursor::pos());
  if (screen) window_->move(ScreenGeometry::previewOrigin(screen->visibleFrame, windowSize).toPoint());
  window_->show();
  bringForward(*window_->windowHandle());
}

} // namespace tolvera
