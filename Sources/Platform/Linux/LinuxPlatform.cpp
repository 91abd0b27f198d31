#include "Platform/Linux/LinuxPlatform.h"

#include "Async/SystemClock.h"
#include "Platform/Linux/Desktop/ExecutorNotificationCenter.h"
#include "Platform/Linux/Desktop/IcuLocale.h"
#include "Platform/Linux/Desktop/JsonUserDefaults.h"
#include "Platform/Linux/Desktop/PosixFileManager.h"
#include "Platform/Linux/Desktop/SessionBus.h"
#include "Platform/Linux/Desktop/XdgRunningApplications.h"
#include "Platform/Linux/Desktop/XdgWorkspace.h"
#include "Platform/Linux/Network/BeastURLSession.h"
#include "Platform/Linux/Network/FileWatch.h"
#include "Platform/Linux/Network/LocalService.h"
#include "Platform/Linux/Network/WordedURLSession.h"
#include "Platform/Linux/Sound/PipeWireAudioSystem.h"
#include "Platform/Linux/Sound/UnrestrictedCaptureDevice.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>

#include <unistd.h>

#include <cstdlib>
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
  FileWatch serviceWatch{background.get_executor(), LocalService::defaultAddressFile(),
                         [post = notificationCenter.poster()] { post(platform::localServiceDidStart); }};
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

platform::MachineFacts LinuxPlatform::machineFacts() const {
  const auto isSet = [](const char* variable) {
    const char* const value = std::getenv(variable);
    return value != nullptr && *value != '\0';
  };
  platform::MachineFacts facts;
  if (const auto version = adapters_->audio.serverVersion()) facts.soundServer = "PipeWire " + *version;
  facts.microphone = adapters_->audio.inputName();
  if (isSet("WAYLAND_DISPLAY")) {
    facts.desktop = isSet("DISPLAY") ? "Wayland, with an X server inside"
                                     : "Wayland; the panel may be an ordinary window";
  } else if (isSet("DISPLAY")) {
    facts.desktop = "X11";
  }
  facts.hasTrayHost = SessionBus::offers("org.kde.StatusNotifierWatcher");
  facts.hasSettingsPortal = SessionBus::offers("org.freedesktop.portal.Desktop");
  facts.configuration = JsonUserDefaults::defaultFile().parent_path();
  auto existing = facts.configuration;
  while (!std::filesystem::exists(existing) && existing.has_relative_path())
    existing = existing.parent_path();
  facts.configurationIsWritable = ::access(existing.c_str(), W_OK | X_OK) == 0;
  return facts;
}

platform::Platform& LinuxPlatform::platform() { return adapters_->platform; }

} // namespace tolvera::adapters
