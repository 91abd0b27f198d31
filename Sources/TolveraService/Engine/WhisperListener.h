#pragma once

#include "TolveraService/Engine/SettledText.h"
#include "TolveraService/Engine/SpeechEngine.h"
#include "TolveraService/Engine/WhisperEngine.h"
#include "TolveraService/Engine/WhisperModel.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace tolvera::service {

// One run heard by Whisper. The model understands whole utterances, so what is said is decoded anew again and
// again while it grows. The gate tells where utterances are: nothing is decoded without speech. Words that
// two decodes in a row agree on are settled.
class WhisperListener : public Listener {
 public:
  explicit WhisperListener(WhisperEngine& engine) : engine_(engine) {}
  ~WhisperListener() override;

  void begin(Request request) override;
  void hear(std::span<const std::int16_t> samples) override;
  void finish() override;
  void spoil() noexcept override { engine_.forgetModel(); }

 private:
  struct Decoded {
    std::string words;
    std::string translation;
  };
  struct Utterance {
    std::vector<float> sound;
    std::vector<float> speech;           // probability of each hop, the last ones
    std::size_t spoken = 0;              // samples that are speech
    std::size_t silent = 0;              // samples since the last speech
    std::size_t decodedUpTo = 0;         // samples
    std::optional<Decoded> sinceSilence; // of all its speech; absent when more speech has come since
    SettledText line{WhisperEngine::decodesToSettle};
    std::string shown;
  };

  void take(std::span<const float, SpeechGate::hop> samples);
  void end();
  void cut();
  void decodeIfDue();
  // Decodes the first `samples` of the utterance; absent if there is nothing that one could show.
  std::optional<Decoded> decode(std::size_t samples, WhisperDecoder::Effort effort);
  void identify(std::size_t samples, bool final);
  void show(const Decoded& decoded, bool final);
  void traceSpeed();

  WhisperEngine& engine_;
  Request request_;
  std::vector<std::string> candidates_; // what may be spoken, by Whisper's codes
  std::string language_;                // that of the utterance, or a first guess; Whisper's code
  bool identified_ = false;
  bool doubtful_ = false; // the language has to be looked at again
  std::optional<SpeechGate> gate_;
  std::optional<WhisperDecoder> decoder_;
  std::vector<float> unseen_; // less than a hop
  std::vector<float> before_; // the last sound without speech
  std::optional<Utterance> utterance_;
  std::size_t pause_ = 0;   // samples since the last utterance
  std::size_t heard_ = 0;   // samples in all
  std::size_t spacing_ = 0; // samples between decodes
};

} // namespace tolvera::service
