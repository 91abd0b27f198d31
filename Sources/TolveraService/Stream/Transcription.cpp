#include "TolveraService/Stream/Transcription.h"

#include "TolveraService/Accounts/Packs.h"
#include "TolveraService/Engine/TextNormalizer.h"

#include <cstdio>
#include <exception>
#include <vector>

namespace tolvera::service {

namespace {

// A sender that stops in the middle of an utterance gets what there is.
constexpr std::chrono::milliseconds patience{1500};

} // namespace

Transcription::Transcription(Job job, std::unique_ptr<RecognizerPool::Lease> recognizer,
                             AccountStore& accounts, Translator& translator, const Speech& speech)
    : job_(std::move(job)), recognizer_(std::move(recognizer)), accounts_(accounts), translator_(translator),
      speech_(speech), captionsOnly_(job_.parameters.target == "en") {}

void Transcription::run() {
  try {
    (*recognizer_)->begin();
    listen();
  } catch (const DatabaseError& error) {
    std::fprintf(stderr, "tolvera-service: a run ended: %s\n", error.what());
    // A code that ends the client's run: it would only fail again.
    job_.output->sendLast(errorFrame(errorCode::upstreamRejected, refusal::storeFailed()));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tolvera-service: a stream ended: %s\n", error.what());
    job_.output->sendLast({});
  }
  recognizer_.reset();
  job_.audio->abandon(); // later sound is not heard
}

void Transcription::listen() {
  std::vector<std::int16_t> samples;
  for (;;) {
    const auto state = job_.audio->take(samples, Recognizer::samplesPerLook, patience);
    if (state == AudioQueue::State::abandoned) {
      charge(0, true);
      return;
    }
    if (!samples.empty()) heard((*recognizer_)->hear(samples));
    const bool over = state == AudioQueue::State::finished;
    if (over || (state == AudioQueue::State::starved && (*recognizer_)->inUtterance()))
      heard((*recognizer_)->finish());
    if (!charge(samples.size(), over)) {
      heard((*recognizer_)->finish());
      job_.output->sendLast(errorFrame(errorCode::quotaExhausted, refusal::outOfTime()));
      return;
    }
    if (over) return;
  }
}

void Transcription::heard(const Recognizer::Look& look) {
  if (look.final) {
    if (!look.words.empty()) finished(look.words);
    source_ = {};
    translation_ = {};
    lastWords_.clear();
    lastTranslation_.clear();
  } else if (!look.words.empty()) {
    partial(look.words);
  }
}

void Transcription::partial(const std::string& words) {
  const std::string line = capitalized(words);
  if (job_.parameters.showSource) grow(source_, CaptionKind::source, line);
  if (captionsOnly_) {
    grow(translation_, CaptionKind::translation, line);
    return;
  }
  if (words != lastWords_) {
    lastWords_ = words;
    // After a failure the next look tries again.
    const Translator::Result result = translator_.translate(job_.parameters.target, line);
    if (result.kind == Translator::Result::Kind::translated) lastTranslation_ = result.text;
  }
  if (!lastTranslation_.empty()) grow(translation_, CaptionKind::translation, lastTranslation_);
}

void Transcription::finished(const std::string& words) {
  const std::string line = sentence(words);
  if (job_.parameters.showSource) end(CaptionKind::source, line);
  if (captionsOnly_) return end(CaptionKind::translation, line);
  const Translator::Result result = translator_.translate(job_.parameters.target, capitalized(words));
  if (result.kind == Translator::Result::Kind::translated)
    end(CaptionKind::translation, result.text + ".");
  else if (result.kind == Translator::Result::Kind::failed) // captions go on; the dub leaves it out
    job_.output->send(captionFrame(CaptionKind::translation, "“" + line + "”", "", true));
}

void Transcription::grow(Line& line, CaptionKind kind, const std::string& whole) {
  SettledText::Split split = line.settled.update(whole);
  if (split == line.sent) return;
  job_.output->send(captionFrame(kind, split.text, split.stash, false));
  line.sent = std::move(split);
}

void Transcription::end(CaptionKind kind, const std::string& whole) {
  job_.output->send(captionFrame(kind, whole, "", true));
  const bool spoken = kind == CaptionKind::translation && job_.dub && !job_.dub->dropped();
  if (spoken) job_.dub->say(speech_.say(job_.parameters.target, job_.parameters.voice, whole));
}

bool Transcription::charge(std::size_t samples, bool last) {
  uncharged_ += samples;
  const bool due = uncharged_ >= Recognizer::sampleRate || (last && uncharged_ > 0);
  if (!due) return true;
  const double heardFor = static_cast<double>(uncharged_) / Recognizer::sampleRate;
  uncharged_ = 0;
  const double left = accounts_.charge(job_.installation, heardFor * (job_.dub ? dubMultiplier : 1));
  job_.output->send(balanceFrame(left));
  return left > 0;
}

} // namespace tolvera::service
