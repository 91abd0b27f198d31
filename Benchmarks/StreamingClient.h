#pragma once

#include "Async/SystemClock.h"
#include "Fakes/InMemoryPlatform.h"
#include "Harness/LoopbackServer.h"
#include "Platform/Linux/Network/BeastURLSession.h"
#include "Tolvera/Model/AppState.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>

#include <memory>
#include <string>
#include <thread>

namespace tolvera::benchmarks {

// The program's model over the real network and the real clock, with sound that the benchmark feeds. It has a
// main thread and a background thread of its own.
class StreamingClient {
 public:
  explicit StreamingClient(const std::string& serverURL);
  // Says goodbye, which takes 5 s.
  ~StreamingClient();

  // Waits until the run is live; false after 10 s.
  bool start();
  // One block of 16 kHz sound, as the audio system would deliver it: on the calling thread.
  void deliver(std::span<const float> samples) { audio_.deliver(samples); }

 private:
  using Guard = boost::asio::executor_work_guard<boost::asio::io_context::executor_type>;

  void runOnMain(Task<void> task);

  boost::asio::io_context main_;
  boost::asio::io_context background_;
  Guard keepMain_{main_.get_executor()};
  Guard keepBackground_{background_.get_executor()};
  SystemClock clock_{background_.get_executor()};
  adapters::BeastURLSession network_{background_.get_executor()};
  test::InMemoryAudio audio_;
  test::InMemoryAudioHardware audioHardware_;
  test::InMemoryPlayback playback_;
  test::ScriptedCaptureDevice captureDevice_;
  test::InMemoryUserDefaults userDefaults_;
  test::InMemoryFileManager fileManager_;
  adapters::IcuLocale locale_{"en_US"};
  test::RecordingWorkspace workspace_;
  test::InMemoryRunningApplications runningApplications_;
  adapters::ExecutorNotificationCenter notificationCenter_{main_.get_executor()};
  platform::InterfaceLanguage interfaceLanguage_;
  platform::Platform platform_{main_.get_executor(),
                               background_.get_executor(),
                               clock_,
                               network_,
                               audio_,
                               audioHardware_,
                               playback_,
                               captureDevice_,
                               userDefaults_,
                               fileManager_,
                               locale_,
                               workspace_,
                               runningApplications_,
                               notificationCenter_,
                               interfaceLanguage_,
                               platform::DesktopFamily::freedesktop};
  std::shared_ptr<AppState> model_;
  std::thread mainThread_;
  std::thread backgroundThread_;
};

// Makes a server greet its runs and answer for the account, as the translation service does.
void serveAccount(test::LoopbackServer& server);

} // namespace tolvera::benchmarks
