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

  AppState::Windows make() {
    struct Caption final : CaptionWindowController, CaptionPanel {
      explicit Caption(RecordedWindows& windows) : record(windows) {}
      void show(AppState&) override { ++record.captionShows; }
      CaptionPanel* panel() override { return record.captionShows > 0 ? this : nullptr; }
      void savePosition() override { ++record.positionsSaved; }
      void orderOut() override { ++record.orderedOut; }
      RecordedWindows& record;
    };
    struct Onboarding final : OnboardingWindowController {
      explicit Onboarding(RecordedWindows& windows) : record(windows) {}
      void show(AppState&) override { ++record.onboardingShows; }
      RecordedWindows& record;
    };
    return {std::make_unique<Caption>(*this), std::make_unique<Onboarding>(*this)};
  }
};

} // namespace tolvera::test
