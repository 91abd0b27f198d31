#pragma once

#include "Platform/Platform.h"
#include "Support/FixedLocale.h"
#include "Support/InMemoryAudio.h"
#include "Support/InMemoryAudioHardware.h"
#include "Support/InMemoryFileManager.h"
#include "Support/InMemoryNotificationCenter.h"
#include "Support/InMemoryPlayback.h"
#include "Support/InMemoryRunningApplications.h"
#include "Support/InMemoryUserDefaults.h"
#include "Support/RecordingWorkspace.h"
#include "Support/ScriptedCaptureDevice.h"
#include "Support/ScriptedURLSession.h"
#include "Support/TestLoop.h"

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
