#include "Tolvera/Model/AppState.h"

#include <boost/asio/this_coro.hpp>

#include <algorithm>
#include <cmath>
#include <utility>

namespace tolvera {

namespace {

using namespace std::chrono_literals;

constexpr auto watchdogPeriod = 2s;
constexpr auto gracePeriod = 12s;
constexpr auto idleTime = 8s;
constexpr float signalThreshold = 0.0001F;

Task<bool> isCancelled() {
  auto state = co_await boost::asio::this_coro::cancellation_state;
  co_return state.cancelled() != boost::asio::cancellation_type::none;
}

} // namespace

void AppState::noteSamples(const SampleBlock& samples) {
  lastCallback_ = platform_.clock.now();
  const auto hasSignal = [](float sample) { return std::fabs(sample) >= signalThreshold; };
  if (std::ranges::any_of(samples, hasSignal)) lastNonSilent_ = lastCallback_;
}

void AppState::startWatchdog() {
  watchdogTask_.cancel();
  watchdogTask_ = spawn(platform_.mainExecutor, "watchdog", watch(weak_from_this(), platform_.clock));
}

Task<void> AppState::watch(std::weak_ptr<AppState> model, Clock& clock) {
  // A cancelled wait is followed by one more check, so a cancellation must not throw.
  co_await boost::asio::this_coro::throw_if_cancelled(false);
  while (!co_await isCancelled()) {
    co_await clock.sleep(watchdogPeriod);
    if (auto state = model.lock()) state->reportSilence();
  }
}

void AppState::reportSilence() {
  const bool listening = phase_.is(Phase::Kind::live) || phase_.is(Phase::Kind::connecting);
  if (!listening || settings_->captureMode().kind == CaptureMode::Kind::microphone) return;
  if (platform_.clock.now() - captureStartedAt_ <= gracePeriod) return;

  if (lastCallback_ <= captureStartedAt_) {
    setOverlayStatus(strings().pick("等待声音…", "Waiting for audio…"));
  } else if (lastNonSilent_ <= captureStartedAt_) {
    setOverlayStatus(strings().pick("收到的全是静音，这个 App 的声音采不到。换成麦克风模式试试。",
                                    "Only digital silence arrived, so this app's audio cannot be captured. "
                                    "Try the microphone instead."));
  }
}

// A caption moves the deadline of the wait under way; only the first one begins a wait.
void AppState::restartIdleTimer() {
  idleDeadline_ = platform_.clock.uptime() + idleTime;
  if (!idleTask_.finished()) return;
  idleTask_ = spawn(platform_.mainExecutor, "idle timer", clearWhenIdle(weak_from_this(), platform_.clock));
}

void AppState::stopIdleTimer() { std::exchange(idleTask_, {}).cancel(); }

Task<void> AppState::clearWhenIdle(std::weak_ptr<AppState> model, Clock& clock) {
  for (Duration wait = idleTime; wait > Duration::zero();) {
    co_await clock.sleep(wait);
    auto state = model.lock();
    if (!state || co_await isCancelled()) co_return;
    wait = state->idleDeadline_ - clock.uptime();
    if (wait > Duration::zero()) continue;
    state->clearLines();
    state->setOverlayStatus(state->listening());
  }
}

} // namespace tolvera
