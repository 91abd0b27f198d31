#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tolvera::service {

// A way to turn a line of text into another language. Owned by the server; any thread.
class Translator {
 public:
  struct Result {
    enum class Kind {
      translated,
      nothingKnown, // it knows no word of the line: there is no translation to show
      failed,       // it does not work at the moment
    };
    Kind kind = Kind::failed;
    std::string text; // punctuated as the line was
  };

  virtual ~Translator() = default;
  // The codes of the languages it can translate `source` into, in the order to name them.
  [[nodiscard]] virtual std::vector<std::string> targets(std::string_view source) const = 0;
  [[nodiscard]] virtual bool canTranslate(std::string_view source, std::string_view target) const = 0;
  // Starts what the pair needs, so that the first line does not wait for it.
  virtual void warmUp(std::string_view source, std::string_view target) = 0;
  // Translates one line. It blocks for some milliseconds.
  virtual Result translate(std::string_view source, std::string_view target, std::string_view line) = 0;
};

} // namespace tolvera::service
