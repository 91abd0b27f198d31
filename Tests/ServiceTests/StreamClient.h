#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket/stream.hpp>
#include <boost/json.hpp>
#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tolvera::test {

// Mono samples at 16,000 Hz of a sentence, spoken by a synthesiser. Throws if it is not installed.
std::vector<std::int16_t> spoken(const std::string& sentence);

struct HTTPReply {
  unsigned status = 0; // 0: the service closed the connection without an answer
  std::string body;
  [[nodiscard]] boost::json::object json() const { return boost::json::parse(body).as_object(); }
};

// A blocking client of the service's REST interface that shares nothing with the program's own.
class HTTPClient {
 public:
  using Headers = std::vector<std::pair<std::string, std::string>>;

  explicit HTTPClient(std::uint16_t port) : port_(port) {}
  // One request on a connection of its own. A Host header that is not given is the right one.
  [[nodiscard]] HTTPReply request(std::string_view method, std::string_view target, Headers headers = {},
                                  std::string_view body = {}) const;
  [[nodiscard]] HTTPReply get(std::string_view target, std::string_view token = {}) const;
  [[nodiscard]] HTTPReply post(std::string_view target, std::string_view token = {},
                               std::string_view body = {}) const;
  // Sends the bytes as they are and then no more, and gives the last answer that comes.
  [[nodiscard]] HTTPReply raw(std::string_view bytes) const;
  // The token of a new installation.
  [[nodiscard]] std::string signUp() const;

 private:
  [[nodiscard]] HTTPReply exchange(std::string_view bytes, bool more) const;
  std::uint16_t port_;
};

// A client of one run. It reads only while one of its operations waits, all on the caller's thread.
class StreamClient {
 public:
  using Clock = std::chrono::steady_clock;
  struct Frame {
    Clock::time_point received;
    boost::json::object json; // empty for a binary frame
    std::string binary;
  };
  using Condition = std::function<bool(const Frame&)>;

  // Opens /livetranslate/ws with the query. Throws if the upgrade is refused.
  StreamClient(std::uint16_t port, const std::string& query);

  void sendAudio(std::span<const std::int16_t> samples);
  void sendBytes(std::string_view bytes, bool binary);
  void stop() { sendBytes(R"({"type":"stop"})", false); }
  void close();

  // All frames so far.
  [[nodiscard]] const std::vector<Frame>& frames() const { return frames_; }
  // Waits for a frame that meets the condition. Frames that came before the call count too.
  std::optional<Frame> waitFor(const Condition& condition,
                               std::chrono::milliseconds limit = std::chrono::seconds(20));
  std::optional<Frame> waitForType(std::string_view type, bool finalOnly = false);
  // Reads until the time is over.
  void readUntil(Clock::time_point time);
  // Waits until the service has closed the socket.
  [[nodiscard]] bool waitUntilClosed(std::chrono::milliseconds limit = std::chrono::seconds(20));

 private:
  void read();

  boost::asio::io_context context_;
  boost::beast::websocket::stream<boost::asio::ip::tcp::socket> socket_{context_};
  boost::beast::flat_buffer buffer_;
  std::vector<Frame> frames_;
  bool closed_ = false;
};

// Speaks a sentence, and a second of silence after it.
void sendSpeech(StreamClient& client, const std::string& words);

// The processes that a process has started.
std::vector<pid_t> childrenOf(pid_t process);

// A member of a frame that is text; empty if it is not there.
std::string textOf(const StreamClient::Frame& frame, std::string_view key);

} // namespace tolvera::test
