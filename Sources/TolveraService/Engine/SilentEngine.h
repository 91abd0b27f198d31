#pragma once

#include "TolveraService/Engine/SpeechEngine.h"

#include <memory>
#include <string>
#include <vector>

namespace tolvera::service {

// Stands in where no engine is installed yet: it understands no language, so that no run is admitted.
class SilentEngine : public SpeechEngine {
 public:
  [[nodiscard]] std::string name() const override { return "nothing"; }
  [[nodiscard]] std::vector<std::string> languages() const override { return {}; }
  [[nodiscard]] std::size_t runs() const override { return 0; }
  [[nodiscard]] std::size_t reportsToSettle() const override { return 1; }
  [[nodiscard]] std::unique_ptr<Listener> listener() override { return nullptr; }
};

} // namespace tolvera::service
