#include "TolveraService/Stream/DubStream.h"

#include "TolveraService/Engine/Speech.h"

#include <algorithm>
#include <span>
#include <utility>

namespace tolvera::service {

namespace {

constexpr std::size_t unreadFrames = 5; // more than these wait: the client does not read
constexpr std::chrono::milliseconds unreadStep{100};

std::string bytesOf(std::span<const std::int16_t> samples) {
  std::string bytes;
  bytes.reserve(samples.size() * 2);
  for (const std::int16_t sample : samples) {
    const auto bits = static_cast<std::uint16_t>(sample);
    bytes += static_cast<char>(bits & 0xff);
    bytes += static_cast<char>(bits >> 8);
  }
  return bytes;
}

Duration lengthOf(std::size_t samples) {
  return std::chrono::nanoseconds(std::chrono::seconds(1)) * samples / Speech::sampleRate;
}

} // namespace

void DubStream::say(Sentence sentence) {
  if (sentence.empty()) return;
  {
    std::scoped_lock lock(mutex_);
    if (dropped_) return;
    waiting_ += sentence.size();
    sentences_.push_back(std::move(sentence));
    while (waiting_ > waitingSamples && sentences_.size() > 1) {
      waiting_ -= sentences_.front().size();
      sentences_.pop_front();
    }
  }
  said_.open();
}

void DubStream::drop() {
  {
    std::scoped_lock lock(mutex_);
    dropped_ = true;
    sentences_.clear();
    waiting_ = 0;
  }
  said_.open();
}

bool DubStream::dropped() const {
  std::scoped_lock lock(mutex_);
  return dropped_;
}

Task<void> DubStream::send(std::shared_ptr<DubStream> stream) {
  while (!stream->dropped()) {
    co_await stream->untilRead();
    auto sentence = stream->take();
    if (!sentence) {
      co_await stream->said_.pass();
      continue;
    }
    const bool whole = co_await stream->sendWhole(std::move(*sentence));
    if (!whole) co_return;
  }
}

std::optional<DubStream::Sentence> DubStream::take() {
  std::scoped_lock lock(mutex_);
  if (sentences_.empty()) return std::nullopt;
  Sentence sentence = std::move(sentences_.front());
  sentences_.pop_front();
  waiting_ -= sentence.size();
  return sentence;
}

Task<void> DubStream::untilRead() {
  while (output_->waiting() > unreadFrames && !dropped()) co_await clock_.sleep(unreadStep);
}

Task<bool> DubStream::sendWhole(Sentence sentence) {
  std::span<const std::int16_t> rest(sentence);
  const std::size_t frames = (sentence.size() + frameSamples - 1) / frameSamples;
  const std::size_t part = (sentence.size() + frames - 1) / frames;
  while (!rest.empty()) {
    co_await untilRead();
    if (dropped()) co_return false;
    const auto frame = rest.first(std::min(rest.size(), part));
    rest = rest.subspan(frame.size());
    output_->sendBinary(bytesOf(frame));
    co_await clock_.sleep(pauseAfter(lengthOf(frame.size())));
  }
  co_return true;
}

Duration DubStream::pauseAfter(Duration sound) {
  const WallTime now = clock_.now();
  heardUntil_ = std::max(heardUntil_, now) + sound;
  const bool farAhead = heardUntil_ - now > lead;
  return farAhead ? sound : sound / 2;
}

} // namespace tolvera::service
