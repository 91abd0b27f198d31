#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace tolvera::service {

// What an engine makes of an utterance. It tells of each utterance several times while it goes on, and a last
// time, `final`, when it is over.
struct Heard {
  std::string language;    // the code of the language that is spoken
  std::string settled;     // its first words, which stay until the final
  std::string tail;        // the rest, with the space that parts it from `settled`
  std::string translation; // the whole utterance, in the language that the engine translates into
  bool final = false;      // a final without words ends an utterance that was none
};

// A server that does not hear any more, so that the run has to end; the engine itself is well. It says why,
// for people, without a word of what was said.
struct EngineFailure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// One run's ears. One thread at a time calls it. Destroying it makes room for another run. All but `spoil`
// throw std::runtime_error if the engine cannot go on.
class Listener {
 public:
  struct Request {
    std::string spoken;     // the code of the language, or "auto" to have it identified
    bool transcript = true; // whether the words as they were spoken are wanted, even if they are translated
    // Asked once a language is known: whether the engine has to translate it. Called on the listener's
    // thread.
    std::function<bool(const std::string& language)> translates;
    std::function<void(const Heard&)> report; // called on the listener's thread
    std::function<bool()> abandoned;          // true when no result is wanted any more; any thread
  };

  virtual ~Listener() = default;
  // Called once, before any sound. It may take a second.
  virtual void begin(Request request) = 0;
  // Takes the next samples, at 16,000 Hz, all that have come so far: an engine that has fallen behind gets
  // more of them at once. It may take as long as it needs.
  virtual void hear(std::span<const std::int16_t> samples) = 0;
  // Ends the utterance under way, if there is one. Another may follow.
  virtual void finish() = 0;
  // Called after a failure: what it listened with is made anew for later runs.
  virtual void spoil() noexcept = 0;
};

// A way to turn speech into text. Owned by the server; any thread.
class SpeechEngine {
 public:
  static constexpr std::size_t sampleRate = 16000;

  virtual ~SpeechEngine() = default;
  [[nodiscard]] virtual std::string name() const = 0;
  // The codes of the languages that it understands; with more than one of them it can tell which is spoken.
  [[nodiscard]] virtual std::vector<std::string> languages() const = 0;
  // The language that it can translate into by itself; empty if it cannot.
  [[nodiscard]] virtual std::string translatesInto() const { return {}; }
  // The server that gets the sound; empty if it stays in this process.
  [[nodiscard]] virtual std::string sendsTo() const { return {}; }
  // How many runs it serves at once.
  [[nodiscard]] virtual std::size_t runs() const = 0;
  // How many reports in a row have to agree on a word before it settles.
  [[nodiscard]] virtual std::size_t reportsToSettle() const = 0;
  // Ears for one more run, quickly; null if all are taken.
  [[nodiscard]] virtual std::unique_ptr<Listener> listener() = 0;
};

} // namespace tolvera::service
