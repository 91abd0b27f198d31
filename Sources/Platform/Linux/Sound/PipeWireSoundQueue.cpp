#include "Platform/Linux/Sound/PipeWireSoundQueue.h"

#include <algorithm>
#include <new>
#include <optional>
#include <utility>

namespace tolvera::adapters {

struct PipeWireSoundQueue::Item {
  std::optional<platform::AudioPCMBuffer> buffer; // none in the very first
  std::uint64_t sequence = 0;
  std::uint64_t framesBefore = 0;                   // of all items before it
  Clock::time_point end = Clock::time_point::min(); // when it is over if nothing holds it up
  std::atomic<Item*> next{nullptr};

  [[nodiscard]] std::uint64_t framesThrough() const {
    return framesBefore + (buffer ? buffer->frameLength() : 0);
  }
};

PipeWireSoundQueue::PipeWireSoundQueue() : first_(new Item), last_(first_), current_(first_) {}

PipeWireSoundQueue::~PipeWireSoundQueue() {
  while (first_ != nullptr) delete std::exchange(first_, first_->next.load());
}

void PipeWireSoundQueue::free() noexcept {
  const Item* current = current_.load(std::memory_order_acquire);
  while (first_ != current) delete std::exchange(first_, first_->next.load(std::memory_order_relaxed));
}

void PipeWireSoundQueue::push(platform::AudioPCMBuffer buffer) noexcept {
  free();
  Item* item = new (std::nothrow) Item;
  if (item == nullptr) return;
  item->buffer = std::move(buffer);
  item->sequence = last_->sequence + 1;
  item->framesBefore = last_->framesThrough();
  const std::chrono::duration<double> duration(item->buffer->frameLength() /
                                               item->buffer->format().sampleRate);
  item->end = std::max(last_->end, Clock::now()) + std::chrono::duration_cast<Clock::duration>(duration);
  pushed_.store(item->sequence, std::memory_order_release);
  last_->next.store(item, std::memory_order_release);
  last_ = item;
}

void PipeWireSoundQueue::drop() noexcept {
  dropped_.store(last_->sequence, std::memory_order_release);
  framesDropped_ = last_->framesThrough();
  free();
}

std::uint64_t PipeWireSoundQueue::waiting() const noexcept {
  return last_->framesThrough() - std::max(framesRead_.load(std::memory_order_acquire), framesDropped_);
}

void PipeWireSoundQueue::dropOverdue() noexcept { overdue_.store(Clock::now(), std::memory_order_release); }

bool PipeWireSoundQueue::hasSound() const noexcept {
  return pushed_.load(std::memory_order_acquire) >
         std::max(completed_.load(std::memory_order_acquire), dropped_.load(std::memory_order_acquire));
}

std::size_t PipeWireSoundQueue::read(float* const* planes, std::uint32_t channels,
                                     std::size_t frames) noexcept {
  std::size_t done = 0;
  const std::uint64_t dropped = dropped_.load(std::memory_order_acquire);
  const auto overdue = overdue_.load(std::memory_order_acquire);
  Item* item = current_.load(std::memory_order_relaxed);
  while (done < frames) {
    const std::uint32_t length = item->buffer ? item->buffer->frameLength() : 0;
    if (item->sequence <= dropped || item->end <= overdue || position_ >= length) {
      completed_.store(item->sequence, std::memory_order_release);
      Item* next = item->next.load(std::memory_order_acquire);
      if (next == nullptr) break;
      item = next;
      position_ = 0;
      current_.store(item, std::memory_order_release);
      continue;
    }
    const std::size_t count = std::min<std::size_t>(frames - done, length - position_);
    for (std::uint32_t c = 0; c < channels; ++c) {
      const float* samples = std::as_const(*item->buffer).channel(c);
      if (samples == nullptr) {
        std::fill_n(planes[c] + done, count, 0.0F);
      } else {
        std::copy_n(samples + position_, count, planes[c] + done);
      }
    }
    position_ += static_cast<std::uint32_t>(count);
    done += count;
  }
  framesRead_.store(item->framesBefore + position_, std::memory_order_release);
  for (std::uint32_t c = 0; c < channels; ++c) std::fill_n(planes[c] + done, frames - done, 0.0F);
  return done;
}

} // namespace tolvera::adapters
