#pragma once

#include "Async/Clock.h"
#include "Async/Task.h"
#include "Platform/Audio.h"
#include "Platform/AudioHardware.h"
#include "Platform/AudioPlayback.h"
#include "Platform/CaptureDevice.h"
#include "Platform/DesktopFamily.h"
#include "Platform/FileManager.h"
#include "Platform/InterfaceLanguage.h"
#include "Platform/Locale.h"
#include "Platform/NotificationCenter.h"
#include "Platform/RunningApplications.h"
#include "Platform/URLSession.h"
#include "Platform/UserDefaults.h"
#include "Platform/Workspace.h"

namespace tolvera::platform {

// All that the program asks of its system. `main` builds it once and hands it down by reference; it outlives
// everything that holds the reference.
struct Platform {
  Executor mainExecutor;       // the main thread
  Executor backgroundExecutor; // an io_context's threads; actors make their strands on it
  Clock& clock;
  URLSession& urlSession;
  AudioSystem& audio;
  AudioHardware& audioHardware;
  AudioPlayback& playback;
  CaptureDevice& captureDevice;
  UserDefaults& userDefaults;
  FileManager& fileManager;
  Locale& locale;
  Workspace& workspace;
  RunningApplications& runningApplications;
  NotificationCenter& notificationCenter;
  InterfaceLanguage& interfaceLanguage;
  DesktopFamily desktopFamily;
};

} // namespace tolvera::platform
