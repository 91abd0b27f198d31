#include "Tolvera/App/MenuBarExtra.h"

#include "Tolvera/Desktop/LoginNotice.h"
#include "Tolvera/Desktop/X11Desktop.h"
#include "Tolvera/Model/AppState.h"
#include "Tolvera/Views/MenuBarIcon.h"

#include <QCursor>
#include <QGuiApplication>
#include <QPainter>
#include <QPixmap>

#include <algorithm>

namespace tolvera {

namespace {

// The panel of these desktops is dark, also where windows are light.
bool panelIsAlwaysDark() {
  const auto desktops = qEnvironmentVariable("XDG_CURRENT_DESKTOP").split(QLatin1Char(':'));
  return std::any_of(desktops.begin(), desktops.end(), [](const auto& name) {
    return name == QStringLiteral("GNOME") || name == QStringLiteral("Unity");
  });
}

QPixmap drawn(int side, bool running, MenuBarExtra::Colors colors) {
  QPixmap pixmap(side, side);
  pixmap.fill(Qt::transparent);
  QPainter painter(&pixmap);
  const QSizeF measure = MenuBarIcon::size;
  const double scale = side / measure.width();
  painter.translate(0, (side - measure.height() * scale) / 2);
  painter.scale(scale, scale);
  MenuBarIcon::draw(painter, running, colors.figure, colors.outline);
  return pixmap;
}

} // namespace

MenuBarExtra::MenuBarExtra(AppState& state, std::function<void()> openWindow)
    : state_(state), openWindow_(std::move(openWindow)), menu_(state, openWindow_) {
  connect(&host_, &TrayHost::changed, this, &MenuBarExtra::insertOrRemove);
  connect(state.settings(), &AppSettings::menuBarEnabledChanged, this, &MenuBarExtra::insertOrRemove);
  connect(&state, &AppState::phaseChanged, this, &MenuBarExtra::redraw);
  connect(state.settings(), &AppSettings::uiLanguageChanged, this, &MenuBarExtra::redraw);
  insertOrRemove();
}

QIcon MenuBarExtra::icon(bool running, Colors colors) {
  QIcon icon;
  for (const int side : {16, 18, 22, 24, 32, 36, 44, 48, 64}) icon.addPixmap(drawn(side, running, colors));
  return icon;
}

void MenuBarExtra::tellIfThereIsNoTray() {
  if (host_.kind() != TrayHost::Kind::none) return;
  const auto strings = state_.settings()->strings();
  LoginNotice::show(
      QStringLiteral("told-without-tray"), strings.productName(),
      strings.pick(
          "托维拉还在运行，这个桌面没有托盘。再启动一次托维拉，窗口就会回来；在窗口里按 Ctrl+Q 退出。",
          "Tolvera is still running, and this desktop has no tray. Launch Tolvera again and its window "
          "comes back; Ctrl+Q in the window quits."));
}

// An icon is bound to the host that it was made for, so another host gets a new one.
void MenuBarExtra::insertOrRemove() {
  const auto wanted = state_.settings()->menuBarEnabled() ? host_.kind() : TrayHost::Kind::none;
  if (wanted == insertedInto_) return;
  insertedInto_ = wanted;
  icon_.reset();
  if (wanted == TrayHost::Kind::none) return;
  icon_ = std::make_unique<QSystemTrayIcon>();
  icon_->setContextMenu(&menu_);
  connect(icon_.get(), &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
    if (reason != QSystemTrayIcon::Trigger) return;
    // On Wayland only the desktop can put a menu beside its icon, which it does at the other button.
    if (QGuiApplication::platformName().startsWith(QStringLiteral("wayland"))) return openWindow_();
    menu_.popup(QCursor::pos());
  });
  redraw();
  icon_->show();
}

// A tray of the older kind tells its colour; of the others only some are known to be dark.
MenuBarExtra::Colors MenuBarExtra::colors() const {
  if (insertedInto_ == TrayHost::Kind::embedding) {
    if (const auto color = X11Desktop::embeddingTrayColor()) return {*color, QColor()};
  } else if (panelIsAlwaysDark()) {
    return {Qt::white, QColor()};
  }
  return {Qt::black, Qt::white}; // seen on any ground
}

void MenuBarExtra::redraw() {
  if (!icon_) return;
  icon_->setIcon(icon(state_.phase().isActive(), colors()));
  icon_->setToolTip(state_.settings()->strings().productName());
}

} // namespace tolvera
