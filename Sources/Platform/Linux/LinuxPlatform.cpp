#include "Platform/Linux/LinuxPlatform.h"

#include "Async/SystemClock.h"
#include "Platform/Linux/BeastURLSession.h"
#include "Platform/Linux/ExecutorNotificationCenter.h"
#include "Platform/Linux/IcuLocale.h"
#include "Platform/Linux/JsonUserDefaults.h"
#include "Platform/Linux/PipeWireAudioSystem.h"
#include "Platform/Linux/PosixFileManager.h"
#include "Platform/Linux/UnrestrictedCaptureDevice.h"
#include "Platform/Linux/XdgRunningApplications.h"
#include "Platform/Linux/XdgWorkspace.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>

#include <thread>

namespace tolvera::adapters {

// In the order in which they are needed: what is destroyed last comes first.
struct LinuxPlatform::Adapters {
  explicit Adapters(const Executor& main)
      : notificationCenter(main), platform{main,
                                           background.get_executor(),
                                           clock,
                                           urlSession,
                                           audio,
                                           audio.audioHardware(),
                                           audio.playback(),
                                           captureDevice,
                                           userDefaults,
                                           fileManager,
                                           locale,
                                           workspace,
                                           runningApplications,
                                           notificationCenter} {}
  ~Adapters() { stop(); }

  void stop() {
    background.stop();
    if (thread.joinable()) thread.join();
  }

  boost::asio::io_context background{1};
  SystemClock clock{background.get_executor()};
  BeastURLSession urlSession{background.get_executor()};
  XdgRunningApplications runningApplications;
  ExecutorNotificationCenter notificationCenter;
  PipeWireAudioSystem audio{
      [this](std::int32_t pid) { return runningApplications.bundleIdentifier(pid); },
      [post = notificationCenter.poster()] { post(platform::defaultOutputDeviceDidChange); }};
  UnrestrictedCaptureDevice captureDevice;
  JsonUserDefaults userDefaults;
  PosixFileManager fileManager;
  IcuLocale locale;
  XdgWorkspace workspace;
  platform::Platform platform;
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> keepRunning{
      background.get_executor()};
  std::thread thread{[this] { background.run(); }};
};

LinuxPlatform::LinuxPlatform(const Executor& main) : adapters_(std::make_unique<Adapters>(main)) {}
LinuxPlatform::~LinuxPlatform() = default;

void LinuxPlatform::stop() { adapters_->stop(); }

platform::Platform& LinuxPlatform::platform() { return adapters_->platform; }

} // namespace tolvera::adapters
