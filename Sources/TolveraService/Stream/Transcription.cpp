#include "TolveraService/Stream/Transcription.h"

#include "TolveraService/Accounts/Packs.h"

#include "Async/Log.h"

#include <cstdio>
#include <exception>
#include <utility>
#include <vector>

namespace tolvera::service {

namespace {

// A sender that stops in the middle of an utterance gets what there is.
constexpr std::chrono::milliseconds patience{1500};
constexpr std::size_t leastSamples = SpeechEngine::sampleRate / 10;
constexpr std::size_t mostSamples = SpeechEngine::sampleRate * 2; // the account is charged after them
constexpr std::size_t samplesToMeasure = 20 * SpeechEngine::sampleRate;
constexpr std::size_t samplesTooLate = AudioQueue::capacity / 2;

} // namespace

Transcription::Transcription(Job job, AccountStore& accounts, Translator& translator, const Speech& speech,
                             const Clock& clock)
    : job_(std::move(job)), accounts_(accounts), engine_(*job_.engine), translator_(translator),
      clock_(clock), captions_({job_.parameters.target, job_.parameters.voice, job_.output, job_.dub,
                                [this] { return ended_ || job_.audio->isAbandoned(); },
                                [this](const std::string& reason) {
                                  endWith(errorCode::upstreamRejected, refusal::translationFailed(reason));
                                }},
                               engine_, translator, speech) {}

void Transcription::run(std::unique_ptr<Listener> listener) {
  listener_ = std::move(listener);
  bool goesOn = false;
  try {
    begin();
    goesOn = listen();
  } catch (const EngineFailure& failure) {
    captions_.finish();
    endWith(errorCode::upstreamRejected, refusal::hearingFailed(failure.what()));
  } catch (const DatabaseError& error) {
    std::fprintf(stderr, "tolvera-service: a run ended: %s\n", error.what());
    // A code that ends the client's run: it would only fail again.
    job_.output->sendLast(errorFrame(errorCode::upstreamRejected, refusal::storeFailed()));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tolvera-service: a run ended: %s\n", error.what());
    listener_->spoil();
    job_.output->sendLast(errorFrame(errorCode::upstreamRejected, refusal::engineFailed()));
  }
  listener_.reset();
  if (goesOn) return;
  captions_.finish();
  job_.audio->abandon(); // what may still come is not heard
}

void Transcription::begin() {
  Listener::Request request;
  request.spoken = job_.parameters.source;
  request.transcript = job_.parameters.showSource;
  request.translates = [this](const std::string& language) {
    const CaptionRoute route = captionRoute(language, job_.parameters.target, engine_, translator_);
    return route == CaptionRoute::byEngine || route == CaptionRoute::byBoth;
  };
  request.report = [this](const Heard& utterance) { heard(utterance); };
  request.abandoned = [this] { return ended_ || job_.audio->isAbandoned(); };
  listener_->begin(std::move(request));
}

bool Transcription::listen() {
  std::vector<std::int16_t> samples;
  while (!ended_) {
    const auto state = job_.audio->take(samples, leastSamples, mostSamples, patience);
    if (state == AudioQueue::State::abandoned) {
      charge(0, true);
      return false;
    }
    if (state == AudioQueue::State::paused) {
      listener_->finish();
      charge(0, true);
      return true;
    }
    const bool keepsUp = hear(samples);
    const bool over = state == AudioQueue::State::finished;
    if (over || state == AudioQueue::State::starved) listener_->finish();
    if (!charge(samples.size(), over)) {
      listener_->finish();
      captions_.finish();
      endWith(errorCode::quotaExhausted, refusal::outOfTime());
    }
    if (!keepsUp) endWith(errorCode::upstreamRejected, refusal::tooSlow(engine_.sendsTo()));
    if (over) break;
  }
  return false;
}

bool Transcription::hear(const std::vector<std::int16_t>& samples) {
  // A sleep in the middle of the work is no slowness.
  const auto start = clock_.awakeTime();
  if (!samples.empty()) listener_->hear(samples);
  busy_ += clock_.awakeTime() - start;
  measured_ += samples.size();
  if (measured_ < samplesToMeasure) return true;
  const double ratio = std::chrono::duration<double>(busy_).count() * SpeechEngine::sampleRate /
                       static_cast<double>(measured_);
  log::trace(log::Category::service, "hearing takes ", ratio, " of real time");
  measured_ = 0;
  busy_ = {};
  // A listener that is a little late catches up by fewer decodes. One that is very late cannot catch up.
  return ratio <= 1 || job_.audio->waiting() < samplesTooLate;
}

void Transcription::heard(const Heard& heard) {
  if (ended_) return;
  if (heard.language != language_) identified(heard.language);
  if (ended_) return;
  if (job_.parameters.showSource) sendSource(heard);
  captions_.take(heard, route_);
}

void Transcription::identified(const std::string& language) {
  language_ = language;
  const std::string& target = job_.parameters.target;
  route_ = captionRoute(language, target, engine_, translator_);
  if (route_ != CaptionRoute::none) return;
  const auto offered = captionLanguages(language, engine_, translator_);
  captions_.finish();
  endWith(errorCode::upstreamRejected,
          refusal::cannotTranslate(language, target, offered, translator_.silentServer()));
}

void Transcription::sendSource(const Heard& heard) {
  if (heard.final) {
    sentSource_ = {};
    if (!heard.settled.empty()) job_.output->send(captionFrame(CaptionKind::source, heard.settled, "", true));
    return;
  }
  SettledText::Split split{heard.settled, heard.tail};
  if (split == sentSource_) return;
  job_.output->send(captionFrame(CaptionKind::source, split.text, split.stash, false));
  sentSource_ = std::move(split);
}

bool Transcription::charge(std::size_t samples, bool last) {
  uncharged_ += samples;
  const bool due = uncharged_ >= SpeechEngine::sampleRate || (last && uncharged_ > 0);
  if (!due) return true;
  const double heardFor = static_cast<double>(uncharged_) / SpeechEngine::sampleRate;
  uncharged_ = 0;
  const double left = accounts_.charge(job_.installation, heardFor * (job_.dub ? dubMultiplier : 1));
  job_.output->send(balanceFrame(left));
  return left > 0;
}

void Transcription::endWith(std::string_view code, const std::string& message) {
  ended_ = true;
  job_.output->sendLast(errorFrame(code, message));
}

} // namespace tolvera::service
