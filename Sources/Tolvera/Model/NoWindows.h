#pragma once

#include "Tolvera/Model/AppState.h"

#include <memory>

namespace tolvera {

// The windows of a program without windows.
class NoCaptionWindow final : public CaptionWindowController {
 public:
  void show(AppState&) override {}
  CaptionPanel* panel() override { return nullptr; }
};

class NoOnboarding final : public OnboardingWindowController {
 public:
  void show(AppState&) override {}
};

inline AppState::Windows noWindows() {
  return {std::make_unique<NoCaptionWindow>(), std::make_unique<NoOnboarding>()};
}

} // namespace tolvera
