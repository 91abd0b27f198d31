#pragma once

#include "Platform/Platform.h"
#include "Tolvera/App/AppDelegate.h"
#include "Tolvera/App/MenuBarExtra.h"
#include "Tolvera/App/MenuBarPreview.h"
#include "Tolvera/Model/AppState.h"
#include "Tolvera/Views/LanguageNames.h"

#include <QQmlEngine>

#include <memory>

namespace tolvera {

class QuickCaptionWindowController;
class QuickOnboardingWindowController;

// The application: makes the one model and its windows, and keeps them until the program ends. Made by
// `main` after the application object and destroyed before it and before the platform; main thread.
class TolveraApp {
 public:
  // The platform outlives the application.
  explicit TolveraApp(platform::Platform& platform);
  ~TolveraApp();
  TolveraApp(const TolveraApp&) = delete;
  TolveraApp& operator=(const TolveraApp&) = delete;

  // What has to be set before the application object is made: the heap, the window system and how to draw.
  // False if there is no window system, which Qt would answer with an abort.
  [[nodiscard]] static bool prepareProcess();
  // What has to be set once it is made: names, icon, fonts.
  static void prepareApplication();

  // Opens the main window and puts the icon into the tray. Once, before the event loop runs.
  void launch();
  // Opens the main window with the settings.
  void openSettings();

  AppDelegate& delegate() { return *delegate_; }

 private:
  AppState::Windows makeWindows();

  platform::Platform& platform_;
  QQmlEngine engine_;
  LanguageNames languageNames_;
  // The model owns these two.
  QuickCaptionWindowController* captionWindow_ = nullptr;
  QuickOnboardingWindowController* onboarding_ = nullptr;
  std::shared_ptr<AppState> state_;
  std::unique_ptr<AppDelegate> delegate_;
  std::unique_ptr<MenuBarExtra> menuBarExtra_;
  MenuBarPreview menuBarPreview_;
};

} // namespace tolvera
