#include "Tolvera/Model/AppState.h"

#include <QVariantMap>

namespace tolvera {

void AppState::beginStart() { spawn(platform_.mainExecutor, "start", start()); }
void AppState::beginStop() { spawn(platform_.mainExecutor, "stop", stop()); }
void AppState::beginToggle() { spawn(platform_.mainExecutor, "toggle", toggle()); }
void AppState::beginBootstrap() { spawn(platform_.mainExecutor, "bootstrap", bootstrap()); }
void AppState::beginSignIn() { spawn(platform_.mainExecutor, "sign in", signIn()); }
void AppState::beginTopUp(const QString& pack) {
  spawn(platform_.mainExecutor, "top up", openTopUp(pack.toStdString()));
}
void AppState::beginSignOut() { spawn(platform_.mainExecutor, "sign out", signOut()); }

void AppState::openMicrophoneSettings() { platform_.workspace.openMicrophoneSettings(); }

void AppState::previewPanel() {
  if (windows_.panelPreview) windows_.panelPreview(*this);
}

void AppState::previewOverlay() {
  setSourceLine("and then move on to the roadmap for the next three months");
  assign(previousLine_, QString("我们先来快速回顾一下上个季度的业绩。"), &AppState::previousLineChanged);
  setCurrent("然后讨论未来三个月的", "规划");
  setOverlayStatus({});
  setSecondsLeft(742);
  captionWindow().show(*this);
}

QVariantList AppState::appsForViews() const {
  QVariantList list;
  for (const auto& app : apps_) {
    list.append(QVariantMap{{"bundleID", QString::fromStdString(app.bundleID)},
                            {"name", QString::fromStdString(app.name)},
                            {"isPlaying", app.isPlaying}});
  }
  return list;
}

QVariantList AppState::packs() const {
  QVariantList list;
  if (!me_) return list;
  for (const auto& pack : me_->packs) {
    list.append(QVariantMap{{"id", QString::fromStdString(pack.id)},
                            {"hours", pack.hours},
                            {"cents", static_cast<qlonglong>(pack.cents)},
                            {"fen", static_cast<qlonglong>(pack.fen)}});
  }
  return list;
}

} // namespace tolvera
