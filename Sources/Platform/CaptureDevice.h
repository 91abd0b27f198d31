#pragma once

#include "Async/Task.h"

namespace tolvera::platform {

enum class AuthorizationStatus { notDetermined = 0, restricted = 1, denied = 2, authorized = 3 };

// The user's permission to use the microphone. Main thread.
class CaptureDevice {
 public:
  virtual ~CaptureDevice() = default;

  [[nodiscard]] virtual AuthorizationStatus audioAuthorizationStatus() const = 0;
  // Has the system ask the user; true if they agreed.
  virtual Task<bool> requestAudioAccess() = 0;
};

} // namespace tolvera::platform
