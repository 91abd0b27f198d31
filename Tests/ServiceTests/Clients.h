#pragma once

#include "Harness/ChildProcess.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// Blocking clients of the service that share nothing with the program's own.
namespace tolvera::test {

// Mono samples at 16,000 Hz of a sentence, spoken by a synthesiser. Throws if it is not installed.
inline std::vector<std::int16_t> spoken(const std::string& sentence) {
  const std::string file = outputOf({"flite", "-voice", "rms", "-t", sentence, "-o", "/dev/stdout"});
  constexpr std::size_t header = 44;
  std::vector<std::int16_t> samples((file.size() - header) / 2);
  std::memcpy(samples.data(), file.data() + header, samples.size() * 2);
  return samples;
}

// The processes that a process has started.
inline std::vector<pid_t> childrenOf(pid_t process) {
  std::vector<pid_t> all;
  const std::string tasks = "/proc/" + std::to_string(process) + "/task";
  for (const auto& task : std::filesystem::directory_iterator(tasks)) {
    std::ifstream file(task.path() / "children");
    for (pid_t child = 0; file >> child;) all.push_back(child);
  }
  return all;
}

struct HTTPReply {
  unsigned status = 0; // 0: the service closed the connection without an answer
  std::string body;
  [[nodiscard]] boost::json::object json() const { return boost::json::parse(body).as_object(); }
};

// Each request has a connection of its own.
class HTTPClient {
 public:
  using Headers = std::vector<std::pair<std::string, std::string>>;

  explicit HTTPClient(std::uint16_t port) : port_(port) {}

  // Sends the bytes as they are and then no more, and gives the last answer that comes.
  [[nodiscard]] HTTPReply raw(std::string_view bytes) const {
    boost::asio::io_context context;
    boost::asio::ip::tcp::socket socket(context);
    socket.connect({boost::asio::ip::address_v4::loopback(), port_});
    boost::system::error_code error;
    boost::asio::write(socket, boost::asio::buffer(bytes), error);
    socket.shutdown(socket.shutdown_send, error);
    HTTPReply reply;
    for (boost::beast::flat_buffer buffer;;) {
      boost::beast::http::response<boost::beast::http::string_body> message;
      boost::beast::http::read(socket, buffer, message, error);
      if (error) return reply;
      reply = {message.result_int(), message.body()};
    }
  }
  // A Host header that is not given is the right one.
  [[nodiscard]] HTTPReply request(const std::string& method, const std::string& target, Headers headers = {},
                                  const std::string& body = {}) const {
    if (std::ranges::count(headers, "Host", &Headers::value_type::first) == 0)
      headers.emplace_back("Host", "127.0.0.1:" + std::to_string(port_));
    if (method == "POST") headers.emplace_back("Content-Length", std::to_string(body.size()));
    std::string message = method + ' ' + target + " HTTP/1.1\r\n";
    for (const auto& [name, value] : headers) message += name + ": " + value + "\r\n";
    return raw(message + "\r\n" + body);
  }
  [[nodiscard]] HTTPReply get(const std::string& target, const std::string& token = {}) const {
    return request("GET", target, {{"Authorization", "Bearer " + token}});
  }
  // The token of a new installation.
  [[nodiscard]] std::string signUp() const {
    return std::string(request("POST", "/livetranslate/api/signup").json().at("token").as_string());
  }

 private:
  std::uint16_t port_;
};

// A client of one run. It reads only while one of its operations waits, all on the caller's thread.
class StreamClient {
 public:
  using Clock = std::chrono::steady_clock;
  struct Frame {
    boost::json::object json; // empty for a binary frame
    std::string binary;
    Clock::time_point received = Clock::now();

    // A member that is text; empty if it is not there.
    [[nodiscard]] std::string operator[](std::string_view key) const {
      const auto* value = json.if_contains(key);
      return value != nullptr && value->is_string() ? std::string(value->get_string()) : std::string();
    }
    [[nodiscard]] bool isFinal(std::string_view type) const {
      return (*this)["type"] == type && json.at("final").as_bool();
    }
  };

  // Opens /livetranslate/ws with the query. Throws if the upgrade is refused.
  StreamClient(std::uint16_t port, const std::string& query) {
    socket_.next_layer().connect({boost::asio::ip::address_v4::loopback(), port});
    socket_.next_layer().set_option(boost::asio::ip::tcp::no_delay(true));
    socket_.handshake("127.0.0.1:" + std::to_string(port), "/livetranslate/ws?" + query);
    read();
  }

  void sendBytes(std::string_view bytes, bool binary) {
    bool sent = false;
    socket_.binary(binary);
    socket_.async_write(boost::asio::buffer(bytes), [&sent](auto, std::size_t) { sent = true; });
    context_.restart();
    while (!sent) context_.run_one();
  }
  void sendAudio(std::span<const std::int16_t> samples) {
    sendBytes({reinterpret_cast<const char*>(samples.data()), samples.size_bytes()}, true);
  }
  // Speaks a sentence, and a second of silence after it.
  void say(const std::string& sentence) {
    sendAudio(spoken(sentence));
    sendAudio(std::vector<std::int16_t>(16000));
  }
  void stop() { sendBytes(R"({"type":"stop"})", false); }
  void close() {
    socket_.async_close(boost::beast::websocket::close_code::normal, [](auto) {});
  }

  // All frames so far.
  [[nodiscard]] const std::vector<Frame>& frames() const { return frames_; }
  // Waits for a frame that meets the condition. Frames that came before the call count too.
  std::optional<Frame> waitFor(const std::function<bool(const Frame&)>& condition,
                               std::chrono::milliseconds limit = std::chrono::seconds(20)) {
    const auto deadline = Clock::now() + limit;
    context_.restart();
    for (std::size_t next = 0;;) {
      for (; next < frames_.size(); ++next)
        if (condition(frames_[next])) return frames_[next];
      if (context_.run_one_until(deadline) == 0) return std::nullopt;
    }
  }
  std::optional<Frame> waitForType(std::string_view type) {
    return waitFor([&](const Frame& frame) { return frame["type"] == type; });
  }
  std::optional<Frame> waitForFinal(std::string_view type) {
    return waitFor([&](const Frame& frame) { return frame.isFinal(type); });
  }
  // Reads until the time is over.
  void readUntil(Clock::time_point time) {
    context_.restart();
    context_.run_until(time);
  }
  // Waits until the service has closed the socket.
  [[nodiscard]] bool waitUntilClosed(std::chrono::milliseconds limit = std::chrono::seconds(20)) {
    waitFor([](const Frame&) { return false; }, limit);
    return closed_;
  }

 private:
  void read() {
    socket_.async_read(buffer_, [this](boost::system::error_code error, std::size_t) {
      closed_ = error.failed();
      if (closed_) return;
      std::string bytes = boost::beast::buffers_to_string(buffer_.data());
      buffer_.clear();
      if (socket_.got_text())
        frames_.push_back({boost::json::parse(bytes).as_object(), {}});
      else
        frames_.push_back({{}, std::move(bytes)});
      read();
    });
  }

  boost::asio::io_context context_;
  boost::beast::websocket::stream<boost::asio::ip::tcp::socket> socket_{context_};
  boost::beast::flat_buffer buffer_;
  std::vector<Frame> frames_;
  bool closed_ = false;
};

} // namespace tolvera::test
