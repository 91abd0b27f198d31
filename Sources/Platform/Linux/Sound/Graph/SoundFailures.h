#pragma once

#include "Platform/InterfaceLanguage.h"
#include "Platform/PlatformError.h"

#include <functional>

namespace tolvera::adapters {

// What people are told when there is no sound to capture, and what they can do about it. Any thread.
struct SoundFailures {
  const platform::InterfaceLanguage* language = nullptr; // English if null
  // True if the desktop has settings for microphones. A message with the word "microphone" offers them.
  std::function<bool()> hasMicrophoneSettings = [] { return false; };

  [[nodiscard]] platform::PlatformError noServer() const;
  [[nodiscard]] platform::PlatformError serverGone() const;
  [[nodiscard]] platform::PlatformError noInput() const;

 private:
  [[nodiscard]] platform::PlatformError error(int code, const char* chinese, const char* english) const;
};

} // namespace tolvera::adapters
