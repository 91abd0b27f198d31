#pragma once

#include "Async/Task.h"

#include <boost/asio/associated_cancellation_slot.hpp>
#include <boost/asio/associated_executor.hpp>
#include <boost/asio/async_result.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <memory>
#include <mutex>
#include <utility>

namespace tolvera {

namespace detail {

// A coroutine that waits for somebody's call. Destroying it unresumed destroys the coroutine.
struct ParkedCoroutine {
  virtual ~ParkedCoroutine() = default;
  virtual void resume() = 0;
};

struct Suspension {
  std::mutex mutex;
  std::unique_ptr<ParkedCoroutine> parked;

  void resume();
};

template<typename Handler>
class ParkedHandler final : public ParkedCoroutine {
 public:
  explicit ParkedHandler(Handler handler) : handler_(std::move(handler)) {}

  void resume() override {
    auto executor = boost::asio::get_associated_executor(handler_);
    boost::asio::post(executor, [handler = std::move(handler_)]() mutable {
      // Cancellation is emitted on this executor too, so nothing can fall between these two lines.
      boost::asio::get_associated_cancellation_slot(handler).clear();
      std::move(handler)();
    });
  }

 private:
  Handler handler_;
};

} // namespace detail

// Resumes one suspended coroutine, once: later calls do nothing. Copies stand for the same coroutine.
// Any thread may call it; the coroutine goes on on its own executor.
class Resumption {
 public:
  explicit Resumption(std::shared_ptr<detail::Suspension> suspension) : suspension_(std::move(suspension)) {}

  void operator()() const { suspension_->resume(); }

 private:
  std::shared_ptr<detail::Suspension> suspension_;
};

// Suspends the calling coroutine and hands a Resumption for it to `park`, which keeps it or calls it. If
// every copy is dropped uncalled, the coroutine is destroyed where it waits.
// A cancellation of the coroutine meanwhile is given to `onCancel`, with the same Resumption and the
// cancellation's type, on the coroutine's executor.
template<typename Park, typename OnCancel>
Task<void> suspend(Park park, OnCancel onCancel) {
  auto initiation = [](auto handler, Park parkIt, OnCancel cancelIt) {
    using Handler = decltype(handler);
    auto suspension = std::make_shared<detail::Suspension>();
    auto slot = boost::asio::get_associated_cancellation_slot(handler);
    if (slot.is_connected()) {
      auto relay = [weak = std::weak_ptr(suspension), cancelIt](boost::asio::cancellation_type type) mutable {
        if (auto alive = weak.lock()) cancelIt(Resumption(std::move(alive)), type);
      };
      slot.assign(std::move(relay));
    }
    suspension->parked = std::make_unique<detail::ParkedHandler<Handler>>(std::move(handler));
    parkIt(Resumption(std::move(suspension)));
  };
  co_await boost::asio::async_initiate<const boost::asio::use_awaitable_t<>, void()>(
      std::move(initiation), boost::asio::use_awaitable, std::move(park), std::move(onCancel));
}

// The usual case: cancelling the coroutine resumes it as well, without an exception. The caller looks at
// the cancellation state where the difference matters.
template<typename Park>
Task<void> suspend(Park park) {
  auto resumeEarly = [](const Resumption& resume, boost::asio::cancellation_type) { resume(); };
  return suspend(std::move(park), std::move(resumeEarly));
}

} // namespace tolvera
