#pragma once

#include "Fakes/FixedLocale.h"
#include "Fakes/InMemoryAudio.h"
#include "Fakes/InMemoryAudioHardware.h"
#include "Fakes/InMemoryFileManager.h"
#include "Fakes/InMemoryNotificationCenter.h"
#include "Fakes/InMemoryPlayback.h"
#include "Fakes/InMemoryRunningApplications.h"
#include "Fakes/InMemoryUserDefaults.h"
#include "Fakes/RecordingWorkspace.h"
#include "Fakes/ScriptedCaptureDevice.h"
#include "Fakes/ScriptedURLSession.h"
#include "Harness/TestLoop.h"
#include "Platform/Platform.h"

namespace tolvera::test {

// The whole in-memory platform, on one loop that the test steps: the main thread, the background and time.
// Its parts are open to the test. One thread.
struct InMemoryPlatform {
  TestLoop loop;
  ScriptedURLSession network;
  InMemoryAudio audio;
  InMemoryAudioHardware audioHardware;
  InMemoryPlayback playback;
  ScriptedCaptureDevice captureDevice;
  InMemoryUserDefaults userDefaults;
  InMemoryFileManager fileManager;
  FixedLocale locale;
  RecordingWorkspace workspace;
  InMemoryRunningApplications runningApplications;
  InMemoryNotificationCenter notificationCenter;
  platform::Platform platform{
      loop.executor(), loop.executor(), loop.clock(),        network,           audio,
      audioHardware,   playback,        captureDevice,       userDefaults,      fileManager,
      locale,          workspace,       runningApplications, notificationCenter};
};

} // namespace tolvera::test
