#include "Platform/Linux/LinuxPlatform.h"

#include "Async/SystemClock.h"
#include "Platform/Linux/Desktop/ExecutorNotificationCenter.h"
#include "Platform/Linux/Desktop/IcuLocale.h"
#include "Platform/Linux/Desktop/JsonUserDefaults.h"
#include "Platform/Linux/Desktop/PosixFileManager.h"
#include "Platform/Linux/Desktop/XdgRunningApplications.h"
#include "Platform/Linux/Desktop/XdgWorkspace.h"
#include "Platform/Linux/Network/BeastURLSession.h"
#include "Platform/Linux/Network/LocalService.h"
#include "Platform/Linux/Network/WordedURLSession.h"
#include "Platform/Linux/Sound/PipeWireAudioSystem.h"
#include "Platform/Linux/Sound/UnrestrictedCaptureDevice.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>

#include <thread>

namespace tolvera::adapters {

// In the order of their needs: a member uses those before it.
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
                                           notificationCenter,
                                           interfaceLanguage,
                                           platform::DesktopFamily::freedesktop} {}
  ~Adapters() { stop(); }

  void stop() {
    background.stop();
    if (thread.joinable()) thread.join();
  }

  platform::InterfaceLanguage interfaceLanguage;
  boost::asio::io_context background{1};
  SystemClock clock{background.get_executor()};
  LocalService localService{background.get_executor()};
  BeastURLSession connections{background.get_executor()};
  LocalServiceURLSession reachedConnections{connections, localService};
  WordedURLSession urlSession{reachedConnections, interfaceLanguage};
  XdgRunningApplications runningApplications;
  ExecutorNotificationCenter notificationCenter;
  PipeWireAudioSystem audio{
      [this](std::int32_t pid) { return runningApplications.bundleIdentifier(pid); },
      [post = notificationCenter.poster()] { post(platform::defaultOutputDeviceDidChange); },
      SoundFailures{&interfaceLanguage, XdgWorkspace::hasMicrophoneSettings}};
  UnrestrictedCaptureDevice captureDevice;
  JsonUserDefaults userDefaults;
  PosixFileManager fileManager;
  IcuLocale locale;
  XdgWorkspace workspace{[this](const platform::URL& url) {
    if (localService.isMeant(url)) localService.startSoon();
    return localService.located(url);
  }};
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
