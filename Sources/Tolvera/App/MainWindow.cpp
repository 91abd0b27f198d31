#include "Tolvera/App/MainWindow.h"

#include "Tolvera/App/ViewLoading.h"
#include "Tolvera/App/WindowActivation.h"
#include "Tolvera/AppState.h"
#include "Tolvera/Views/LanguageNames.h"
#include "Tolvera/Views/Views.h"

#include <QCoreApplication>
#include <QQuickItem>
#include <QShortcut>

namespace tolvera {

MainWindow::MainWindow(QQmlEngine& engine, AppState& state, LanguageNames& names)
    : QQuickView(&engine, nullptr) {
  setResizeMode(QQuickView::SizeRootObjectToView);
  resize(defaultSize);
  loadView(*this, Views::mainView, state, {{QStringLiteral("languageNames"), QVariant::fromValue(&names)}});
  connect(rootObject(), SIGNAL(minimumHeightChanged()), this, SLOT(followMinimumSize()));
  followMinimumSize();

  const auto followLanguage = [this, &state] { setTitle(state.settings()->strings().productName()); };
  connect(state.settings(), &AppSettings::uiLanguageChanged, this, followLanguage);
  followLanguage();

  addCommand(QKeySequence(QStringLiteral("Ctrl+,")), [this, &state] {
    state.setTab(AppState::Tab::settings);
    bringForward(*this);
  });
  addCommand(QKeySequence(QKeySequence::Close), [this] { close(); });
  addCommand(QKeySequence(QStringLiteral("Ctrl+Q")), [] { QCoreApplication::quit(); });
}

void MainWindow::addCommand(const QKeySequence& keys, std::function<void()> action) {
  auto* const shortcut = new QShortcut(keys, this);
  connect(shortcut, &QShortcut::activated, this, std::move(action));
}

// What the view can be drawn in depends on the fonts.
void MainWindow::followMinimumSize() {
  setMinimumSize(
      {rootObject()->property("minimumWidth").toInt(), rootObject()->property("minimumHeight").toInt()});
}

bool MainWindow::event(QEvent* event) {
  const bool isClosing = event->type() == QEvent::Close;
  const bool handled = QQuickView::event(event);
  if (isClosing && event->isAccepted()) Q_EMIT closed();
  return handled;
}

} // namespace tolvera
