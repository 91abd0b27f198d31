#pragma once

#include <functional>
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
    std::string text; // the translation, one line; of a failure the reason, without a word of the line
  };
  // True when the result is not wanted any more. Asked about once a second, on the caller's thread.
  using Abandoned = std::function<bool()>;

  virtual ~Translator() = default;
  // The codes of the languages it can translate `source` into, in the order to name them.
  [[nodiscard]] virtual std::vector<std::string> targets(std::string_view source) const = 0;
  [[nodiscard]] virtual bool canTranslate(std::string_view source, std::string_view target) const = 0;
  // The server that gets the text; empty if the text stays in this process and its children.
  [[nodiscard]] virtual std::string sendsTo() const { return {}; }
  // The server that has not told yet what it can do; empty if there is none.
  [[nodiscard]] virtual std::string silentServer() const { return {}; }
  // Starts what the pair needs, so that the first line does not wait for it.
  virtual void warmUp(std::string_view source, std::string_view target, const Abandoned& abandoned) = 0;
  // Translates one line. It blocks, for milliseconds in this machine and for seconds with a server.
  virtual Result translate(std::string_view source, std::string_view target, std::string_view line,
                           const Abandoned& abandoned) = 0;
};

} // namespace tolvera::service
