#pragma once

#include "Platform/URLSession.h"

#include <string>

namespace tolvera::platform {

// The user's desktop. Main thread.
class Workspace {
 public:
  virtual ~Workspace() = default;

  // Opens an http or https address in the default browser, without waiting for it. False for any other
  // scheme, or without a browser.
  virtual bool openURL(const URL& url) = 0;
  // Opens a folder in the desktop's file browser, without waiting for it. False if there is none.
  virtual bool openFolder(const std::string& path) = 0;
  // Opens the system's settings at the microphones, without waiting for them. False without such settings.
  virtual bool openMicrophoneSettings() = 0;
};

} // namespace tolvera::platform
