#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace tolvera::platform {

// Posted when the default output device has changed.
inline constexpr std::string_view defaultOutputDeviceDidChange =
    "com.apple.audio.AudioHardwareDefaultOutputDeviceDidChange";

// Posted when the local translation service has begun to listen.
inline constexpr std::string_view localServiceDidStart = "org.tolvera.LocalServiceDidStart";

// Calls observers when something happens in the system. Main thread; blocks are called there too.
class NotificationCenter {
 public:
  // Destroying it ends the observation.
  class Registration {
   public:
    virtual ~Registration() = default;
  };

  virtual ~NotificationCenter() = default;

  virtual std::unique_ptr<Registration> addObserver(std::string_view name, std::function<void()> block) = 0;
};

} // namespace tolvera::platform
