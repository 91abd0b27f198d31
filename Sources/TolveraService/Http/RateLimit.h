#pragma once

#include <algorithm>
#include <chrono>

namespace tolvera::service {

// Allows `perSecond` things a second on average and `burst` at once. One thread.
class RateLimit {
 public:
  RateLimit(double perSecond, double burst) : perSecond_(perSecond), burst_(burst), left_(burst) {}

  bool allows() {
    const auto now = Clock::now();
    left_ = std::min(burst_, left_ + perSecond_ * std::chrono::duration<double>(now - last_).count());
    last_ = now;
    if (left_ < 1) return false;
    left_ -= 1;
    return true;
  }

 private:
  using Clock = std::chrono::steady_clock;
  const double perSecond_;
  const double burst_;
  double left_;
  Clock::time_point last_ = Clock::now();
};

} // namespace tolvera::service
