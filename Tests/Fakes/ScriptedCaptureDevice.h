#pragma once

#include "Platform/CaptureDevice.h"

namespace tolvera::test {

// The microphone permission and the user's answer to the question, as the test sets them. Main thread.
class ScriptedCaptureDevice final : public platform::CaptureDevice {
 public:
  platform::AuthorizationStatus status = platform::AuthorizationStatus::authorized;
  bool userAgrees = true;
  int requests = 0; // how often the user was asked

  [[nodiscard]] platform::AuthorizationStatus audioAuthorizationStatus() const override { return status; }
  Task<bool> requestAudioAccess() override {
    ++requests;
    status = userAgrees ? platform::AuthorizationStatus::authorized : platform::AuthorizationStatus::denied;
    co_return userAgrees;
  }
};

} // namespace tolvera::test
