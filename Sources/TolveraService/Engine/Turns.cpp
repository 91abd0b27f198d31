#include "TolveraService/Engine/Turns.h"

#include <chrono>

namespace tolvera::service {

namespace {

constexpr std::chrono::milliseconds abandonedPollInterval{50};

} // namespace

Turns::Turn::Turn(Turns& turns, const std::function<bool()>& abandoned) : turns_(turns) {
  std::unique_lock lock(turns_.mutex_);
  ++turns_.waiting_;
  while (!taken_ && !abandoned())
    taken_ = turns_.freed_.wait_for(lock, abandonedPollInterval, [&] { return turns_.free_ > 0; });
  --turns_.waiting_;
  if (taken_) --turns_.free_;
}

Turns::Turn::~Turn() {
  if (!taken_) return;
  {
    std::scoped_lock lock(turns_.mutex_);
    ++turns_.free_;
  }
  turns_.freed_.notify_one();
}

bool Turns::isOneFree() {
  std::scoped_lock lock(mutex_);
  return free_ > waiting_;
}

} // namespace tolvera::service
