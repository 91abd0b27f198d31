#pragma once

#include "TolveraService/Engine/SpeechEngines.h"

#include <memory>
#include <mutex>
#include <optional>

namespace tolvera::service {

// The engine that hears. A model that it lacks may be installed while the service runs: the next run then has
// an engine that uses the model, and runs under way keep theirs. Any thread.
class CurrentEngine {
 public:
  // Throws what makeSpeechEngine throws.
  explicit CurrentEngine(EngineChoice choice);

  [[nodiscard]] std::shared_ptr<SpeechEngine> get() const;
  // The engine of a run that begins. It may have to make one, and to wait for the disk. Where the new one
  // cannot be had the old one goes on.
  [[nodiscard]] std::shared_ptr<SpeechEngine> forNextRun();
  // The model to install so that the engine is a better one; absent if none is missing.
  [[nodiscard]] std::optional<Model> missing() const;

 private:
  const EngineChoice choice_;
  mutable std::mutex mutex_; // guards the following
  std::shared_ptr<SpeechEngine> engine_;
  std::optional<Model> missing_;
};

} // namespace tolvera::service
