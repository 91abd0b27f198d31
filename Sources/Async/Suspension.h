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

// A coroutine that waits to be resumed. Destroying this first destroys the coroutine.
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
      // Cancellation is emitted on this executor too, so it cannot come between these two lines.
      boost::asio::get_associated_cancellation_slot(handler).clear();
      std::move(handler)();
    });
  }

 private:
  Handler handler_;
};

} // namespace detail

// Resumes one suspended coroutine, once: later calls do nothing. Copies stand for the same coroutine.
// Any thread may call it; the coroutine continues on its own executor.
class Resumption {
 public:
  explicit Resumption(std::shared_ptr<detail::Suspension> suspension) : suspension_(std::move(suspension)) {}

  void operator()() const { suspension_->resume(); }

 private:
  std::shared_ptr<detail::Suspension> suspension_;
};

// Suspends the calling coroutine and hands its Resumption to `park`, which keeps it or calls it. If every
// copy is destroyed uncalled, the coroutine is destroyed where it waits. If the coroutine is cancelled during
// the wait, `onCancel` gets the same Resumption and the cancellation's type, on the coroutine's executor.
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

// The usual case: a cancellation resumes the coroutine, without an exception. A caller to whom the difference
// matters reads the cancellation state.
template<typename Park>
Task<void> suspend(Park park) {
  auto resumeEarly = [](const Resumption& resume, boost::asio::cancellation_type) { resume(); };
  return suspend(std::move(park), std::move(resumeEarly));
}

} // namespace tolvera
