#include "Tolvera/App/MenuBarView.h"

#include "Tolvera/Model/AppState.h"
#include "Tolvera/Views/MainView.h"

#include <QCoreApplication>
#include <QEvent>
#include <QPalette>

#include <algorithm>
#include <cmath>

namespace tolvera {

QString MenuBarRules::statusLine(const Strings& strings, const Phase& phase, const QString& balance) {
  switch (phase.kind()) {
  case Phase::Kind::idle:
    return strings.productName() + QStringLiteral(" · ") + strings.timeLeft() + QStringLiteral(" ") + balance;
  case Phase::Kind::starting:
  case Phase::Kind::connecting:
    return strings.connecting();
  case Phase::Kind::live:
    return strings.translating() + QStringLiteral(" · ") + balance;
  case Phase::Kind::reconnecting:
  case Phase::Kind::failed:
    break;
  }
  return MainViewRules::statusText(strings, phase);
}

QString MenuBarRules::startTitle(const Strings& strings, const Phase& phase) {
  return phase.isActive() ? strings.stop() : strings.startTranslating();
}

bool MenuBarRules::startEnabled(const Phase& phase, double secondsLeft) {
  return !phase.is(Phase::Kind::starting) && (secondsLeft > 0 || phase.isActive());
}

namespace {

// As the web's accessibility guidelines define it.
double luminance(const QColor& color) {
  const auto linear = [](double part) {
    return part <= 0.04045 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
  };
  return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) + 0.0722 * linear(color.blueF());
}

bool isRead(const QColor& text, const QColor& ground) {
  const auto [darker, lighter] = std::minmax({luminance(text), luminance(ground)});
  return (lighter + 0.05) / (darker + 0.05) >= 4.5;
}

} // namespace

QColor MenuBarRules::faintText(const QColor& text, const QColor& ground) {
  auto faintest = text;
  for (int percent = 5; percent < 60; percent += 5) {
    const auto share = static_cast<float>(percent) / 100;
    const auto mixed = [share](float one, float other) { return one + (other - one) * share; };
    const auto color =
        QColor::fromRgbF(mixed(text.redF(), ground.redF()), mixed(text.greenF(), ground.greenF()),
                         mixed(text.blueF(), ground.blueF()));
    if (!isRead(color, ground)) break;
    faintest = color;
  }
  return faintest;
}

namespace {

// Menus take an ampersand for the mark of a key.
QString plain(QString text) { return text.replace(QLatin1Char('&'), QStringLiteral("&&")); }

} // namespace

MenuBarView::MenuBarView(AppState& state, std::function<void()> openWindow) : state_(state) {
  const auto open = [this, openWindow = std::move(openWindow)](AppState::Tab tab) {
    state_.setTab(tab);
    openWindow();
  };
  status_ = addAction(QString());
  status_->setEnabled(false);
  addSeparator();
  start_ = addAction(QString(), this, &MenuBarView::toggleRun);
  open_ = addAction(QString(), this, [open] { open(AppState::Tab::translate); });
  settings_ = addAction(QString(), this, [open] { open(AppState::Tab::settings); });
  addSeparator();
  // Not before the menu is done with the click: quitting takes the menu away.
  quit_ = addAction(QString());
  connect(quit_, &QAction::triggered, qApp, &QCoreApplication::quit, Qt::QueuedConnection);
  // Some desktops would move these where they keep such entries of their own.
  for (auto* action : actions()) action->setMenuRole(QAction::NoRole);

  connect(&state, &AppState::phaseChanged, this, &MenuBarView::update);
  connect(&state, &AppState::secondsLeftChanged, this, &MenuBarView::update);
  connect(state.settings(), &AppSettings::uiLanguageChanged, this, &MenuBarView::update);
  update();
  keepStatusReadable();
}

void MenuBarView::changeEvent(QEvent* event) {
  QMenu::changeEvent(event);
  if (event->type() == QEvent::PaletteChange) keepStatusReadable();
}

void MenuBarView::keepStatusReadable() {
  auto colors = palette();
  const auto faint = MenuBarRules::faintText(colors.color(QPalette::Active, QPalette::WindowText),
                                             colors.color(QPalette::Active, QPalette::Window));
  if (colors.color(QPalette::Disabled, QPalette::Text) == faint) return;
  for (const auto role : {QPalette::Text, QPalette::WindowText, QPalette::ButtonText})
    colors.setColor(QPalette::Disabled, role, faint);
  setPalette(colors);
}

void MenuBarView::update() {
  const auto strings = state_.settings()->strings();
  const auto& phase = state_.phase();
  const auto secondsLeft = state_.secondsLeft();
  status_->setText(plain(MenuBarRules::statusLine(strings, phase, state_.formatTime(secondsLeft))));
  start_->setText(MenuBarRules::startTitle(strings, phase));
  start_->setEnabled(MenuBarRules::startEnabled(phase, secondsLeft));
  open_->setText(strings.pick("打开托维拉", "Open Tolvera"));
  settings_->setText(strings.settings());
  quit_->setText(strings.pick("退出托维拉", "Quit Tolvera"));
}

void MenuBarView::toggleRun() {
  if (state_.phase().isActive()) {
    state_.beginStop();
  } else {
    state_.beginStart();
  }
}

} // namespace tolvera
