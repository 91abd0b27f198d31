#include "Tolvera/Model/AppState.h"

#include "Async/Log.h"
#include "Async/Printable.h"
#include "TolveraCore/Languages.h"

#include <boost/asio/post.hpp>

#include <cstdio>

namespace tolvera {

std::shared_ptr<AppState> AppState::make(platform::Platform& platform, Windows windows) {
  const std::shared_ptr<AppState> model(new AppState(platform, std::move(windows)));
  model->postLaunchTasks();
  return model;
}

AppState::AppState(platform::Platform& platform, Windows windows)
    : platform_(platform), windows_(std::move(windows)), settings_(std::make_unique<AppSettings>(platform)),
      verbose_(platform.userDefaults.boolForKey("TolveraVerbose")) {
  connect(settings_.get(), &AppSettings::sourceChanged, this, &AppState::canSwapDirectionChanged);
  connect(settings_.get(), &AppSettings::targetChanged, this, &AppState::canSwapDirectionChanged);
  connect(settings_.get(), &AppSettings::uiLanguageChanged, this, &AppState::updateBalanceText);
  updateBalanceText();
}

AppState::~AppState() {
  // Without a goodbye: a dropped session closes its connection by itself.
  pumpTask_.cancel();
  eventTask_.cancel();
  idleTask_.cancel();
  watchdogTask_.cancel();
}

void AppState::postLaunchTasks() {
  const auto flag = [this](std::string_view key) { return platform_.userDefaults.boolForKey(key); };
  const std::weak_ptr<AppState> weak = weak_from_this();
  const auto later = [this, &weak](auto operation) {
    boost::asio::post(platform_.mainExecutor, [weak, operation] {
      if (auto model = weak.lock()) operation(*model);
    });
  };
  if (!settings_->seenOnboarding() || flag("TolveraForceOnboarding")) {
    later([](AppState& model) { model.onboarding().show(model); });
  }
  if (flag("TolveraPreviewPanel")) later([](AppState& model) { model.previewPanel(); });
  if (flag("TolveraPreviewOverlay")) later([](AppState& model) { model.previewOverlay(); });
  if (flag("TolveraAutoStart")) {
    auto autoStart = [](std::weak_ptr<AppState> from) -> Task<void> {
      if (auto model = from.lock()) {
        co_await model->bootstrap();
        co_await model->start();
      }
    };
    spawn(platform_.mainExecutor, "automatic start", autoStart(weak));
  }
}

bool AppState::canSwapDirection() const {
  return settings_->source() != QStringLiteral("auto") && settings_->source() != settings_->target();
}

void AppState::swapDirection() {
  if (settings_->source() == QStringLiteral("auto")) return;
  const auto target = settings_->target();
  const auto source = settings_->source();
  settings_->setSource(target);
  settings_->setTarget(source);
  if (!Languages::canDub(source.toStdString())) settings_->setDub(false);
}

void AppState::setPhase(Phase phase, std::string_view why) {
  if (phase == phase_) return;
  log::trace(log::Category::session, "phase ", phase_.kindName(), " -> ", phase.kindName(), ": ", why);
  log(QStringLiteral("阶段 ") + phase_.description() + QStringLiteral(" → ") + phase.description());
  assign(phase_, std::move(phase), &AppState::phaseChanged);
}

void AppState::setSecondsLeft(double seconds) {
  assign(secondsLeft_, seconds, &AppState::secondsLeftChanged);
  updateBalanceText();
}

void AppState::clearLines() {
  setSourceLine({});
  setCurrent({}, {});
  setPreviousLine({});
}

void AppState::log(const QString& message) const {
  if (!verbose_) return;
  const auto line = "[tolvera] " + printableOnStandardError(message.toStdString()) + '\n';
  std::fwrite(line.data(), 1, line.size(), stderr);
}

} // namespace tolvera
