#pragma once

#include "Async/Spawn.h"
#include "Harness/LoopbackServer.h"
#include "Platform/Linux/Network/BeastURLSession.h"
#include "Platform/PlatformError.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/use_future.hpp>
#include <gtest/gtest.h>

#include <future>
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
using Connection = LoopbackServer::Connection;
using Frame = LoopbackServer::Frame;
using Message = WebSocketTask::Message;
using Reply = LoopbackServer::Reply;
using namespace std::chrono_literals;

// A task begun by a test on its main thread, and how it ended.
template<typename T>
class Started {
 public:
  Started(boost::asio::io_context& main, Task<T> task)
      : main_(&main), future_(boost::asio::co_spawn(main, std::move(task), boost::asio::use_future)) {
    ended();
  }

  bool ended() {
    main_->restart();
    main_->poll();
    return future_.wait_for(0s) == std::future_status::ready;
  }
  // Waits for the end, and gives the result or throws.
  T result(std::chrono::milliseconds limit = 20s) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!ended()) {
      if (std::chrono::steady_clock::now() > end) throw std::runtime_error("the task did not end in time");
      main_->restart();
      main_->run_one_for(50ms);
    }
    return future_.get();
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
  std::future<T> future_;
};

inline int code(TransportError error) { return static_cast<int>(error); }

inline platform::Data bytes(std::size_t count) { return platform::Data(count, std::byte{42}); }

// A server, two network threads as the program has them, and a main thread: the test's.
class NetworkTest : public testing::Test {
 protected:
  ~NetworkTest() override {
    joinThreads();
    main_.restart();
    main_.poll(); // what a failed test left waiting ends
  }
  void joinThreads() { // whatever was closed ends by itself
    work_.reset();
    threads_.clear();
  }

  template<typename T>
  Started<T> start(Task<T> task) {
    return Started<T>(main_, std::move(task));
  }
  template<typename T>
  T run(Task<T> task) {
    return start(std::move(task)).result();
  }
  bool finished(const TaskHandle& task) {
    main_.restart();
    main_.poll();
    return task.finished();
  }

  std::shared_ptr<WebSocketTask> open(BeastURLSession& session, const std::string& url) {
    auto socket = session.webSocketTask(platform::URL(url));
    socket->resume();
    return socket;
  }
  std::shared_ptr<WebSocketTask> open(const std::string& url) { return open(session_, url); }
  // Open for both sides.
  std::shared_ptr<WebSocketTask> connect(BeastURLSession& session) {
    auto socket = open(session, server_.url("ws", "/?token=secret"));
    EXPECT_TRUE(server_.waitFor([this] { return server_.connection(0) != nullptr; }));
    return socket;
  }
  std::shared_ptr<WebSocketTask> connect() { return connect(session_); }
  bool allClosed() {
    return server_.waitFor([this] { return server_.liveCount() == 0; });
  }
  std::optional<std::uint16_t> closeCode() {
    server_.waitFor([this] { return server_.connection(0)->closeCode().has_value(); });
    return server_.connection(0)->closeCode();
  }
  template<typename T>
  static void expectCancelled(Started<T>& pending) {
    EXPECT_EQ(pending.failure(2s).code(), code(TransportError::cancelled));
  }

  static HTTPRequest get(const std::string& url) {
    HTTPRequest request;
    request.method = "GET";
    request.url = platform::URL(url);
    return request;
  }
  PlatformError failureOf(HTTPRequest request) { return start(session_.data(std::move(request))).failure(); }

  LoopbackServer server_;
  std::string where_ = "127.0.0.1:" + std::to_string(server_.port());
  boost::asio::io_context main_;
  boost::asio::io_context network_;
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work_{network_.get_executor()};
  std::vector<std::jthread> threads_ = [this] {
    std::vector<std::jthread> two;
    for (int i = 0; i < 2; ++i) two.emplace_back([this] { network_.run(); });
    return two;
  }();
  BeastURLSession session_{network_.get_executor()};
};

} // namespace tolvera::test
