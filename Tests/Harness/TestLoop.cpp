#include "Harness/TestLoop.h"

#include <boost/asio/this_coro.hpp>

#include <algorithm>
#include <vector>

namespace tolvera::test {

WallTime VirtualClock::now() const {
  std::scoped_lock lock(mutex_);
  return now_;
}

Task<void> VirtualClock::sleep(Duration duration) {
  auto park = [this, duration](Resumption resume) {
    std::scoped_lock lock(mutex_);
    sleepers_.emplace(now_ + std::max(duration, Duration::zero()), std::move(resume));
  };
  return suspend(std::move(park));
}

std::optional<WallTime> VirtualClock::nextDue() const {
  std::scoped_lock lock(mutex_);
  return sleepers_.empty() ? std::nullopt : std::optional(sleepers_.begin()->first);
}

std::size_t VirtualClock::sleepers() const {
  std::scoped_lock lock(mutex_);
  return sleepers_.size();
}

void VirtualClock::moveTo(WallTime time) {
  std::vector<Resumption> due;
  {
    std::scoped_lock lock(mutex_);
    now_ = std::max(now_, time);
    const auto end = sleepers_.upper_bound(now_);
    for (auto it = sleepers_.begin(); it != end; ++it) due.push_back(std::move(it->second));
    sleepers_.erase(sleepers_.begin(), end);
  }
  for (auto& resume : due) resume();
}

void TestLoop::settle() {
  context_.restart();
  while (context_.poll() > 0) context_.restart();
}

void TestLoop::advance(Duration duration) {
  const auto end = clock_.now() + duration;
  settle();
  for (auto due = clock_.nextDue(); due && *due <= end; due = clock_.nextDue()) {
    clock_.moveTo(*due);
    settle();
  }
  clock_.moveTo(end);
  settle();
}

} // namespace tolvera::test
