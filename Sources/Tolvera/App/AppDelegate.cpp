#include "Tolvera/App/AppDelegate.h"

#include "Async/Log.h"
#include "Tolvera/App/WindowActivation.h"
#include "Tolvera/Model/AppState.h"

#include <QEvent>
#include <QGuiApplication>

#include <chrono>
#include <utility>

namespace tolvera {

namespace {

using namespace std::chrono_literals;

// The service's last words take 5 s at most; anything longer is a fault that must not keep the program.
constexpr auto goodbyeLimit = 8s;

} // namespace

AppDelegate::AppDelegate(QQmlEngine& engine, AppState& state, LanguageNames& names, Executor executor)
    : engine_(engine), state_(state), names_(names), executor_(std::move(executor)) {
  QGuiApplication::setQuitOnLastWindowClosed(false);
  qGuiApp->installEventFilter(this);
  deadline_.setSingleShot(true);
  deadline_.setInterval(goodbyeLimit);
  connect(&deadline_, &QTimer::timeout, this, &AppDelegate::finish);
}

AppDelegate::~AppDelegate() { delete mainWindow_; }

void AppDelegate::applicationDidFinishLaunching(const QString& path, const platform::Platform& platform,
                                                const RunAlert& runAlert) {
  if (!LocationCheck::passes(path, platform, runAlert)) terminate();
}

void AppDelegate::openMainWindow() {
  if (terminating_) return;
  if (!mainWindow_) {
    mainWindow_ = new MainWindow(engine_, state_, names_);
    connect(mainWindow_, &MainWindow::closed, this, &AppDelegate::mainWindowClosed);
    if (lastGeometry_) mainWindow_->setGeometry(*lastGeometry_);
  }
  log::trace(log::Category::windows, "main window shown");
  bringForward(*mainWindow_);
}

// The view is destroyed with the window, which frees its memory.
void AppDelegate::mainWindowClosed() {
  log::trace(log::Category::windows, "main window closed");
  lastGeometry_ = mainWindow_->geometry();
  mainWindow_->deleteLater();
  mainWindow_ = nullptr;
  Q_EMIT leftWithoutWindow();
}

bool AppDelegate::eventFilter(QObject* watched, QEvent* event) {
  if (watched != qGuiApp || event->type() != QEvent::Quit) return QObject::eventFilter(watched, event);
  terminate();
  event->ignore();
  return true;
}

void AppDelegate::terminate() {
  if (std::exchange(terminating_, true)) return finish();
  if (mainWindow_) mainWindow_->hide();
  hidePanel();
  Q_EMIT terminationBegan();
  if (state_.phase().is(Phase::Kind::idle)) return finish();
  // The run is over once the phase says so. The last look at the account is not worth waiting for.
  connect(&state_, &AppState::phaseChanged, this, [this] {
    if (state_.phase().is(Phase::Kind::idle)) finish();
  });
  stopTask_ = spawn(executor_, "stop", state_.shared_from_this(), state_.stop());
  deadline_.start();
}

// A user who quits does not read the last captions.
void AppDelegate::hidePanel() {
  if (auto* panel = state_.captionWindow().panel()) panel->putAway();
}

void AppDelegate::finish() {
  deadline_.stop();
  stopTask_.cancel();
  QCoreApplication::exit(0);
}

} // namespace tolvera
