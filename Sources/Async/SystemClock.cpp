#include "Async/SystemClock.h"

#include "Async/On.h"

#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/this_coro.hpp>

#include <sys/timerfd.h>

#include <cerrno>
#include <ctime>
#include <system_error>

namespace tolvera {

namespace {

Duration timeOn(clockid_t clock) {
  timespec time{};
  ::clock_gettime(clock, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

Task<void> waitForTimer(Duration duration) {
  const int descriptor = ::timerfd_create(CLOCK_BOOTTIME, TFD_NONBLOCK | TFD_CLOEXEC);
  if (descriptor < 0) throw std::system_error(errno, std::generic_category(), "timerfd_create");
  boost::asio::posix::stream_descriptor timer(co_await boost::asio::this_coro::executor, descriptor);

  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(duration);
  itimerspec when{};
  when.it_value.tv_sec = seconds.count();
  when.it_value.tv_nsec = (duration - seconds).count();
  if (::timerfd_settime(descriptor, 0, &when, nullptr) < 0) {
    throw std::system_error(errno, std::generic_category(), "timerfd_settime");
  }
  boost::system::error_code ignored; // a cancelled wait ends without an error
  auto token = boost::asio::redirect_error(boost::asio::use_awaitable, ignored);
  co_await timer.async_wait(boost::asio::posix::stream_descriptor::wait_read, token);
}

} // namespace

WallTime SystemClock::now() const { return std::chrono::time_point_cast<Duration>(WallTime::clock::now()); }

Duration SystemClock::uptime() const { return timeOn(CLOCK_BOOTTIME); }

Duration SystemClock::awakeTime() const { return timeOn(CLOCK_MONOTONIC); }

Task<void> SystemClock::sleep(Duration duration) {
  if (duration <= Duration::zero()) duration = std::chrono::nanoseconds(1);
  return on(executor_, waitForTimer(duration));
}

} // namespace tolvera
