#pragma once

#include "Tolvera/App/ScreenFit.h"

#include <QQuickView>
#include <QSize>

class QQmlEngine;

namespace tolvera {

class AppState;
class LanguageNames;

// The application's one ordinary window. Closing it ends its view but not the program.
// Main thread.
class MainWindow final : public QQuickView {
  Q_OBJECT

 public:
  static constexpr QSize defaultSize{660, 620};

  // All outlive the window.
  MainWindow(QQmlEngine& engine, AppState& state, LanguageNames& names);

 Q_SIGNALS:
  void closed();

 protected:
  bool event(QEvent* event) override;

 private Q_SLOTS:
  void followMinimumSize();

 private:
  ScreenFit* const fit_;
};

} // namespace tolvera
