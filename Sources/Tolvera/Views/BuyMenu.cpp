#include "Tolvera/Views/BuyMenu.h"

#include <algorithm>

namespace tolvera {

QString BuyRows::packLabel(const Strings& strings, const API::Pack& pack) {
  const auto hours = QString::number(static_cast<qint64>(pack.hours));
  if (strings.zh) return hours + " 小时 · ¥" + QString::number(pack.fen / 100);
  return hours + "h · " + QString::asprintf("$%.2f", static_cast<double>(pack.cents) / 100.0);
}

void BuyRows::setApp(AppState* app) {
  if (app_ == app) return;
  app_ = app;
  connect(app, &AppState::meChanged, this, &BuyRows::reset);
  connect(app->settings(), &AppSettings::uiLanguageChanged, this, &BuyRows::reset);
  reset();
  Q_EMIT appChanged();
}

void BuyRows::reset() {
  beginResetModel();
  endResetModel();
}

int BuyRows::packCount() const { return app_ && app_->me() ? static_cast<int>(app_->me()->packs.size()) : 0; }

int BuyRows::rowCount(const QModelIndex& parent) const {
  if (parent.isValid() || !app_) return 0;
  return std::max(1, packCount() + (app_->isSignedIn() ? 0 : 1));
}

QVariant BuyRows::data(const QModelIndex& index, int role) const {
  const auto row = index.row();
  const auto strings = app_->settings()->strings();
  const bool isPack = row < packCount();
  const bool isSignIn = !isPack && !app_->isSignedIn();
  switch (role) {
  case label:
    if (isPack) return packLabel(strings, app_->me()->packs[static_cast<std::size_t>(row)]);
    return isSignIn ? strings.signIn() : strings.pick("暂无可购买的时长", "Nothing to buy");
  case isChoosable:
    return isPack || isSignIn;
  case isDivided:
    return isSignIn && row > 0;
  default:
    return {};
  }
}

QHash<int, QByteArray> BuyRows::roleNames() const {
  return {{label, "label"}, {isChoosable, "isChoosable"}, {isDivided, "isDivided"}};
}

void BuyRows::choose(int row) {
  if (row < packCount()) {
    app_->beginTopUp(QString::fromStdString(app_->me()->packs[static_cast<std::size_t>(row)].id));
  } else if (!app_->isSignedIn()) {
    app_->beginSignIn();
  }
}

} // namespace tolvera
