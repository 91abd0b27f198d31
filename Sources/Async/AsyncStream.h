#pragma once

#include "Async/Gate.h"

#include <boost/asio/this_coro.hpp>

#include <cstddef>
#include <deque>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

namespace tolvera {

// Hands values from any thread to one coroutine. A stream keeps everything, or keeps the newest N values and
// drops the oldest.
//
//   auto [writer, stream] = AsyncStream<int>::make(AsyncStream<int>::newest(400));
template<typename T>
class AsyncStream {
  struct State {
    explicit State(std::size_t limit) : capacity(limit) {}

    const std::size_t capacity;
    std::mutex mutex;
    std::deque<T> values;
    bool finished = false;
    Gate arrived;

    void yield(T value) {
      std::optional<T> dropped; // destroyed outside the lock
      {
        std::scoped_lock lock(mutex);
        if (finished) return;
        if (values.size() >= capacity) {
          dropped.emplace(std::move(values.front()));
          values.pop_front();
        }
        values.push_back(std::move(value));
      }
      arrived.open();
    }

    void finish() {
      {
        std::scoped_lock lock(mutex);
        finished = true;
      }
      arrived.open();
    }
  };

 public:
  struct Buffering {
    std::size_t capacity;
  };
  static constexpr Buffering unbounded{std::numeric_limits<std::size_t>::max()};
  static constexpr Buffering newest(std::size_t count) { return {count}; }

  // The writing end. Copies write to the same stream, from any thread. The stream finishes with `finish`
  // or when the last copy is destroyed.
  class Writer {
   public:
    // Appends a value, without waiting. Does nothing after `finish`.
    void yield(T value) const { end_->state->yield(std::move(value)); }
    // Ends the stream. Buffered values can still be read. Harmless to repeat.
    void finish() const { end_->state->finish(); }

   private:
    friend AsyncStream;
    struct End {
      explicit End(std::shared_ptr<State> s) : state(std::move(s)) {}
      End(const End&) = delete;
      End& operator=(const End&) = delete;
      ~End() { state->finish(); }
      std::shared_ptr<State> state;
    };
    explicit Writer(std::shared_ptr<State> state) : end_(std::make_shared<End>(std::move(state))) {}
    std::shared_ptr<End> end_;
  };

  static std::pair<Writer, AsyncStream> make(Buffering buffering = unbounded) {
    auto state = std::make_shared<State>(buffering.capacity);
    return {Writer(state), AsyncStream(state)};
  }

  // Waits for the oldest value. Gives nothing when the stream has finished and is empty, or when the waiting
  // coroutine is cancelled. One call at a time. The stream may be destroyed during the wait.
  Task<std::optional<T>> next() { return next(state_); }

 private:
  explicit AsyncStream(std::shared_ptr<State> state) : state_(std::move(state)) {}

  static Task<std::optional<T>> next(std::shared_ptr<State> state) {
    for (;;) {
      {
        std::scoped_lock lock(state->mutex);
        if (!state->values.empty()) {
          std::optional<T> value(std::move(state->values.front()));
          state->values.pop_front();
          co_return value;
        }
        if (state->finished) co_return std::nullopt;
      }
      co_await state->arrived.pass();
      auto cancellation = co_await boost::asio::this_coro::cancellation_state;
      if (cancellation.cancelled() != boost::asio::cancellation_type::none) co_return std::nullopt;
    }
  }

  std::shared_ptr<State> state_;
};

} // namespace tolvera
