#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <vector>

struct ps_decoder_s;

namespace tolvera::service {

// One English speech decoder for one stream of sound at a time. Owned by RecognizerPool; whoever leased it
// calls it from one thread. Slow: making one takes most of a second, the end of an utterance up to a second.
class Recognizer {
 public:
  static constexpr std::size_t sampleRate = 16000;
  static constexpr std::size_t samplesPerLook = 1600; // 100 ms

  // The model that the speech library was installed with.
  static std::filesystem::path installedModel();

  // Throws std::runtime_error, with a text for the person who starts the service, if the model is missing.
  explicit Recognizer(const std::filesystem::path& model = installedModel());
  ~Recognizer();
  Recognizer(const Recognizer&) = delete;
  Recognizer& operator=(const Recognizer&) = delete;

  struct Look {
    std::string words;  // what the utterance sounds like so far: lower case, no punctuation
    bool final = false; // the utterance ends here; the next look begins another
  };

  // Forgets what was heard: the next samples are of another speaker.
  void begin();
  // Takes at most `samplesPerLook` samples. Throws std::runtime_error if the decoder fails, like `finish`.
  Look hear(std::span<const std::int16_t> samples);
  // Ends the utterance under way; its words may be empty.
  Look finish();
  // True while there are words or speech that `finish` would end.
  [[nodiscard]] bool inUtterance() const { return speaking_; }

 private:
  struct Free {
    void operator()(ps_decoder_s* decoder) const;
  };

  [[nodiscard]] std::string hypothesis() const;
  [[nodiscard]] bool tooLong(const std::string& words);

  std::unique_ptr<ps_decoder_s, Free> decoder_;
  std::vector<float> startingMean_; // of the cepstra, before the decoder adapted to anyone
  bool speaking_ = false;
  std::size_t looksInUtterance_ = 0;
  std::size_t looksUnchanged_ = 0;
  std::string lastWords_;
};

} // namespace tolvera::service
