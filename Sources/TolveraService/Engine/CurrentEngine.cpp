#include "TolveraService/Engine/CurrentEngine.h"

#include "Async/Log.h"

#include <exception>
#include <utility>

namespace tolvera::service {

CurrentEngine::CurrentEngine(EngineChoice choice)
    : choice_(std::move(choice)), engine_(makeSpeechEngine(choice_)), missing_(missingModel(choice_)) {}

std::shared_ptr<SpeechEngine> CurrentEngine::get() const {
  std::scoped_lock lock(mutex_);
  return engine_;
}

std::shared_ptr<SpeechEngine> CurrentEngine::forNextRun() {
  std::scoped_lock lock(mutex_);
  if (!missing_) return engine_;
  try {
    auto missing = missingModel(choice_);
    if (!missing) engine_ = makeSpeechEngine(choice_);
    missing_ = std::move(missing);
  } catch (const std::exception& error) {
    log::warn(log::Category::service, "the engine stays as it is: ", error.what());
  }
  return engine_;
}

std::optional<Model> CurrentEngine::missing() const {
  std::scoped_lock lock(mutex_);
  return missing_;
}

} // namespace tolvera::service
