#pragma once

#include "Tolvera/Model/WindowControllers.h"

#include <QObject>
#include <QQuickView>

#include <memory>

class QQmlEngine;

namespace tolvera {

// Makes, places and closes the window that greets a new user. Closed by its frame it stays and can be shown
// again; closed by its button it is gone. Main thread.
class QuickOnboardingWindowController final : public QObject, public OnboardingWindowController {
  Q_OBJECT

 public:
  // The engine outlives the controller.
  explicit QuickOnboardingWindowController(QQmlEngine& engine) : engine_(engine) {}

  void show(AppState& state) override;
  // Destroys the window. For the end of the program, where the model may outlast the engine.
  void close() { window_.reset(); }

 private Q_SLOTS:
  void done();

 private:
  void make(AppState& state);

  QQmlEngine& engine_;
  std::unique_ptr<QQuickView> window_;
};

} // namespace tolvera
