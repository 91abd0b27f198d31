#include "TolveraService/Stream/AudioQueue.h"

#include <algorithm>

namespace tolvera::service {

void AudioQueue::push(std::string_view frame) {
  std::scoped_lock lock(mutex_);
  if (finished_) return;
  if (start_ > 0 && start_ * 2 >= samples_.size()) {
    samples_.erase(samples_.begin(), samples_.begin() + static_cast<std::ptrdiff_t>(start_));
    start_ = 0;
  }
  samples_.reserve(samples_.size() + frame.size() / 2);
  for (std::size_t i = 0; i + 1 < frame.size(); i += 2) {
    const auto low = static_cast<std::uint8_t>(frame[i]);
    const auto high = static_cast<std::uint8_t>(frame[i + 1]);
    samples_.push_back(static_cast<std::int16_t>(static_cast<std::uint16_t>(low | (high << 8))));
  }
  arrived_.notify_one();
}

Task<void> AudioQueue::untilRoom() {
  while (isFull()) co_await room_.pass();
}

bool AudioQueue::isFull() {
  std::scoped_lock lock(mutex_);
  return count() >= capacity && !finished_;
}

void AudioQueue::finish() {
  {
    std::scoped_lock lock(mutex_);
    finished_ = true;
  }
  arrived_.notify_one();
  room_.open();
}

void AudioQueue::abandon() {
  {
    std::scoped_lock lock(mutex_);
    abandoned_ = true;
  }
  finish();
}

std::size_t AudioQueue::waiting() {
  std::scoped_lock lock(mutex_);
  return count();
}

void AudioQueue::setPaused(bool paused) {
  {
    std::scoped_lock lock(mutex_);
    paused_ = paused;
  }
  arrived_.notify_one();
}

AudioQueue::State AudioQueue::take(std::vector<std::int16_t>& samples, std::size_t least, std::size_t most,
                                   std::chrono::milliseconds patience) {
  std::unique_lock lock(mutex_);
  samples.clear();
  std::size_t before = count();
  while (count() < least && !finished_ && !paused_) {
    arrived_.wait_for(lock, patience);
    if (count() == before) break;
    before = count();
  }
  if (abandoned_) return State::abandoned;
  if (paused_) return State::paused;
  const std::size_t taken = std::min(most, count());
  const auto first = samples_.begin() + static_cast<std::ptrdiff_t>(start_);
  samples.assign(first, first + static_cast<std::ptrdiff_t>(taken));
  start_ += taken;
  const bool last = finished_ && count() == 0;
  const bool room = count() < capacity;
  lock.unlock();
  if (room) room_.open();
  if (last) return State::finished;
  return taken < least ? State::starved : State::more;
}

} // namespace tolvera::service
