#include "Tolvera/App/MainWindow.h"

#include "Tolvera/App/ViewLoading.h"
#include "Tolvera/Model/AppState.h"
#include "Tolvera/Views/LanguageNames.h"
#include "Tolvera/Views/Views.h"

#include <QEvent>
#include <QQuickItem>

namespace tolvera {

MainWindow::MainWindow(QQmlEngine& engine, AppState& state, LanguageNames& names)
    : QQuickView(&engine, nullptr), fit_(new ScreenFit(*this)) {
  setResizeMode(QQuickView::SizeRootObjectToView);
  resize(defaultSize);
  loadView(*this, Views::mainView, state, {{QStringLiteral("languageNames"), QVariant::fromValue(&names)}});
  connect(rootObject(), SIGNAL(minimumHeightChanged()), this, SLOT(followMinimumSize()));
  followMinimumSize();

  const auto followLanguage = [this, &state] { setTitle(state.settings()->strings().productName()); };
  connect(state.settings(), &AppSettings::uiLanguageChanged, this, followLanguage);
  followLanguage();
}

// What the view can be drawn in depends on the fonts.
void MainWindow::followMinimumSize() {
  fit_->setMinimumSize(
      {rootObject()->property("minimumWidth").toInt(), rootObject()->property("minimumHeight").toInt()});
}

bool MainWindow::event(QEvent* event) {
  const bool isClosing = event->type() == QEvent::Close;
  const bool handled = QQuickView::event(event);
  if (isClosing && event->isAccepted()) Q_EMIT closed();
  return handled;
}

} // namespace tolvera
