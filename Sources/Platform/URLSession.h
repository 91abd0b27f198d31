#pragma once

#include "Async/Clock.h"
#include "Async/Task.h"
#include "Platform/URL.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace tolvera::platform {

using Data = std::vector<std::byte>;

// A failure of the transport (no network, refused, time-out, TLS, a closed socket) is thrown as a
// PlatformError of this domain. Its description is for the user. It holds no query and no header, and so no
// token.
inline constexpr const char* transportErrorDomain = "Transport";

struct HTTPRequest {
  std::string method;
  URL url;
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;
  Duration timeout = std::chrono::seconds(60); // for the whole exchange
};

struct HTTPResponse {
  std::optional<int> status; // absent if the reply was not HTTP
  std::string body;
};

// One WebSocket connection. Any thread may call; frames go out in the order of the calls.
//
// No operation ends early when its caller is cancelled, since a half-written frame or an abandoned read would
// spoil the connection. `cancel` ends them.
class WebSocketTask {
 public:
  using Message = std::variant<Data, std::string>; // a binary or a text message

  virtual ~WebSocketTask() = default;

  // Starts connecting and returns at once. A failure shows in `send` and `receive`.
  virtual void resume() = 0;
  // Suspends until the frame has been handed to the transport; waits for the handshake if need be.
  // Throws PlatformError if the connection fails or has failed.
  virtual Task<void> send(Message message) = 0;
  // Suspends until a message arrives; each call gives the next one. Throws PlatformError when the
  // connection has failed, its handshake has failed, or either side has closed it.
  virtual Task<Message> receive() = 0;
  // Closes the connection with `closeCode` and returns at once. The closing handshake goes on for a bounded
  // time. A pending `receive`, and every later operation, fails.
  virtual void cancel(std::uint16_t closeCode, std::string reason) = 0;
};

// Maker of connections. Any thread.
class URLSession {
 public:
  virtual ~URLSession() = default;

  // A connection for a ws or wss URL, with no extra headers and no subprotocol, not yet begun. It runs on
  // `serial`, an executor that runs one thing at a time, such as the strand of its owner.
  virtual std::shared_ptr<WebSocketTask> webSocketTask(const URL& url, const Executor& serial) = 0;
  // One HTTP exchange. A reply of any status is a result. Throws PlatformError if there is no reply.
  virtual Task<HTTPResponse> data(HTTPRequest request) = 0;
};

} // namespace tolvera::platform
