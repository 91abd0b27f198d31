#pragma once

#include "TolveraService/Engine/SettledText.h"
#include "TolveraService/Engine/SpeechEngine.h"
#include "TolveraService/Engine/WhisperModel.h"

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tolvera::service {

// What listeners have in common whose model understands whole utterances: what is said is decoded anew again
// and again while it grows. The gate tells where utterances are: nothing is decoded without speech. Words
// that two decodes in a row agree on are settled.
class UtteranceListener : public Listener {
 public:
  static constexpr std::size_t decodesToSettle = 2;

  void hear(std::span<const std::int16_t> samples) override;
  void finish() override;

 protected:
  struct Decoded {
    std::string words;
    std::string translation;
  };
  // What there is of an utterance so far.
  struct Stretch {
    std::span<const float> sound;
    std::size_t spoken = 0; // samples that are speech
    bool final = false;     // worth a second try
  };

  // So much speech tells its language for sure, or well enough.
  static constexpr std::size_t speechToIdentify = 3 * SpeechEngine::sampleRate;
  static constexpr std::size_t speechToBeSure = SpeechEngine::sampleRate;

  // How often an utterance is decoded while it grows.
  struct Pace {
    std::chrono::duration<double> spacing; // of new sound between two decodes, at least
    double share;                          // of the time that these decodes may take, from 0 to 1
  };

  // Takes what `begin` was given. Throws what SpeechGate throws.
  void start(Request request, const std::filesystem::path& gate, const std::vector<std::string>& languages,
             Pace pace);
  // Absent if there is nothing that one could show. May throw EngineFailure.
  virtual std::optional<Decoded> decode(const Stretch& stretch) = 0;
  // True if a decode could begin at once. The ends of utterances wait where it could not, all else is left
  // out.
  [[nodiscard]] virtual bool isDecoderFree() { return true; }

  [[nodiscard]] bool isAutomatic() const { return request_.spoken == "auto"; }
  [[nodiscard]] bool isCandidate(const std::string& language) const;
  // How long the run took to decode, for the trace.
  void traceSpeed() const;

  Request request_;
  std::vector<std::string> candidates_; // what may be spoken, by Whisper's codes
  std::string language_;                // that of the utterance, or a first guess; Whisper's code
  bool identified_ = false;
  bool doubtful_ = false; // the language has to be looked at again

 private:
  struct Utterance {
    std::vector<float> sound;
    std::vector<float> speech;           // probability of each hop, the last ones
    std::size_t spoken = 0;              // samples that are speech
    std::size_t silent = 0;              // samples since the last speech
    std::size_t decodedUpTo = 0;         // samples
    std::optional<Decoded> sinceSilence; // of all its speech; absent when more speech has come since
    SettledText line{decodesToSettle};
  };

  void take(std::span<const float, SpeechGate::hop> samples);
  void end();
  void cut();
  void decodeIfDue(bool behind);
  std::optional<Decoded> decodeAll(bool final);
  void show(const Decoded& decoded, bool final);

  std::optional<SpeechGate> gate_;
  std::vector<float> unseen_; // less than a hop
  std::vector<float> before_; // the last sound without speech
  std::optional<Utterance> utterance_;
  std::size_t pause_ = 0; // samples since the last utterance
  std::size_t heard_ = 0; // samples in all
  Pace pace_{};
  std::size_t spacing_ = 0; // samples between decodes
  std::chrono::duration<double> busy_{};
};

} // namespace tolvera::service
