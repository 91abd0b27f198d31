#include "TolveraService/Engine/WhisperListener.h"

#include "TolveraService/Engine/WhisperLanguages.h"
#include "TolveraService/Engine/WhisperText.h"

#include "Async/Log.h"

#include <chrono>
#include <utility>

namespace tolvera::service {

namespace {

using Effort = WhisperDecoder::Effort;

// A word shows 0.1 s sooner than with 800 ms, and a run costs a third more of the processor.
constexpr std::chrono::milliseconds spacing{500};
constexpr double share = 2.0 / 3;
constexpr float sure = 0.9F;
constexpr float sureOfChange = 0.8F;
constexpr float improbable = -0.9F;

} // namespace

WhisperListener::~WhisperListener() {
  traceSpeed();
  decoder_.reset();
  engine_.release();
}

void WhisperListener::begin(Request request) {
  start(std::move(request), engine_.settings().gate, engine_.languages(), {spacing, share});
  decoder_.emplace(engine_.model(), engine_.threads(), request_.abandoned);
}

std::optional<WhisperListener::Decoded> WhisperListener::decode(const Stretch& stretch) {
  const Turns::Turn turn(engine_.turns(), request_.abandoned);
  return turn ? decodeInTurn(stretch) : std::nullopt;
}

std::optional<WhisperListener::Decoded> WhisperListener::decodeInTurn(const Stretch& stretch) {
  const std::span<const float> sound = stretch.sound;
  const Effort effort = stretch.final ? Effort::thorough : Effort::once;
  const bool translated = identified_ && request_.translates(programLanguage(language_));
  const auto hearIt = [&] {
    return translated && !request_.transcript ? decoder_->translate(sound, language_, effort)
                                              : decoder_->transcribe(sound, language_, effort);
  };
  WhisperDecoder::Text text = hearIt();
  if (request_.abandoned()) return std::nullopt;
  if (!identified_ || (doubtful_ && stretch.final && isAutomatic())) {
    const std::string guessed = language_;
    identify(stretch);
    if (!identified_) return std::nullopt;
    if (language_ != guessed || translated != request_.translates(programLanguage(language_)))
      return decodeInTurn(stretch);
  }
  if (!isPlausible(text, stretch.spoken)) {
    log::trace(log::Category::service, "dropped what is not plausible: certainty ", text.certainty,
               ", silence ", text.silence, ", ", stretch.spoken, " samples of speech");
    return std::nullopt;
  }
  if (stretch.final && isAutomatic()) doubtful_ = text.certainty < improbable;
  if (!translated) return Decoded{std::move(text.words), {}};
  if (!request_.transcript) return Decoded{{}, std::move(text.words)};
  const WhisperDecoder::Text english = decoder_->translateAgain(language_);
  return Decoded{std::move(text.words), isPlausible(english, stretch.spoken) ? english.words : ""};
}

// By the sound that was decoded last.
void WhisperListener::identify(const Stretch& stretch) {
  const WhisperDecoder::Guess guess = decoder_->identify(candidates_);
  log::trace(log::Category::service, "language ", guess.language, " with ", guess.probability, " after ",
             static_cast<double>(stretch.sound.size()) / SpeechEngine::sampleRate, " s");
  if (identified_) { // and doubtful
    doubtful_ = false;
    if (guess.probability >= sureOfChange && stretch.spoken >= speechToBeSure) language_ = guess.language;
    return;
  }
  language_ = guess.language;
  identified_ = stretch.final || stretch.spoken >= speechToIdentify ||
                (stretch.spoken >= speechToBeSure && guess.probability >= sure);
  // A short utterance had to be shown in some language: look at the next one again.
  doubtful_ = identified_ && guess.probability < sure;
}

} // namespace tolvera::service
