#pragma once

#include "Tolvera/Model/AppState.h"

#include <memory>

namespace tolvera::test {

// What a model asked of its windows. Outlives the model.
struct RecordedWindows {
  int captionShows = 0;
  int onboardingShows = 0;
  int positionsSaved = 0;
  int orderedOut = 0;

  // Windows that are only recorded here.
  AppState::Windows make();
};

class RecordingCaptionWindow final : public CaptionWindowController, public CaptionPanel {
 public:
  explicit RecordingCaptionWindow(RecordedWindows& record) : record_(record) {}
  void show(AppState&) override { ++record_.captionShows; }
  CaptionPanel* panel() override { return record_.captionShows > 0 ? this : nullptr; }
  void savePosition() override { ++record_.positionsSaved; }
  void orderOut() override { ++record_.orderedOut; }

 private:
  RecordedWindows& record_;
};

class RecordingOnboarding final : public OnboardingWindowController {
 public:
  explicit RecordingOnboarding(RecordedWindows& record) : record_(record) {}
  void show(AppState&) override { ++record_.onboardingShows; }

 private:
  RecordedWindows& record_;
};

inline AppState::Windows RecordedWindows::make() {
  return {std::make_unique<RecordingCaptionWindow>(*this), std::make_unique<RecordingOnboarding>(*this)};
}

} // namespace tolvera::test
