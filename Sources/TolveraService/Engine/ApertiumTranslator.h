#pragma once

#include "TolveraService/Engine/ApertiumPipeline.h"
#include "TolveraService/Engine/Translator.h"

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tolvera::service {

// Translates between the languages whose data is installed, through warm pipelines that all
// streams share. The first line of a language takes seconds: call `warmUp` ahead of it. A word that the
// dictionaries do not know stays as it is, in quotation marks.
class ApertiumTranslator : public Translator {
 public:
  static inline const std::filesystem::path installedModes = "/usr/share/apertium/modes";

  // Looks for the modes and starts nothing.
  explicit ApertiumTranslator(const std::filesystem::path& modes = installedModes);

  [[nodiscard]] std::vector<std::string> targets(std::string_view source) const override;
  [[nodiscard]] bool canTranslate(std::string_view source, std::string_view target) const override;
  void warmUp(std::string_view source, std::string_view target, const Abandoned& abandoned) override;
  Result translate(std::string_view source, std::string_view target, std::string_view line,
                   const Abandoned& abandoned) override;

 private:
  struct Pair {
    std::string source;
    std::string target;
    std::shared_ptr<ApertiumPipeline> pipeline;
  };
  // The pipelines that lead to a target, in order: one, or two by way of a third language; none if none lead.
  using Route = std::vector<std::shared_ptr<ApertiumPipeline>>;
  [[nodiscard]] Route route(std::string_view source, std::string_view target) const;

  std::vector<Pair> pairs_;
};

} // namespace tolvera::service
