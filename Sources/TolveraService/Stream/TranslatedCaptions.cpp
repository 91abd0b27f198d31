#include "TolveraService/Stream/TranslatedCaptions.h"

#include "TolveraService/Stream/StreamProtocol.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <utility>

namespace tolvera::service {

namespace {

using Kind = Translator::Result::Kind;

constexpr int failuresThatEnd = 3;
constexpr std::size_t mostFinalsWaiting = 8; // half a minute of speech
constexpr std::chrono::milliseconds beforeRetry{300};
constexpr std::chrono::milliseconds step{50};

// Rather than from the engine's own translation.
bool startsFromWhatWasHeard(CaptionRoute route) {
  return route == CaptionRoute::asHeard || route == CaptionRoute::byTranslator;
}

bool needsTranslator(CaptionRoute route) {
  return route == CaptionRoute::byTranslator || route == CaptionRoute::byBoth;
}

} // namespace

TranslatedCaptions::TranslatedCaptions(Run run, const SpeechEngine& engine, Translator& translator,
                                       const Speech& speech)
    : run_(std::move(run)), engine_(engine), translator_(translator), speech_(speech),
      settled_(engine.reportsToSettle()), thread_([this](const std::stop_token& stop) { work(stop); }) {}

void TranslatedCaptions::take(Heard heard, CaptionRoute route) {
  const std::scoped_lock lock(mutex_);
  if (!waiting_.empty() && !waiting_.back().heard.final) waiting_.pop_back();
  waiting_.push_back({std::move(heard), route});
  changed_.notify_all();
}

void TranslatedCaptions::finish() {
  std::unique_lock lock(mutex_);
  const auto done = [this] { return waiting_.empty() && !busy_; };
  while (!changed_.wait_for(lock, step, done))
    if (run_.abandoned()) return;
}

void TranslatedCaptions::work(const std::stop_token& stop) {
  std::unique_lock lock(mutex_);
  while (changed_.wait(lock, stop, [this] { return !waiting_.empty(); })) {
    const Item item = std::move(waiting_.front());
    waiting_.pop_front();
    busy_ = true;
    lock.unlock();
    if (!run_.abandoned()) item.heard.final ? finished(item) : partial(item);
    lock.lock();
    busy_ = false;
    changed_.notify_all();
  }
}

std::size_t TranslatedCaptions::finalsWaiting() {
  const std::scoped_lock lock(mutex_);
  return static_cast<std::size_t>(
      std::count_if(waiting_.begin(), waiting_.end(), [](const Item& item) { return item.heard.final; }));
}

void TranslatedCaptions::partial(const Item& item) {
  const Heard& heard = item.heard;
  if (item.route == CaptionRoute::asHeard) return send({heard.settled, heard.tail});
  const std::string line =
      startsFromWhatWasHeard(item.route) ? heard.settled + heard.tail : heard.translation;
  if (line != lastLine_) {
    lastLine_ = line;
    // After a failure the next look tries again.
    Translator::Result result =
        translated(item, line, [this] { return run_.abandoned() || finalsWaiting() > 0; });
    if (result.kind == Kind::translated) lastTranslation_ = std::move(result.text);
  }
  if (!lastTranslation_.empty()) send(settled_.update(lastTranslation_));
}

void TranslatedCaptions::finished(const Item& item) {
  settled_ = SettledText(engine_.reportsToSettle());
  sent_ = {};
  lastLine_.clear();
  lastTranslation_.clear();
  const std::string& line = startsFromWhatWasHeard(item.route) ? item.heard.settled : item.heard.translation;
  if (line.empty()) return;
  const Translator::Result result = translatedAtLast(item, line);
  if (run_.abandoned()) return;
  failures_ = result.kind == Kind::failed ? failures_ + 1 : 0;
  if (result.kind == Kind::translated) {
    run_.output->send(captionFrame(CaptionKind::translation, result.text, "", true));
    if (run_.dub && !run_.dub->dropped()) run_.dub->say(speech_.say(run_.target, run_.voice, result.text));
  } else if (result.kind == Kind::failed) { // the dub leaves it out
    std::fprintf(stderr, "tolvera-service: a sentence was not translated: %s\n", result.text.c_str());
    run_.output->send(captionFrame(CaptionKind::translation, "“" + line + "”", "", true));
    if (failures_ == failuresThatEnd) run_.gaveUp(result.text);
  }
}

Translator::Result TranslatedCaptions::translatedAtLast(const Item& item, const std::string& line) {
  if (needsTranslator(item.route) && finalsWaiting() > mostFinalsWaiting)
    return {Kind::failed, "the translator does not keep up"};
  Translator::Result result = translated(item, line, run_.abandoned);
  if (result.kind != Kind::failed || run_.abandoned()) return result;
  std::this_thread::sleep_for(beforeRetry);
  return translated(item, line, run_.abandoned);
}

Translator::Result TranslatedCaptions::translated(const Item& item, const std::string& line,
                                                  const Translator::Abandoned& late) {
  if (!needsTranslator(item.route)) return {Kind::translated, line};
  const std::string from =
      item.route == CaptionRoute::byTranslator ? item.heard.language : engine_.translatesInto();
  return translator_.translate(from, run_.target, line, late);
}

void TranslatedCaptions::send(SettledText::Split split) {
  if (split == sent_) return;
  run_.output->send(captionFrame(CaptionKind::translation, split.text, split.stash, false));
  sent_ = std::move(split);
}

} // namespace tolvera::service
