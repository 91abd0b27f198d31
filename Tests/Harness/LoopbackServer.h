#pragma once

#include "Harness/Eventually.h"

#include <boost/asio/awaitable.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/beast/core/string.hpp>

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace tolvera::test {

// An HTTP and web-socket server on loopback that does what a test tells it to, on a thread of its own. It
// accepts every upgrade, records what arrives, says nothing, and answers other requests by 404, until
// handlers say otherwise.
//
// The handlers (`on...`) run on the server's thread; set them before the first connection that they concern.
// Everything else may be called from any thread. The destructor drops all connections at once.
class LoopbackServer {
 public:
  struct Frame {
    bool isText = false;
    std::string payload;
  };
  struct Request {
    std::string method, target, body; // the target is path and query
    std::map<std::string, std::string, boost::beast::iless> headers;
  };
  struct Reply {
    enum class Kind { bytes, upgrade, silence } kind = Kind::bytes;
    std::string bytes; // sent as they are, before the end of the connection

    static Reply http(int status, const std::string& body = "");
    static Reply raw(std::string bytes) { return {Kind::bytes, std::move(bytes)}; }
    static Reply upgrade() { return {Kind::upgrade, {}}; }
    static Reply silence() { return {Kind::silence, {}}; } // the connection stays open
  };
  struct Options {
    std::string address = "127.0.0.1";
    std::uint16_t port = 0;                           // 0: any free port
    std::string certificateChainFile, privateKeyFile; // with both the server speaks TLS
  };
  class Connection;

  LoopbackServer() : LoopbackServer(Options()) {}
  // Throws boost::system::system_error if the address cannot be bound.
  explicit LoopbackServer(const Options& options);
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  [[nodiscard]] std::uint16_t port() const { return endpoint_.port(); }
  [[nodiscard]] const std::string& where() const { return where_; } // "address:port"
  [[nodiscard]] std::string url(const std::string& scheme, const std::string& pathAndQuery = "/") const {
    return scheme + "://" + where_ + pathAndQuery;
  }

  using Answer = std::function<Reply(const Request&)>;
  void onRequest(const Answer& answer) {
    locked([&] { onRequest_ = answer; });
  }
  void onUpgrade(const Answer& answer) {
    locked([&] { onUpgrade_ = answer; });
  }
  using OpenHandler = std::function<void(Connection&)>;
  void onOpen(const OpenHandler& handler) {
    locked([&] { onOpen_ = handler; });
  }
  using FrameHandler = std::function<void(Connection&, const Frame&)>;
  void onFrame(const FrameHandler& handler) {
    locked([&] { onFrame_ = handler; });
  }

  // All HTTP requests so far, upgrades included, in order.
  [[nodiscard]] std::vector<Request> requests() const { return get(requests_); }
  // The web socket opened as the `index`-th, or null. It lives as long as the server.
  [[nodiscard]] Connection* connection(std::size_t index) const;
  // TCP connections accepted so far, and those that are open now.
  [[nodiscard]] std::size_t acceptedCount() const {
    return locked([&] { return connections_.size(); });
  }
  [[nodiscard]] std::size_t liveCount() const { return get(live_); }

 private:
  template<typename Action>
  std::invoke_result_t<Action> locked(Action act) const {
    const std::scoped_lock lock(mutex_);
    return act();
  }
  template<typename Value>
  [[nodiscard]] Value get(const Value& value) const {
    return locked([&] { return value; });
  }
  boost::asio::awaitable<void> acceptAll();

  boost::asio::io_context context_{1};
  mutable std::mutex mutex_; // of the handlers and of all records, those of the connections too
  Answer onRequest_ = [](const Request&) { return Reply::http(404); };
  Answer onUpgrade_ = [](const Request&) { return Reply::upgrade(); };
  OpenHandler onOpen_ = [](Connection&) {};
  FrameHandler onFrame_ = [](Connection&, const Frame&) {};
  std::vector<Request> requests_;
  std::vector<Connection*> opened_;
  std::list<Connection> connections_;
  std::size_t live_ = 0;

  std::shared_ptr<boost::asio::ssl::context> tls_;
  boost::asio::ip::tcp::acceptor acceptor_;
  const boost::asio::ip::tcp::endpoint endpoint_;
  const std::string where_;
  std::thread thread_;
};

// One accepted connection, a web socket from its upgrade on. Calls on a closed one do nothing.
class LoopbackServer::Connection {
 public:
  Connection(LoopbackServer& server, boost::asio::ip::tcp::socket socket);

  void sendText(const std::string& text) { send(true, text); }
  void sendBinary(const std::string& bytes) { send(false, bytes); }
  void close(std::uint16_t code); // begins the closing handshake
  void reset();                   // ends the TCP connection by a reset
  // From now on what arrives is lost, unacknowledged, as behind a cut wire. False where the kernel reserves
  // that for the superuser.
  [[nodiscard]] bool vanish();
  // Leaves what arrives in the socket's buffers, a close frame too; one read under way still ends.
  void pauseReading(bool paused);

  [[nodiscard]] std::vector<Frame> frames() const { return server_.get(frames_); }
  [[nodiscard]] std::size_t frameCount() const {
    return server_.locked([&] { return frames_.size(); });
  }
  // The code and the reason with which the peer closed; absent before, or if it went without a goodbye.
  [[nodiscard]] std::optional<std::uint16_t> closeCode() const { return server_.get(closeCode_); }
  [[nodiscard]] std::string closeReason() const { return server_.get(closeReason_); }

 private:
  friend class LoopbackServer;
  struct Transport;
  boost::asio::awaitable<void> serve();
  boost::asio::awaitable<void> converse();
  boost::asio::awaitable<void> readFrames();
  boost::asio::awaitable<void> writeAll();
  void send(bool isText, const std::string& payload);
  void drop();

  LoopbackServer& server_;
  const std::shared_ptr<Transport> transport_; // used on the server's thread
  std::vector<Frame> frames_;
  std::optional<std::uint16_t> closeCode_;
  std::string closeReason_;
};

} // namespace tolvera::test
