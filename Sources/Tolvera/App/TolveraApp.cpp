#include "Tolvera/App/TolveraApp.h"

#include "Async/Log.h"
#include "Tolvera/App/QuickCaptionWindow.h"
#include "Tolvera/App/QuickOnboardingWindow.h"
#include "Tolvera/App/WindowActivation.h"
#include "Tolvera/Desktop/LayerShell.h"
#include "Tolvera/Desktop/X11Desktop.h"
#include "Tolvera/Views/AppLogo.h"
#include "Tolvera/Views/Views.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QIcon>
#include <QMessageBox>
#include <QPixmap>
#include <QPushButton>
#include <QQuickWindow>
#include <QTimer>

#include <malloc.h>

#include <chrono>

namespace tolvera {

namespace {

using namespace std::chrono_literals;

// The last tasks of a run end after its phase has changed.
constexpr auto runIsFreedAfter = 1s;

bool runModal(const Alert& alert) {
  QMessageBox box(QMessageBox::Warning, QString(), alert.message);
  box.setTextFormat(Qt::PlainText);
  box.setInformativeText(alert.detail);
  const QPushButton* const first = box.addButton(alert.firstButton, QMessageBox::AcceptRole);
  box.addButton(alert.secondButton, QMessageBox::RejectRole);
  box.show();
  bringForward(*box.windowHandle());
  box.exec();
  return box.clickedButton() == first;
}

} // namespace

bool TolveraApp::prepareProcess() {
  // With a heap for each thread, each heap keeps what its thread has freed. The threads allocate too little
  // to wait for each other at one heap, and real-time threads allocate nothing.
  ::mallopt(M_ARENA_MAX, 1);
  // Qt has one platform plugin for a process. The panel floats above full-screen windows as a layer surface
  // or on X, which Wayland desktops run as well.
  const bool isWayland = !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
  if (qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) {
    log::trace(log::Category::windows, "platform plugin of QT_QPA_PLATFORM");
  } else if (isWayland && LayerShell::isOffered()) {
    qputenv("QT_QPA_PLATFORM", "wayland;xcb");
    log::trace(log::Category::windows, "platform plugin wayland, since the compositor has layer surfaces");
  } else if (X11Desktop::isReachable()) {
    qputenv("QT_QPA_PLATFORM", "xcb");
    log::trace(log::Category::windows, "platform plugin xcb, since there is an X display",
               isWayland ? " and no layer surface" : "");
  } else if (isWayland) {
    log::trace(log::Category::windows, "platform plugin left to Qt: no layer surface and no X display");
  } else {
    return false;
  }
  // Windows of text need no graphics card, and one that is emulated is slow and large.
  if (!qEnvironmentVariableIsSet("QT_QUICK_BACKEND")) {
    QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
  }
  QQuickWindow::setDefaultAlphaBuffer(true);
  return true;
}

void TolveraApp::prepareApplication() {
  QCoreApplication::setApplicationName(QStringLiteral("tolvera"));
  QGuiApplication::setDesktopFileName(QStringLiteral("org.tolvera.Tolvera"));
  QIcon icon;
  for (const int side : {16, 24, 32, 48, 64, 128}) icon.addPixmap(QPixmap::fromImage(AppIcon::image(side)));
  QGuiApplication::setWindowIcon(icon);
  Views::prepareApplication();
}

TolveraApp::TolveraApp(platform::Platform& platform) : platform_(platform), languageNames_(platform.locale) {
  Views::prepareEngine(engine_);
  QObject::connect(&engine_, &QQmlEngine::quit, qApp, &QCoreApplication::quit);
  state_ = AppState::make(platform, makeWindows());
  delegate_ = std::make_unique<AppDelegate>(engine_, *state_, languageNames_, platform.mainExecutor);
  QObject::connect(delegate_.get(), &AppDelegate::terminationBegan, delegate_.get(), [this] {
    menuBarExtra_.reset();
    menuBarPreview_.close();
    onboarding_->close();
  });
  // The allocator keeps the memory that a run has freed, as it lies between pieces that are still in use, and
  // each run adds to it. A trim gives that memory back to the system.
  QObject::connect(state_.get(), &AppState::phaseChanged, delegate_.get(), [this] {
    if (state_->phase().isActive()) return;
    QTimer::singleShot(runIsFreedAfter, delegate_.get(), [] { ::malloc_trim(0); });
  });
}

AppState::Windows TolveraApp::makeWindows() {
  auto captionWindow = std::make_unique<QuickCaptionWindowController>(engine_);
  auto onboarding = std::make_unique<QuickOnboardingWindowController>(engine_);
  captionWindow_ = captionWindow.get();
  onboarding_ = onboarding.get();
  auto showPreview = [this](AppState& state) {
    menuBarPreview_.show(state, [this] { delegate_->openMainWindow(); });
  };
  return {.caption = std::move(captionWindow),
          .onboarding = std::move(onboarding),
          .panelPreview = std::move(showPreview)};
}

// The model may live on in tasks that have not ended; the windows are bound to the engine and go before it.
TolveraApp::~TolveraApp() {
  menuBarPreview_.close();
  menuBarExtra_.reset();
  delegate_.reset();
  captionWindow_->close();
  onboarding_->close();
}

void TolveraApp::launch() {
  delegate_->openMainWindow();
  menuBarExtra_ = std::make_unique<MenuBarExtra>(*state_, [this] { delegate_->openMainWindow(); });
  QObject::connect(delegate_.get(), &AppDelegate::leftWithoutWindow, menuBarExtra_.get(),
                   &MenuBarExtra::tellIfThereIsNoTray);
  QTimer::singleShot(0, delegate_.get(), [this] {
    delegate_->applicationDidFinishLaunching(QCoreApplication::applicationFilePath(), platform_, runModal);
  });
}

void TolveraApp::openSettings() {
  state_->setTab(AppState::Tab::settings);
  delegate_->openMainWindow();
}

} // namespace tolvera
