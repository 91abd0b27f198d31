#pragma once

namespace tolvera {

class AppState;

// The floating caption panel, once it exists. Main thread.
class CaptionPanel {
 public:
  virtual ~CaptionPanel() = default;

  // Stores the panel's place for the next show.
  virtual void savePosition() = 0;
  // Takes the panel off the screen; it can be shown again.
  virtual void orderOut() = 0;
  void putAway() {
    savePosition();
    orderOut();
  }
};

// Makes the caption panel once and shows it. Owned by AppState, which calls it on the main thread.
class CaptionWindowController {
 public:
  virtual ~CaptionWindowController() = default;

  virtual void show(AppState& state) = 0;
  // Null until the first `show`.
  virtual CaptionPanel* panel() = 0;
};

// Makes and shows the window that greets a new user. Owned by AppState, main thread.
class OnboardingWindowController {
 public:
  virtual ~OnboardingWindowController() = default;

  virtual void show(AppState& state) = 0;
};

} // namespace tolvera
