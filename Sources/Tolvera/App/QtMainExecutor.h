#pragma once

#include <boost/asio/execution/blocking.hpp>
#include <boost/asio/execution/context.hpp>
#include <boost/asio/execution_context.hpp>

#include <QObject>

#include <chrono>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <type_traits>
#include <utility>

namespace tolvera {

// The main thread as an executor: handlers run in Qt's event loop, in the order in which they were posted,
// a limited number a turn so that input and drawing are never kept waiting. Any thread may post. Made on the
// main thread after the application object and destroyed before it; it outlives the holders of its executor.
//
// The end of a program, all on the main thread: `stop`, then end every other thread that posts, then
// `discard`. Handlers often own coroutines, so they must go while what those wait for still exists.
class QtMainExecutor final : public boost::asio::execution_context {
 public:
  class Handle;

  QtMainExecutor();
  ~QtMainExecutor();

  [[nodiscard]] Handle executor();

  // No handler runs after this. Those that wait, and those that still come, are kept.
  void stop();
  // Destroys all handlers unrun, and from now on every new one at once.
  void discard();

 private:
  // Handlers that a turn of the event loop runs at most, and for how long at most.
  static constexpr int handlersPerTurn = 64;
  static constexpr std::chrono::milliseconds longestTurn{4};

  struct Handler {
    Handler() = default;
    Handler(const Handler&) = delete;
    Handler& operator=(const Handler&) = delete;
    virtual ~Handler() = default;
    virtual void run() = 0;
  };
  template<typename Function>
  struct HandlerOf final : Handler {
    explicit HandlerOf(Function f) : function(std::move(f)) {}
    void run() override { std::move(function)(); }
    Function function;
  };
  class Wakeup;

  void push(std::unique_ptr<Handler> handler);
  std::unique_ptr<Handler> pop();
  void runTurn();
  [[nodiscard]] bool isRunningHandlersHere() const;

  const std::thread::id mainThread_ = std::this_thread::get_id();
  int running_ = 0; // handlers on the main thread's stack

  std::mutex mutex_;
  std::deque<std::unique_ptr<Handler>> waiting_;
  std::unique_ptr<Wakeup> wakeup_; // null once stopped
  bool wakeupPosted_ = false;
  bool discarding_ = false;
};

// A copyable reference to the executor, in the form that Asio asks for.
class QtMainExecutor::Handle {
 public:
  [[nodiscard]] boost::asio::execution_context& query(boost::asio::execution::context_t) const noexcept {
    return *context_;
  }
  [[nodiscard]] boost::asio::execution::blocking_t query(boost::asio::execution::blocking_t) const noexcept {
    if (mayRunInPlace_) return boost::asio::execution::blocking.possibly;
    return boost::asio::execution::blocking.never;
  }
  // A handler of such an executor runs in place if the caller is itself a handler.
  [[nodiscard]] Handle require(boost::asio::execution::blocking_t::possibly_t) const noexcept {
    return {*context_, true};
  }
  [[nodiscard]] Handle require(boost::asio::execution::blocking_t::never_t) const noexcept {
    return {*context_, false};
  }

  template<typename Function>
  void execute(Function&& function) const {
    using Stored = std::decay_t<Function>;
    if (mayRunInPlace_ && context_->isRunningHandlersHere()) {
      Stored inPlace(std::forward<Function>(function));
      std::move(inPlace)();
      return;
    }
    context_->push(std::make_unique<HandlerOf<Stored>>(std::forward<Function>(function)));
  }

  bool operator==(const Handle&) const noexcept = default;

 private:
  friend QtMainExecutor;
  Handle(QtMainExecutor& context, bool mayRunInPlace) : context_(&context), mayRunInPlace_(mayRunInPlace) {}

  QtMainExecutor* context_;
  bool mayRunInPlace_;
};

} // namespace tolvera
