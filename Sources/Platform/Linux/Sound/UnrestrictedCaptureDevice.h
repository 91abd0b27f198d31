#pragma once

#include "Platform/CaptureDevice.h"

namespace tolvera::adapters {

// The microphone permission of a desktop that does not ask its users: always granted. Main thread.
class UnrestrictedCaptureDevice final : public platform::CaptureDevice {
 public:
  [[nodiscard]] platform::AuthorizationStatus audioAuthorizationStatus() const override {
    return platform::AuthorizationStatus::authorized;
  }
  Task<bool> requestAudioAccess() override { co_return true; }
};

} // namespace tolvera::adapters
