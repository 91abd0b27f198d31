#include "Tolvera/Model/AppState.h"

#include <QVariantMap>

namespace tolvera {

void AppState::openMicrophoneSettings() { platform_.workspace.openMicrophoneSettings(); }

void AppState::previewPanel() {
  if (windows_.panelPreview) windows_.panelPreview(*this);
}

void AppState::previewOverlay() {
  setSourceLine("and then move on to the roadmap for the next three months");
  setPreviousLine("我们先来快速回顾一下上个季度的业绩。");
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

} // namespace tolvera
