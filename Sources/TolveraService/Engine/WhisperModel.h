#pragma once

#include <array>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

struct whisper_context;
struct whisper_state;
struct whisper_vad_context;

namespace tolvera::service {

// Keeps whisper.cpp from printing. Harmless to repeat.
void quietenWhisper();

// Frees what whisper.cpp allocates.
struct WhisperFree {
  void operator()(whisper_context* context) const;
  void operator()(whisper_state* state) const;
  void operator()(whisper_vad_context* gate) const;
};

// The weights, shared by all runs and constant. Any thread.
class WhisperModel {
 public:
  // `file` is known to be as published: whisper.cpp ends the program over a broken one. Takes a moment.
  // Throws std::runtime_error if there is no memory for it.
  explicit WhisperModel(const std::filesystem::path& file);
  [[nodiscard]] whisper_context* get() const { return context_.get(); }

 private:
  std::unique_ptr<whisper_context, WhisperFree> context_;
};

// Turns one stretch of sound, up to 30 s, into text. One run's; one thread at a time. Throws
// std::runtime_error if the library fails.
class WhisperDecoder {
 public:
  WhisperDecoder(std::shared_ptr<const WhisperModel> model, int threadsAtMost,
                 std::function<bool()> abandoned);

  enum class Effort { once, thorough }; // thorough: tries again where the result is improbable
  struct Text {
    std::string words;
    float certainty = 0; // mean logarithm of the tokens' probabilities
    float silence = 0;   // probability that there is no speech
  };
  // Whisper's own codes name languages here. Empty text if the run was abandoned.
  Text transcribe(std::span<const float> samples, const std::string& language, Effort effort);
  Text translate(std::span<const float> samples, const std::string& language, Effort effort);
  // English for the sound that the last call took, without listening to it again.
  Text translateAgain(const std::string& language);
  // The most probable of the languages for that sound, and its probability.
  struct Guess {
    std::string language;
    float probability = 0;
  };
  Guess identify(std::span<const std::string> languages);

 private:
  void chooseThreads();
  [[nodiscard]] bool works(int result) const;
  Text decode(std::span<const float> samples, const std::string& language, Effort effort, bool translate);

  std::shared_ptr<const WhisperModel> model_;
  std::unique_ptr<whisper_state, WhisperFree> state_;
  int threadsAtMost_;
  int threads_ = 1;      // of the last decode
  bool crowded_ = false; // other programs take some of the processors
  std::function<bool()> abandoned_;
  int tokensAtMost_ = 0;
};

// Tells speech from other sound, hop by hop. One run's; one thread at a time.
class SpeechGate {
 public:
  static constexpr std::size_t hop = 512; // samples, 32 ms

  // Throws std::runtime_error like WhisperModel.
  explicit SpeechGate(const std::filesystem::path& file);
  // The probability that the next hop is speech.
  float probability(std::span<const float, hop> samples);

 private:
  std::unique_ptr<whisper_vad_context, WhisperFree> gate_;
};

} // namespace tolvera::service
