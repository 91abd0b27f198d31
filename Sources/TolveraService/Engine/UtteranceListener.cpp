#include "TolveraService/Engine/UtteranceListener.h"

#include "TolveraService/Engine/WhisperLanguages.h"

#include "Async/Log.h"

#include <algorithm>
#include <utility>

namespace tolvera::service {

namespace {

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
// A listener that gets so much at once has fallen behind, and decodes only the ends of utterances.
constexpr std::size_t muchAtOnce = samplesOf(1);
constexpr std::size_t longest = samplesOf(12);
constexpr std::size_t leastBeforeCut = samplesOf(7);

constexpr std::size_t longPause = samplesOf(3);

} // namespace

void UtteranceListener::start(Request request, const std::filesystem::path& gate,
                              const std::vector<std::string>& languages, Pace pace) {
  request_ = std::move(request);
  for (const std::string& code : languages) candidates_.push_back(whisperLanguage(code));
  identified_ = !isAutomatic();
  language_ = identified_ ? whisperLanguage(request_.spoken) : candidates_.front();
  pace_ = pace;
  spacing_ = samplesOf(pace_.spacing.count());
  gate_.emplace(gate);
}

bool UtteranceListener::isCandidate(const std::string& language) const {
  return std::find(candidates_.begin(), candidates_.end(), language) != candidates_.end();
}

void UtteranceListener::hear(std::span<const std::int16_t> samples) {
  heard_ += samples.size();
  for (const std::int16_t sample : samples) unseen_.push_back(static_cast<float>(sample) / 32768);
  std::size_t at = 0;
  for (; at + SpeechGate::hop <= unseen_.size() && !request_.abandoned(); at += SpeechGate::hop)
    take(std::span<const float, SpeechGate::hop>(unseen_.data() + at, SpeechGate::hop));
  unseen_.erase(unseen_.begin(), unseen_.begin() + static_cast<std::ptrdiff_t>(at));
  decodeIfDue(samples.size() >= muchAtOnce);
}

void UtteranceListener::finish() {
  if (utterance_) end();
}

void UtteranceListener::take(std::span<const float, SpeechGate::hop> samples) {
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

void UtteranceListener::decodeIfDue(bool behind) {
  if (!utterance_ || utterance_->spoken < leastSpeech || request_.abandoned()) return;
  const std::size_t size = utterance_->sound.size();
  const bool mayEnd = utterance_->silent >= silenceThatMayEnd && !utterance_->sinceSilence;
  if (!mayEnd && (utterance_->silent >= silenceThatMayEnd || size - utterance_->decodedUpTo < spacing_))
    return;
  if (behind || (!mayEnd && !isDecoderFree())) return;
  utterance_->decodedUpTo = size;
  const auto before = busy_;
  auto decoded = decodeAll(mayEnd);
  // Where a decode is slow there are fewer: the rest of the time is left to the ends of utterances and to
  // other runs.
  spacing_ = samplesOf(std::max(pace_.spacing, (busy_ - before) / pace_.share).count());
  if (decoded) show(*decoded, false);
  if (mayEnd) utterance_->sinceSilence = decoded ? *std::move(decoded) : Decoded{};
}

void UtteranceListener::end() {
  if (utterance_->spoken >= leastSpeech && !request_.abandoned()) {
    auto decoded = std::move(utterance_->sinceSilence);
    if (!decoded) decoded = decodeAll(true);
    show(decoded.value_or(Decoded{}), true);
  } else {
    show({}, true);
  }
  utterance_.reset();
}

// A speaker without pauses: ends the utterance where speech was least probable, and carries the rest on.
void UtteranceListener::cut() {
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

std::optional<UtteranceListener::Decoded> UtteranceListener::decodeAll(bool final) {
  const auto start = std::chrono::steady_clock::now();
  auto decoded = decode({utterance_->sound, utterance_->spoken, final});
  busy_ += std::chrono::steady_clock::now() - start;
  return decoded;
}

void UtteranceListener::show(const Decoded& decoded, bool final) {
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

void UtteranceListener::traceSpeed() const {
  if (heard_ == 0) return;
  const double sound = static_cast<double>(heard_) / SpeechEngine::sampleRate;
  log::trace(log::Category::service, "a run of ", sound, " s was decoded in ", busy_.count(), " s, ",
             busy_.count() / sound, " of real time");
}

} // namespace tolvera::service
