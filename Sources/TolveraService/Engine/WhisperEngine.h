#pragma once

#include "TolveraService/Engine/SpeechEngine.h"
#include "TolveraService/Engine/Turns.h"
#include "TolveraService/Engine/UtteranceListener.h"
#include "TolveraService/Engine/WhisperModel.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tolvera::service {

// Human speech in many languages by Whisper, in this process. All runs share the weights, which are loaded by
// the first run and freed some minutes after the last. Outlives its listeners.
class WhisperEngine : public SpeechEngine {
 public:
  struct Settings {
    std::string model; // its name, for people
    std::filesystem::path weights;
    std::filesystem::path gate;
    std::size_t runs = 2;
    std::chrono::milliseconds keep = std::chrono::minutes(5); // the weights after the last run
  };

  // True if this machine's processor has what the library was built for.
  static bool processorServes();

  // Both files are known to be as published.
  explicit WhisperEngine(Settings settings);
  ~WhisperEngine() override = default;

  [[nodiscard]] std::string name() const override { return "Whisper " + settings_.model; }
  [[nodiscard]] std::vector<std::string> languages() const override { return languages_; }
  [[nodiscard]] std::string translatesInto() const override;
  [[nodiscard]] std::size_t runs() const override { return settings_.runs; }
  [[nodiscard]] std::size_t reportsToSettle() const override { return UtteranceListener::decodesToSettle; }
  [[nodiscard]] std::unique_ptr<Listener> listener() override;

  // For listeners.
  [[nodiscard]] std::shared_ptr<const WhisperModel> model();
  [[nodiscard]] const Settings& settings() const { return settings_; }
  [[nodiscard]] int threads() const { return threads_; }
  [[nodiscard]] Turns& turns() { return turns_; }
  void release();
  void forgetModel(); // the next run loads it again

 private:
  void freeWhenUnused(const std::stop_token& stop);

  const Settings settings_;
  const std::vector<std::string> languages_;
  const int threads_; // of one decode
  Turns turns_;

  std::mutex mutex_; // guards the following
  std::condition_variable_any released_;
  std::size_t inUse_ = 0;
  std::chrono::steady_clock::time_point unusedSince_;
  std::shared_ptr<const WhisperModel> model_;

  std::jthread freeing_; // last: it ends before what it uses
};

} // namespace tolvera::service
