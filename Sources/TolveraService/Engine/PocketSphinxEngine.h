#pragma once

#include "TolveraService/Engine/RecognizerPool.h"
#include "TolveraService/Engine/SpeechEngine.h"

#include <filesystem>

namespace tolvera::service {

// English by PocketSphinx, what serves where no better model could be had: it understands clear, simple
// sentences and gets more than a third of people's words wrong. Its decoders are made at the start and kept.
class PocketSphinxEngine : public SpeechEngine {
 public:
  // Throws what Recognizer throws.
  explicit PocketSphinxEngine(std::size_t runs,
                              const std::filesystem::path& model = Recognizer::installedModel())
      : pool_(runs, model) {}

  [[nodiscard]] std::string name() const override { return "PocketSphinx"; }
  [[nodiscard]] std::vector<std::string> languages() const override;
  [[nodiscard]] std::size_t runs() const override { return pool_.size(); }
  [[nodiscard]] std::size_t reportsToSettle() const override { return looksToSettle; }
  [[nodiscard]] std::unique_ptr<Listener> listener() override;

  static constexpr std::size_t looksToSettle = 5;

 private:
  RecognizerPool pool_;
};

} // namespace tolvera::service
