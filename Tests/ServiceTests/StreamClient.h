#pragma once

#include <boost/json.hpp>

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
  std::string rawHead;

  [[nodiscard]] boost::json::object json() const { return boost::json::parse(body).as_object(); }
};

// A plain client of the service's REST interface, with nothing in common with the program's own: it sends
// bytes and reads an answer.
class HTTPClient {
 public:
  using Headers = std::vector<std::pair<std::string, std::string>>;

  explicit HTTPClient(std::uint16_t port) : port_(port) {}
  // One request on a connection of its own.
  [[nodiscard]] HTTPReply request(std::string_view method, std::string_view target,
                                  const Headers& headers = {}, std::string_view body = {}) const;
  [[nodiscard]] HTTPReply get(std::string_view target, std::string_view token = {}) const;
  [[nodiscard]] HTTPReply post(std::string_view target, std::string_view token = {},
                               std::string_view body = {}) const;
  // Sends the bytes as they are, and nothing after them unless there is more to come.
  [[nodiscard]] HTTPReply raw(std::string_view bytes, bool more = false) const;
  // A new installation's token.
  [[nodiscard]] std::string signUp() const;

 private:
  std::uint16_t port_;
};

// A plain client of one run, on a thread of its own. Any thread; one that sends waits until it is sent.
class StreamClient {
 public:
  using Clock = std::chrono::steady_clock;
  struct Frame {
    Clock::time_point received;
    boost::json::object json; // empty for a binary frame
    std::string binary;
  };

  // Opens /livetranslate/ws with the query. Throws if the upgrade is refused.
  StreamClient(std::uint16_t port, const std::string& query);
  ~StreamClient();

  void sendAudio(std::span<const std::int16_t> samples);
  void sendBytes(std::string bytes, bool binary);
  void stop() { sendBytes(R"({"type":"stop"})", false); }
  void close();

  // All frames so far.
  [[nodiscard]] std::vector<Frame> frames() const;
  // Waits for a frame that the condition likes, those before the call included.
  std::optional<Frame> waitFor(const std::function<bool(const Frame&)>& condition,
                               std::chrono::milliseconds limit = std::chrono::seconds(20)) const;
  std::optional<Frame> waitForType(std::string_view type, bool finalOnly = false) const;
  // Waits until the service has closed the socket.
  [[nodiscard]] bool waitUntilClosed(std::chrono::milliseconds limit = std::chrono::seconds(20)) const;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

// A run that is ready. Tries for some seconds: decoders are given back a moment after a socket has closed.
// Null if the service stays busy.
std::unique_ptr<StreamClient> openStream(std::uint16_t port, const std::string& query);

// Speaks a sentence, and a second of silence after it.
void sendSpeech(StreamClient& client, const std::string& words);

// A member of a frame that is text; empty if it is not there.
std::string textOf(const StreamClient::Frame& frame, std::string_view key);

} // namespace tolvera::test
