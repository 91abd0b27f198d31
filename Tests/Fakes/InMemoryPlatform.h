#pragma once

#include "Fakes/InMemoryAudio.h"
#include "Fakes/InMemoryAudioHardware.h"
#include "Fakes/InMemoryDesktop.h"
#include "Fakes/InMemoryPlayback.h"
#include "Fakes/ScriptedURLSession.h"
#include "Harness/TestLoop.h"
#include "Platform/Linux/Desktop/ExecutorNotificationCenter.h"
#include "Platform/Linux/Desktop/IcuLocale.h"
#include "Platform/Platform.h"

namespace tolvera::test {

// The whole platform without a machine behind it, on one loop that the test steps: the main thread, the
// background and time. The locale and the notification centre are the real ones. One thread.
struct InMemoryPlatform {
  TestLoop loop;
  ScriptedURLSession network;
  InMemoryAudio audio;
  InMemoryAudioHardware audioHardware;
  InMemoryPlayback playback;
  ScriptedCaptureDevice captureDevice;
  InMemoryUserDefaults userDefaults;
  InMemoryFileManager fileManager;
  adapters::IcuLocale locale{"en_US"};
  RecordingWorkspace workspace;
  InMemoryRunningApplications runningApplications;
  adapters::ExecutorNotificationCenter notificationCenter{loop.executor()};
  platform::InterfaceLanguage interfaceLanguage;
  platform::Platform platform{loop.executor(),
                              loop.executor(),
                              loop.clock(),
                              network,
                              audio,
                              audioHardware,
                              playback,
                              captureDevice,
                              userDefaults,
                              fileManager,
                              locale,
                              workspace,
                              runningApplications,
                              notificationCenter,
                              interfaceLanguage,
                              platform::DesktopFamily::freedesktop};
};

} // namespace tolvera::test
