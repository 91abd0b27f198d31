#pragma once

#include "Platform/Linux/Network/BeastAnyStream.h"
#include "Platform/Linux/Network/BeastURLSession.h"

#include <boost/asio/steady_timer.hpp>

#include <functional>
#include <memory>
#include <mutex>
#include <string>

// From an address to a connected stream. Everything here runs on the serial executor of the coroutine that
// calls it.
namespace tolvera::adapters {

// What all connections of one BeastURLSession share. Any thread.
struct BeastEnvironment {
  BeastEnvironment(Executor executor, BeastOptions chosen)
      : background(std::move(executor)), options(std::move(chosen)) {}

  const Executor background;
  const BeastOptions options;

  // The client's TLS settings, made when first needed.
  std::shared_ptr<boost::asio::ssl::context> tlsContext();

 private:
  std::mutex mutex_;
  std::shared_ptr<boost::asio::ssl::context> tlsContext_;
};

// The part of an address that a connection needs.
struct Endpoint {
  std::string host; // a name or a numeric address, without brackets
  std::uint16_t port = 0;
  bool secure = false;
  bool isDefaultPort = false;
  std::string socketPath; // of a Unix socket in place of host and port; empty for a network address

  // Throws PlatformError for another scheme than http, https, ws and wss, without a host, or if the port is
  // not between 1 and 65535. A host that is an absolute path means the Unix socket there.
  static Endpoint of(const platform::URL& url);
  // "host:port" or the path, for messages.
  [[nodiscard]] std::string where() const;
  // The value of a Host header.
  [[nodiscard]] std::string hostHeader() const;

 private:
  [[nodiscard]] std::string networkPlace() const;
};

// Path and query as they stand in a request line.
std::string requestTarget(const platform::URL& url);

// Measures a step for the trace.
class Stopwatch {
 public:
  [[nodiscard]] double milliseconds() const {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin_).count();
  }

 private:
  const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
};

// Calls `onExpiry` once after `duration`, unless it is destroyed before. Used on one executor alone.
class Deadline {
 public:
  Deadline(const Executor& executor, Duration duration, std::function<void()> onExpiry);
  ~Deadline();
  Deadline(const Deadline&) = delete;
  Deadline& operator=(const Deadline&) = delete;

  [[nodiscard]] bool expired() const { return state_->expired; }

 private:
  struct State {
    boost::asio::steady_timer timer;
    std::function<void()> onExpiry;
    bool expired = false;
  };
  std::shared_ptr<State> state_;
};

// Looks the host up, connects to the first of its addresses that answers, and for a secure endpoint does the
// TLS handshake with SNI, checking the chain and the name. No step takes longer than its own time-out or
// than `limit`. Throws PlatformError, or `operation_aborted` when the caller is cancelled.
Task<AnyStream> openStream(Endpoint endpoint, std::shared_ptr<BeastEnvironment> environment, Duration limit);

} // namespace tolvera::adapters
