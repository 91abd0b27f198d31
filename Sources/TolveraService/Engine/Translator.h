#pragma once

#include "TolveraService/Engine/ApertiumPipeline.h"

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tolvera::service {

// Translates English lines into the languages whose data is installed, through warm pipelines that all
// streams share. Owned by the server. Any thread may call `translate`; it blocks for a few
// milliseconds, or for seconds when a language is used for the first time: call `warmUp` ahead of it.
class Translator {
 public:
  static inline const std::filesystem::path installedModes = "/usr/share/apertium/modes";

  // Looks for the modes and starts nothing.
  explicit Translator(const std::filesystem::path& modes = installedModes);

  // Codes of the languages it can translate into, in the order to name them.
  [[nodiscard]] std::vector<std::string> targets() const;
  [[nodiscard]] bool canTranslate(std::string_view target) const;

  // Starts what `target` needs.
  void warmUp(std::string_view target);

  struct Result {
    enum class Kind {
      translated,
      nothingKnown, // no word of the line is in the dictionaries: there is no translation to show
      failed,       // the engine did not answer, twice
    };
    Kind kind = Kind::failed;
    std::string text; // without a full stop
  };

  // Translates a line, cased as English is printed and without a full stop. A word that the dictionaries
  // do not know stays as it is, in quotation marks.
  Result translate(std::string_view target, std::string_view line);

 private:
  // The pipelines that lead to a target, in order: one, or two by way of Spanish.
  using Route = std::vector<std::shared_ptr<ApertiumPipeline>>;
  std::vector<std::pair<std::string, Route>> routes_;

  [[nodiscard]] const Route* route(std::string_view target) const;
};

} // namespace tolvera::service
