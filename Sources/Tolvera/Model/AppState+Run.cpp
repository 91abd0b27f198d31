#include "Tolvera/Model/AppState.h"

#include "Async/Log.h"
#include "Platform/PlatformError.h"
#include "TolveraCore/CoreAudioTapBackend.h"
#include "TolveraCore/MicBackend.h"
#include "TolveraCore/PCMChunker.h"

#include <boost/asio/post.hpp>

#include <algorithm>

namespace tolvera {

namespace {

using log::Category;

constexpr std::size_t sampleBlocksKept = 400;

bool isMicrophone(const CaptureMode& mode) { return mode.kind == CaptureMode::Kind::microphone; }

QString description(const CaptureMode& mode) {
  switch (mode.kind) {
  case CaptureMode::Kind::systemApp:
    return QStringLiteral("systemApp(%1, %2)").arg(mode.bundleID, mode.name);
  case CaptureMode::Kind::systemEverything:
    return QStringLiteral("systemEverything");
  case CaptureMode::Kind::microphone:
    break;
  }
  return QStringLiteral("microphone");
}

QString outOfTime(const Strings& strings) {
  return strings.pick("时长已用完，购买后继续。", "Out of time. Buy more to continue.");
}

} // namespace

Task<void> AppState::start() {
  if (phase_.isActive()) co_return;
  abandonRun();
  const auto run = ++runNumber_;
  setStopping(false);
  enterStarting();
  if (!checkBalance()) co_return;
  auto token = co_await tokenFor(run);
  if (!token) co_return;
  const bool allowed = co_await mayCapture(run);
  if (!allowed) co_return;
  startDubPlayer();
  auto samples = startCapture();
  if (samples) co_await startSession(run, std::move(*token), std::move(*samples));
}

void AppState::enterStarting() {
  log::trace(Category::session, "start: capture ", description(settings_->captureMode()).toStdString(), ", ",
             settings_->source().toStdString(), " to ", settings_->target().toStdString(), ", dub ",
             settings_->dub());
  setPhase(Phase(Phase::Kind::starting), "start");
  clearLines();
  setOverlayStatus(strings().connecting());
  log(QStringLiteral("start: mode=%1 target=%2 余额=%3")
          .arg(description(settings_->captureMode()), settings_->target())
          .arg(secondsLeft_, 0, 'f', 1));
}

bool AppState::checkBalance() {
  if (secondsLeft_ > 0) return true;
  log(QStringLiteral("start: 余额为 0，中止"));
  fail(outOfTime(strings()), "the balance is used up, or was never read");
  return false;
}

Task<std::optional<std::string>> AppState::tokenFor(std::uint64_t run) {
  std::optional<std::string> token;
  std::string failure;
  try {
    token = co_await currentToken();
  } catch (const std::exception& error) {
    failure = error.what();
  }
  if (run != runNumber_) co_return std::nullopt;
  if (!token) {
    fail(strings().pick("连不上服务器，检查网络。", "Cannot reach the server. Check your connection."),
         "no token: " + failure);
  }
  co_return token;
}

Task<bool> AppState::mayCapture(std::uint64_t run) {
  if (!isMicrophone(settings_->captureMode())) co_return true;
  const bool allowed = co_await ensureMicrophoneAccess();
  if (run != runNumber_) co_return false;
  if (!allowed) {
    const auto words = strings();
    fail(words.forDesktop(
             words.pick("没有麦克风权限。到「系统设置 → 隐私与安全性 → 麦克风」里打开托维拉，然后重新开始。",
                        "No microphone permission. Enable Tolvera under System Settings, Privacy & Security, "
                        "Microphone, then start again."),
             words.pick("不允许使用麦克风。在声音设置里检查麦克风，然后重新开始。",
                        "The microphone may not be used. Check it in the sound settings, then start again.")),
         "the microphone is not allowed");
  }
  co_return allowed;
}

void AppState::startDubPlayer() {
  if (!settings_->dub()) return;
  dubPlayer_ = std::make_shared<DubPlayer>(platform_.playback, platform_.clock);
  try {
    dubPlayer_->start();
  } catch (const std::exception& error) {
    // The run goes on without its sound.
    log::warn(Category::session, "the dub cannot be played: ", std::string_view(error.what()));
  }
}

// The stream of the backend's blocks; nothing if the capture failed.
std::optional<AsyncStream<SharedSampleBlock>> AppState::startCapture() {
  auto [writer, samples] =
      AsyncStream<SharedSampleBlock>::make(AsyncStream<SharedSampleBlock>::newest(sampleBlocksKept));
  continuation_ = writer;
  try {
    backend_ = makeBackend();
    captureStartedAt_ = platform_.clock.now();
    lastCallback_ = lastNonSilent_ = distantPast;
    backend_->start(sampleCallback(writer));
  } catch (const std::exception& error) {
    writer.finish();
    log(QStringLiteral("采集启动失败：") + QString::fromUtf8(error.what()));
    fail(describeCaptureFailure(error), "capture: " + std::string(error.what()));
    return std::nullopt;
  }
  return std::move(samples);
}

Task<void> AppState::startSession(std::uint64_t run, std::string token,
                                  AsyncStream<SharedSampleBlock> samples) {
  TranslateSession::Config config{.target = settings_->target().toStdString(),
                                  .source = settings_->source().toStdString(),
                                  .dub = settings_->dub(),
                                  .showSource = settings_->showSource(),
                                  .voice = settings_->voice().toStdString()};
  auto session = TranslateSession::make(platform_.backgroundExecutor, platform_.clock, serverURL(),
                                        std::move(token), std::move(config), platform_.urlSession);
  session_ = session;
  auto events = co_await session->start();
  if (run != runNumber_) co_return; // a stop came between; it has ended the session

  eventTask_ = spawn(platform_.mainExecutor, "events", deliver(weak_from_this(), std::move(events)));
  pumpTask_ = spawn(platform_.mainExecutor, "pump", pump(session, std::move(samples)));
  startWatchdog();
  log(QStringLiteral("采集与会话已启动"));
  if (settings_->overlayEnabled()) captionWindow().show(*this);
  setPhase(Phase(Phase::Kind::connecting), "capture and session run");
}

// Ends what a failed run left running. A new run must not get its events or its sound.
void AppState::abandonRun() {
  backend_.reset();
  continuation_.reset();
  dubPlayer_.reset();
  pumpTask_.cancel();
  eventTask_.cancel();
  stopIdleTimer();
  if (session_) {
    spawn(platform_.mainExecutor, "goodbye", session_, session_->stop());
    session_.reset();
  }
}

AudioCaptureBackend::OnSamples AppState::sampleCallback(AsyncStream<SharedSampleBlock>::Writer writer) {
  // While the dub speaks, the microphone would hear it and have it translated once more.
  const bool gated = isMicrophone(settings_->captureMode()) && settings_->dub();
  return [writer = std::move(writer), main = platform_.mainExecutor, weak = weak_from_this(), gated,
          player = dubPlayer_](SampleBlock samples) {
    if (gated && player && player->isSpeaking()) return;
    const auto block = std::make_shared<const SampleBlock>(std::move(samples));
    boost::asio::post(main, [weak, block] {
      if (auto model = weak.lock()) model->noteSamples(*block);
    });
    writer.yield(block);
  };
}

Task<void> AppState::pump(std::shared_ptr<TranslateSession> session, AsyncStream<SharedSampleBlock> samples) {
  PCMChunker chunker;
  while (auto block = co_await samples.next()) {
    for (auto& chunk : chunker.push(**block)) co_await session->send(std::move(chunk));
  }
}

std::unique_ptr<AudioCaptureBackend> AppState::makeBackend() {
  const auto tap = [this](CoreAudioTapBackend::Source source) {
    return std::make_unique<CoreAudioTapBackend>(platform_.audioHardware, platform_.audio, platform_.clock,
                                                 std::move(source));
  };
  const auto& mode = settings_->captureMode();
  switch (mode.kind) {
  case CaptureMode::Kind::microphone:
    return std::make_unique<MicBackend>(platform_.audio);
  case CaptureMode::Kind::systemEverything:
    return tap(CoreAudioTapBackend::EverythingExceptSelf{});
  case CaptureMode::Kind::systemApp:
    break;
  }
  const auto apps =
      AudioProcesses::userApps(platform_.audioHardware, platform_.runningApplications, platform_.locale);
  const auto chosen = std::ranges::find(apps, mode.bundleID.toStdString(), &AudioApp::bundleID);
  if (chosen != apps.end() && !chosen->objectIDs.empty()) {
    return tap(CoreAudioTapBackend::Processes{chosen->objectIDs});
  }
  const auto description = strings().pick("一个 App 至少出过一次声才会出现在这里",
                                          "An app appears here only after it has played sound at least once");
  throw platform::PlatformError("Tolvera", 20, description.toStdString());
}

Task<bool> AppState::ensureMicrophoneAccess() {
  switch (platform_.captureDevice.audioAuthorizationStatus()) {
  case platform::AuthorizationStatus::authorized:
    co_return true;
  case platform::AuthorizationStatus::notDetermined:
    co_return co_await platform_.captureDevice.requestAudioAccess();
  case platform::AuthorizationStatus::restricted:
  case platform::AuthorizationStatus::denied:
    break;
  }
  co_return false;
}

QString AppState::describeCaptureFailure(const std::exception& error) const {
  auto description = QString::fromUtf8(error.what());
  const auto* failure = dynamic_cast<const CoreAudioTapBackend::Failure*>(&error);
  if (!failure || failure->status() == 0) return description;
  const auto words = strings();
  const auto permission = words.forDesktop(
      words.pick("没有系统声音录制权限。到「系统设置 → 隐私与安全性 → 屏幕与系统音频录制」里打开托维拉。",
                 "No permission to record system audio. Open System Settings, Privacy & Security, Screen & "
                 "System Audio Recording, and enable Tolvera."),
      words.pick(
          "录不到系统声音，声音服务（PipeWire）拒绝了。重新登录桌面，然后重新开始。",
          "System audio cannot be recorded: the sound server (PipeWire) refuses it. Log in to the desktop "
          "again, then start again."));
  return permission + QStringLiteral("\n\n(") + description + QStringLiteral(")");
}

QString AppState::friendly(const QString& message, const std::string& code) const {
  if (code == "quota_exhausted") return outOfTime(strings());
  if (code == "replaced") {
    return strings().pick("另一台设备开始了翻译，这一路已停止。",
                          "Translation started on another device, so this session stopped.");
  }
  return message;
}

Task<void> AppState::stop() {
  if (phase_.is(Phase::Kind::idle)) co_return;
  log(QStringLiteral("stop() 被调用"));
  log::trace(Category::session, "stop in phase ", phase_.description().toStdString());
  const auto run = ++runNumber_;
  if (backend_) std::exchange(backend_, nullptr)->stop();
  if (continuation_) continuation_->finish();
  continuation_.reset();
  watchdogTask_.cancel();
  pumpTask_.cancel();
  if (const auto session = session_) {
    setStopping(true);
    co_await session->stop();
    if (run != runNumber_) co_return; // a second stop did the rest; a new run may be under way
    session_.reset();
  }
  eventTask_.cancel();
  if (dubPlayer_) dubPlayer_->stop();
  dubPlayer_.reset();
  stopIdleTimer();
  if (auto* panel = captionWindow().panel()) panel->putAway();
  setPhase(Phase(Phase::Kind::idle), "stopped");
  setStopping(false);
  clearLines();
  co_await refreshAccount();
}

} // namespace tolvera
