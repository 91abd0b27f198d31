#pragma once

#include "Async/On.h"
#include "Platform/Linux/BeastURLSession.h"
#include "Platform/PlatformError.h"
#include "Support/LoopbackServer.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

namespace tolvera::test {

using adapters::BeastOptions;
using adapters::BeastURLSession;
using adapters::TransportError;
using platform::HTTPRequest;
using platform::HTTPResponse;
using platform::PlatformError;
using platform::WebSocketTask;
using namespace std::chrono_literals;

// A task begun by a test on its main thread, and how it ended.
template<typename T>
class Started {
 public:
  Started(boost::asio::io_context& main, Task<T> task)
      : main_(&main), crossing_(std::make_shared<detail::Crossing<T>>()) {
    boost::asio::co_spawn(main, detail::runInto<T>(crossing_, std::move(task)),
                          [crossing = crossing_](std::exception_ptr failure) {
                            crossing->failure = std::move(failure);
                            crossing->ended = true;
                          });
    main.restart();
    main.poll();
  }

  [[nodiscard]] bool ended() {
    main_->restart();
    main_->poll();
    return crossing_->ended;
  }
  // Waits for the end, and gives the result or throws.
  T result(std::chrono::milliseconds limit = 20s) {
    const auto end = std::chrono::steady_clock::now() + limit;
    main_->restart();
    while (!crossing_->ended && std::chrono::steady_clock::now() < end) main_->run_one_for(50ms);
    if (!crossing_->ended) throw std::runtime_error("the task did not end in time");
    if (crossing_->failure) std::rethrow_exception(crossing_->failure);
    if constexpr (!std::is_void_v<T>) return std::move(*crossing_->value);
  }
  // The failure it ends with; another end, or none in time, throws.
  PlatformError failure(std::chrono::milliseconds limit = 20s) {
    try {
      result(limit);
    } catch (const PlatformError& error) {
      return error;
    }
    throw std::runtime_error("the task succeeded");
  }

 private:
  boost::asio::io_context* main_;
  std::shared_ptr<detail::Crossing<T>> crossing_;
};

// Two network threads as the program has them, and a main thread: the test's.
class NetworkTest : public testing::Test {
 protected:
  ~NetworkTest() override {
    work_.reset();
    for (auto& thread : threads_) thread.join(); // whatever was closed ends by itself
  }

  template<typename T>
  Started<T> start(Task<T> task) {
    return Started<T>(main_, std::move(task));
  }
  template<typename T>
  T run(Task<T> task) {
    return start(std::move(task)).result();
  }

  std::shared_ptr<WebSocketTask> open(BeastURLSession& session, const std::string& url) {
    auto socket = session.webSocketTask(platform::URL(url));
    socket->resume();
    return socket;
  }
  std::shared_ptr<WebSocketTask> open(const std::string& url) { return open(session_, url); }

  static HTTPRequest get(const std::string& url) {
    HTTPRequest request;
    request.method = "GET";
    request.url = platform::URL(url);
    return request;
  }

  static int code(TransportError error) { return static_cast<int>(error); }

  boost::asio::io_context main_;
  boost::asio::io_context network_;
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work_{network_.get_executor()};
  std::vector<std::thread> threads_ = [this] {
    std::vector<std::thread> two;
    for (int i = 0; i < 2; ++i) two.emplace_back([this] { network_.run(); });
    return two;
  }();
  BeastURLSession session_{network_.get_executor()};
};

} // namespace tolvera::test
