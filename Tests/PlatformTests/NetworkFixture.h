#pragma once

#include "Async/Spawn.h"
#include "Harness/LoopbackServer.h"
#include "Platform/Linux/Network/BeastURLSession.h"
#include "Platform/PlatformError.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/strand.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/asio/use_future.hpp>
#include <gtest/gtest.h>

#include <future>
#include <stdexcept>

namespace tolvera::test {

using adapters::BeastOptions;
using adapters::BeastURLSession;
using platform::WebSocketTask;
using Connection = LoopbackServer::Connection;
using Frame = LoopbackServer::Frame;
using Reply = LoopbackServer::Reply;
using namespace std::chrono_literals;

inline const std::string closed = "The connection was closed"; // by this side

inline platform::Data bytes(std::size_t count, int value = '*') {
  return platform::Data(count, static_cast<std::byte>(value));
}

// The network seen from the program's main thread. What a task ends with is told as a text: "sent", a binary
// message as it is, a text message in quotes, a reply's status and body, or the failure's description.
class NetworkTest : public testing::Test {
 protected:
  using Pending = std::future<std::string>;

  explicit NetworkTest(const BeastOptions& options = {}) : session_(network_.get_executor(), options) {}
  ~NetworkTest() override {
    network_.join(); // ends only when nothing of any connection is left
    main_.join();
  }

  template<typename T>
  Pending start(Task<T> task) {
    return boost::asio::co_spawn(main_, outcome(std::move(task)), boost::asio::use_future);
  }
  static bool endsWithin(Pending& pending, std::chrono::milliseconds limit) {
    return pending.wait_for(limit) == std::future_status::ready;
  }
  static std::string end(Pending& pending) {
    if (!endsWithin(pending, 20s)) throw std::runtime_error("the task did not end in time");
    return pending.get();
  }
  template<typename T>
  std::string run(Task<T> task) {
    auto pending = start(std::move(task));
    return end(pending);
  }

  std::shared_ptr<WebSocketTask> make(const std::string& url) {
    return session_.webSocketTask(platform::URL(url), boost::asio::make_strand(network_));
  }
  std::shared_ptr<WebSocketTask> open(const std::string& url) {
    auto socket = make(url);
    socket->resume();
    return socket;
  }
  // Open for both sides, the server's `index`-th; the server has one frame.
  std::shared_ptr<WebSocketTask> connect(std::size_t index = 0) {
    auto socket = open(server_.url("ws", "/?token=secret"));
    EXPECT_EQ(run(socket->send(bytes(1))), "sent");
    EXPECT_TRUE(hasFrames(1, index));
    return socket;
  }
  bool hasFrames(std::size_t count, std::size_t index = 0) {
    return eventually(
        [&] { return server_.connection(index) && server_.connection(index)->frameCount() == count; });
  }
  bool allClosed() {
    return eventually([this] { return server_.liveCount() == 0; });
  }
  static platform::HTTPRequest get(const std::string& url) { return {"GET", platform::URL(url), {}, {}}; }

  LoopbackServer server_;
  const std::string where_ = server_.where();
  boost::asio::thread_pool main_{1};
  boost::asio::thread_pool network_{2}; // one thread more than the program has
  BeastURLSession session_;

 private:
  static std::string told(const platform::HTTPResponse& reply) {
    return std::to_string(*reply.status) + " " + reply.body;
  }
  static std::string told(const WebSocketTask::Message& message) {
    if (const auto* text = std::get_if<std::string>(&message)) return '"' + *text + '"';
    const auto& data = std::get<platform::Data>(message);
    return {reinterpret_cast<const char*>(data.data()), data.size()};
  }
  template<typename T>
  static Task<std::string> outcome(Task<T> task) {
    try {
      if constexpr (std::is_void_v<T>) {
        co_await std::move(task);
        co_return "sent";
      } else {
        co_return told(co_await std::move(task));
      }
    } catch (const platform::PlatformError& error) {
      EXPECT_EQ(error.domain(), platform::transportErrorDomain);
      EXPECT_EQ(error.localizedDescription().find("secret"), std::string::npos);
      co_return error.localizedDescription();
    }
  }
};

} // namespace tolvera::test
