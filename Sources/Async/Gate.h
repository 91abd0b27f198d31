#pragma once

#include "Async/Suspension.h"

#include <mutex>
#include <optional>
#include <utility>

namespace tolvera {

// Where one coroutine waits until another thread or task has something for it. It asks for what it needs in a
// loop and passes the gate while that is not there yet, so an opening too many does no harm:
//
//   while (!ready()) co_await gate.pass();
class Gate {
 public:
  // Lets the waiting coroutine pass, or else the next one that comes. Any thread.
  void open() {
    std::optional<Resumption> waiting;
    {
      std::scoped_lock lock(mutex_);
      waiting = std::exchange(waiting_, std::nullopt);
      open_ = !waiting;
    }
    if (waiting) (*waiting)();
  }

  // Waits until the gate is open, and closes it. One caller at a time, who keeps the gate alive meanwhile. A
  // cancelled caller passes as well, without an exception.
  Task<void> pass() {
    auto park = [this](Resumption resume) {
      {
        std::scoped_lock lock(mutex_);
        if (!std::exchange(open_, false)) {
          waiting_ = std::move(resume);
          return;
        }
      }
      resume();
    };
    auto passCancelled = [this](const Resumption& resume, boost::asio::cancellation_type) {
      {
        std::scoped_lock lock(mutex_);
        waiting_.reset(); // so that the next opening is kept for the next caller
      }
      resume();
    };
    return suspend(std::move(park), std::move(passCancelled));
  }

 private:
  std::mutex mutex_;
  bool open_ = false;
  std::optional<Resumption> waiting_;
};

} // namespace tolvera
