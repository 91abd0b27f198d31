#include "TolveraService/Engine/WhisperEngine.h"

#include "TolveraService/Engine/WhisperLanguages.h"
#include "TolveraService/Engine/WhisperListener.h"

#include "Async/Log.h"

#include <malloc.h>

#include <algorithm>
#include <utility>

namespace tolvera::service {

namespace {

constexpr int threadsAtMost = 4;      // beyond them one decode hardly gains
constexpr const char* english = "en"; // its only target, in all models for several languages

int processors() { return std::max(static_cast<int>(std::thread::hardware_concurrency()), 1); }

} // namespace

bool WhisperEngine::processorServes() {
#ifdef __x86_64__
  return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") && __builtin_cpu_supports("bmi2");
#else
  return true;
#endif
}

WhisperEngine::WhisperEngine(Settings settings)
    : settings_(std::move(settings)), languages_(whisperLanguages(settings_.weights)),
      threads_(std::min(processors(), threadsAtMost)),
      turns_(static_cast<std::size_t>(processors() / threads_)),
      freeing_([this](const std::stop_token& stop) { freeWhenUnused(stop); }) {}

std::string WhisperEngine::translatesInto() const { return languages_.size() > 1 ? english : ""; }

std::unique_ptr<Listener> WhisperEngine::listener() {
  {
    std::scoped_lock lock(mutex_);
    if (inUse_ == settings_.runs) return nullptr;
    ++inUse_;
  }
  return std::make_unique<WhisperListener>(*this);
}

void WhisperEngine::release() {
  {
    std::scoped_lock lock(mutex_);
    --inUse_;
    unusedSince_ = std::chrono::steady_clock::now();
  }
  ::malloc_trim(0); // a run's memory goes back to the system at once
  released_.notify_all();
}

void WhisperEngine::forgetModel() {
  std::scoped_lock lock(mutex_);
  model_.reset();
}

std::shared_ptr<const WhisperModel> WhisperEngine::model() {
  std::scoped_lock lock(mutex_);
  if (!model_) {
    const auto start = std::chrono::steady_clock::now();
    model_ = std::make_shared<const WhisperModel>(settings_.weights);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    log::trace(log::Category::service, name(), " loaded in ", took.count(), " s");
  }
  return model_;
}

void WhisperEngine::freeWhenUnused(const std::stop_token& stop) {
  std::unique_lock lock(mutex_);
  while (!stop.stop_requested()) {
    const auto loadedAndUnused = [this] { return model_ && inUse_ == 0; };
    if (!released_.wait(lock, stop, loadedAndUnused)) return;
    const auto due = unusedSince_ + settings_.keep;
    released_.wait_until(lock, stop, due, [this] { return inUse_ > 0; });
    if (stop.stop_requested() || inUse_ > 0 || std::chrono::steady_clock::now() < due) continue;
    model_.reset();
    ::malloc_trim(0);
    log::trace(log::Category::service, name(), " freed");
  }
}

} // namespace tolvera::service
