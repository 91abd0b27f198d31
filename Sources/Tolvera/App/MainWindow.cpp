#include "Tolvera/App/MainWindow.h"

#include "Tolvera/App/ViewLoading.h"
#include "Tolvera/App/WindowActivation.h"
#include "Tolvera/Model/AppState.h"
#include "Tolvera/Views/LanguageNames.h"
#include "Tolvera/Views/Views.h"

#include <QCoreApplication>
#include <QQmlComponent>
#include <QQuickItem>

namespace tolvera {

MainWindow::MainWindow(QQmlEngine& engine, AppState& state, LanguageNames& names)
    : QQuickView(&engine, nullptr), state_(state) {
  setResizeMode(QQuickView::SizeRootObjectToView);
  resize(defaultSize);
  loadView(*this, Views::mainView, state, {{QStringLiteral("languageNames"), QVariant::fromValue(&names)}});
  connect(rootObject(), SIGNAL(minimumHeightChanged()), this, SLOT(followMinimumSize()));
  followMinimumSize();

  const auto followLanguage = [this, &state] { setTitle(state.settings()->strings().productName()); };
  connect(state.settings(), &AppSettings::uiLanguageChanged, this, followLanguage);
  followLanguage();

  addCommand(QStringLiteral("Ctrl+,"), SLOT(showSettings()));
  addCommand(QStringLiteral("Ctrl+W"), SLOT(close()));
  addCommand(QStringLiteral("Ctrl+Q"), SLOT(quit()));
}

// Qt Quick's own shortcut, since that of widgets looks for a widget in front.
void MainWindow::addCommand(const QString& keys, const char* slot) {
  QQmlComponent shortcut(engine());
  shortcut.setData("import QtQuick\nShortcut {}", QUrl());
  auto* const object = shortcut.createWithInitialProperties({{QStringLiteral("sequence"), keys}});
  if (!object) qFatal("%s", qUtf8Printable(shortcut.errorString()));
  object->setParent(this);
  connect(object, SIGNAL(activated()), this, slot);
}

void MainWindow::showSettings() {
  state_.setTab(AppState::Tab::settings);
  bringForward(*this);
}

void MainWindow::quit() { QCoreApplication::quit(); }

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
