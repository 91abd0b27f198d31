#pragma once

#include "Async/Suspension.h"

#include <boost/asio/cancellation_signal.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/dispatch.hpp>
#include <boost/asio/this_coro.hpp>

#include <exception>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>
#include <variant>

namespace tolvera {

namespace detail {

// What the two sides of a crossing share. The signal is not in the caller's frame, because a cancellation may
// still be under way when the work ends.
template<typename T>
struct Crossing {
  using Value = std::conditional_t<std::is_void_v<T>, std::monostate, T>;

  boost::asio::cancellation_signal signal; // used on the target executor only
  bool ended = false;                      // likewise
  std::exception_ptr failure;
  std::optional<Value> value;
};

template<typename T>
struct CrossingEnd {
  std::shared_ptr<Crossing<T>> crossing;
  Resumption resume;

  using cancellation_slot_type = boost::asio::cancellation_slot;
  [[nodiscard]] cancellation_slot_type get_cancellation_slot() const noexcept {
    return crossing->signal.slot();
  }
  void operator()(std::exception_ptr failure) const {
    crossing->ended = true;
    crossing->failure = std::move(failure);
    resume();
  }
};

template<typename T>
Task<void> runInto(std::shared_ptr<Crossing<T>> crossing, Task<T> task) {
  if constexpr (std::is_void_v<T>) {
    co_await std::move(task);
    crossing->value.emplace();
  } else {
    crossing->value.emplace(co_await std::move(task));
  }
}

template<typename T>
Task<T> cross(Executor target, Task<T> task, bool forwardCancellation) {
  auto crossing = std::make_shared<Crossing<T>>();
  auto park = [target, crossing, work = std::make_shared<Task<T>>(std::move(task))](Resumption resume) {
    boost::asio::post(target, [target, crossing, work, resume]() {
      boost::asio::co_spawn(target, runInto<T>(crossing, std::move(*work)), CrossingEnd<T>{crossing, resume});
    });
  };
  auto onCancel = [target, crossing, forwardCancellation](const Resumption&,
                                                          boost::asio::cancellation_type type) {
    if (!forwardCancellation) return;
    boost::asio::post(target, [crossing, type] {
      if (!crossing->ended) crossing->signal.emit(type);
    });
  };
  co_await suspend(std::move(park), std::move(onCancel));
  if (crossing->failure) std::rethrow_exception(crossing->failure);
  if constexpr (!std::is_void_v<T>) co_return std::move(*crossing->value);
}

} // namespace detail

// Runs `task` on another executor and resumes the caller on its own with the result or the exception.
// Cancelling the caller cancels the task there; the caller resumes when the task has ended.
template<typename T>
Task<T> on(Executor target, Task<T> task) {
  return detail::cross<T>(std::move(target), std::move(task), true);
}

// The same, but a cancelled caller does not cancel the task: for work that must be completed, such as writing
// a frame to a socket.
template<typename T>
Task<T> shielded(Executor target, Task<T> task) {
  return detail::cross<T>(std::move(target), std::move(task), false);
}

} // namespace tolvera
