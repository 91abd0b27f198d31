#include "TolveraService/Engine/WhisperListener.h"

#include "TolveraService/Engine/WhisperLanguages.h"
#include "TolveraService/Engine/WhisperText.h"

#include "Async/Log.h"

#include <algorithm>
#include <utility>

namespace tolvera::service {

namespace {

using Effort = WhisperDecoder::Effort;

constexpr std::size_t samplesOf(double seconds) {
  return static_cast<std::size_t>(seconds * static_cast<double>(SpeechEngine::sampleRate));
}

constexpr float speechBegins = 0.5F;
constexpr float speechGoesOn = 0.35F;
constexpr std::size_t keptBefore = samplesOf(0.3);
constexpr std::size_t silenceThatEnds = samplesOf(0.45);
// The end is decoded ahead: where the silence goes on the result is there when the utterance ends.
constexpr std::size_t silenceThatMayEnd = samplesOf(0.2);
constexpr std::size_t leastSpeech = samplesOf(0.25);
constexpr std::size_t leastSpacing = samplesOf(0.8);
constexpr std::size_t longest = samplesOf(12);
constexpr std::size_t leastBeforeCut = samplesOf(7);

constexpr std::size_t speechToIdentify = samplesOf(3);
constexpr std::size_t speechToBeSure = samplesOf(1);
constexpr float sure = 0.9F;
constexpr float sureOfChange = 0.8F;
constexpr std::size_t longPause = samplesOf(3);
constexpr float improbable = -0.9F;

} // namespace

WhisperListener::~WhisperListener() {
  if (decoder_) traceSpeed();
  decoder_.reset();
  gate_.reset();
  engine_.release();
}

void WhisperListener::begin(Request request) {
  request_ = std::move(request);
  for (const std::string& code : engine_.languages()) candidates_.push_back(whisperLanguage(code));
  identified_ = request_.spoken != "auto";
  language_ = identified_ ? whisperLanguage(request_.spoken) : candidates_.front();
  spacing_ = leastSpacing;
  gate_.emplace(engine_.settings().gate);
  decoder_.emplace(engine_.model(), engine_.threads(), request_.abandoned);
}

void WhisperListener::hear(std::span<const std::int16_t> samples) {
  heard_ += samples.size();
  for (const std::int16_t sample : samples) unseen_.push_back(static_cast<float>(sample) / 32768);
  std::size_t at = 0;
  for (; at + SpeechGate::hop <= unseen_.size() && !request_.abandoned(); at += SpeechGate::hop)
    take(std::span<const float, SpeechGate::hop>(unseen_.data() + at, SpeechGate::hop));
  unseen_.erase(unseen_.begin(), unseen_.begin() + static_cast<std::ptrdiff_t>(at));
  decodeIfDue();
}

void WhisperListener::finish() {
  if (utterance_) end();
}

void WhisperListener::take(std::span<const float, SpeechGate::hop> samples) {
  const float probability = gate_->probability(samples);
  if (!utterance_) {
    before_.insert(before_.end(), samples.begin(), samples.end());
    pause_ += samples.size();
    if (before_.size() > keptBefore + samples.size())
      before_.erase(before_.begin(),
                    before_.end() - static_cast<std::ptrdiff_t>(keptBefore + samples.size()));
    if (probability <= speechBegins) return;
    if (pause_ > longPause) doubtful_ = true;
    pause_ = 0;
    utterance_ = Utterance();
    utterance_->sound = std::exchange(before_, {});
    utterance_->speech.assign(utterance_->sound.size() / SpeechGate::hop, probability);
    utterance_->spoken = samples.size();
    return;
  }
  Utterance& utterance = *utterance_;
  utterance.sound.insert(utterance.sound.end(), samples.begin(), samples.end());
  utterance.speech.push_back(probability);
  if (probability >= speechGoesOn) {
    utterance.silent = 0;
    utterance.spoken += samples.size();
    utterance.sinceSilence.reset();
  } else {
    utterance.silent += samples.size();
  }
  if (utterance.silent >= silenceThatEnds)
    end();
  else if (utterance.sound.size() >= longest)
    cut();
}

void WhisperListener::decodeIfDue() {
  if (!utterance_ || utterance_->spoken < leastSpeech || request_.abandoned()) return;
  const std::size_t size = utterance_->sound.size();
  const bool mayEnd = utterance_->silent >= silenceThatMayEnd && !utterance_->sinceSilence;
  if (!mayEnd && (utterance_->silent >= silenceThatMayEnd || size - utterance_->decodedUpTo < spacing_))
    return;
  utterance_->decodedUpTo = size;
  const auto before = decoder_->busy();
  auto decoded = decode(size, mayEnd ? Effort::thorough : Effort::once);
  // A machine that is slow decodes less often, so that other runs and the ends of utterances have room.
  const std::chrono::duration<double> took = decoder_->busy() - before;
  spacing_ = std::max(leastSpacing, samplesOf(took.count() * 1.2));
  if (decoded) show(*decoded, false);
  if (mayEnd) utterance_->sinceSilence = decoded ? *std::move(decoded) : Decoded{};
}

void WhisperListener::end() {
  if (utterance_->spoken >= leastSpeech && !request_.abandoned()) {
    auto decoded = std::move(utterance_->sinceSilence);
    if (!decoded) decoded = decode(utterance_->sound.size(), Effort::thorough);
    show(decoded.value_or(Decoded{}), true);
  } else {
    show({}, true);
  }
  utterance_.reset();
}

// A speaker without pauses: ends the utterance where speech was least probable, and carries the rest on.
void WhisperListener::cut() {
  Utterance whole = *std::exchange(utterance_, std::nullopt);
  const auto first = whole.speech.begin() + static_cast<std::ptrdiff_t>(leastBeforeCut / SpeechGate::hop);
  const auto least = std::min_element(first, whole.speech.end());
  const std::size_t hops = static_cast<std::size_t>(least - whole.speech.begin()) + 1;
  const auto split = static_cast<std::ptrdiff_t>(std::min(hops * SpeechGate::hop, whole.sound.size()));
  Utterance rest;
  rest.sound.assign(whole.sound.begin() + split, whole.sound.end());
  rest.speech.assign(whole.speech.begin() + static_cast<std::ptrdiff_t>(hops), whole.speech.end());
  rest.spoken = rest.sound.size();
  rest.silent = whole.silent;
  whole.sound.resize(static_cast<std::size_t>(split));
  whole.sinceSilence.reset();
  utterance_ = std::move(whole);
  end();
  utterance_ = std::move(rest);
}

std::optional<WhisperListener::Decoded> WhisperListener::decode(std::size_t samples, Effort effort) {
  const std::span<const float> sound = std::span(utterance_->sound).first(samples);
  const bool final = effort == Effort::thorough;
  const bool translated = identified_ && request_.translates(programLanguage(language_));
  const auto hearIt = [&] {
    return translated && !request_.transcript ? decoder_->translate(sound, language_, effort)
                                              : decoder_->transcribe(sound, language_, effort);
  };
  WhisperDecoder::Text text = hearIt();
  if (request_.abandoned()) return std::nullopt;
  if (!identified_ || (doubtful_ && final && request_.spoken == "auto")) {
    const std::string guessed = language_;
    identify(samples, final);
    if (!identified_) return std::nullopt;
    if (language_ != guessed || translated != request_.translates(programLanguage(language_)))
      return decode(samples, effort);
  }
  if (!isPlausible(text, utterance_->spoken)) {
    log::trace(log::Category::service, "dropped what is not plausible: certainty ", text.certainty,
               ", silence ", text.silence, ", ", utterance_->spoken, " samples of speech");
    return std::nullopt;
  }
  if (final && request_.spoken == "auto") doubtful_ = text.certainty < improbable;
  if (!translated) return Decoded{std::move(text.words), {}};
  if (!request_.transcript) return Decoded{{}, std::move(text.words)};
  const WhisperDecoder::Text english = decoder_->translateAgain(language_);
  return Decoded{std::move(text.words), isPlausible(english, utterance_->spoken) ? english.words : ""};
}

// By the sound that was decoded last.
void WhisperListener::identify(std::size_t samples, bool final) {
  const WhisperDecoder::Guess guess = decoder_->identify(candidates_);
  log::trace(log::Category::service, "language ", guess.language, " with ", guess.probability, " after ",
             static_cast<double>(samples) / SpeechEngine::sampleRate, " s");
  if (identified_) { // and doubtful
    doubtful_ = false;
    if (guess.probability >= sureOfChange && utterance_->spoken >= speechToBeSure) language_ = guess.language;
    return;
  }
  language_ = guess.language;
  identified_ = final || utterance_->spoken >= speechToIdentify ||
                (utterance_->spoken >= speechToBeSure && guess.probability >= sure);
  // A short utterance had to be shown in some language: look at the next one again.
  doubtful_ = identified_ && guess.probability < sure;
}

void WhisperListener::show(const Decoded& decoded, bool final) {
  Heard heard{programLanguage(language_), {}, {}, decoded.translation, final};
  if (final) {
    heard.settled = decoded.words;
  } else {
    SettledText::Split split = utterance_->line.update(decoded.words);
    heard.settled = std::move(split.text);
    heard.tail = std::move(split.stash);
  }
  request_.report(heard);
}

void WhisperListener::traceSpeed() {
  if (heard_ == 0) return;
  const std::chrono::duration<double> busy = decoder_->busy();
  const double sound = static_cast<double>(heard_) / SpeechEngine::sampleRate;
  log::trace(log::Category::service, "a run of ", sound, " s was decoded in ", busy.count(), " s, ",
             busy.count() / sound, " of real time");
}

} // namespace tolvera::service
