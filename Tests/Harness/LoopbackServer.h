#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tolvera::test {

// An HTTP and web-socket server on loopback that does what a test tells it to, on a thread and a port of
// its own. By default it accepts every upgrade, records what arrives and says nothing; an HTTP request is
// answered by 404.
//
//   LoopbackServer server;
//   server.onFrame([](LoopbackServer::Connection& connection, const LoopbackServer::Frame& frame) {
//     if (frame.isText) connection.sendText("{\"type\":\"ready\"}");
//   });
//   ... connect to server.url("ws", "/ws") ...
//   ASSERT_TRUE(server.waitFor([&] { return server.connection(0) && server.connection(0)->frameCount() == 3;
//   }));
//
// The handlers (`on...`) run on the server's thread: they must not wait, nor call `waitFor`. Set them before
// the first connection they concern. Everything else may be called from any thread. Destroying the server
// drops its connections at once.
class LoopbackServer {
 public:
  using Moment = std::chrono::steady_clock::time_point;

  struct Frame {
    bool isText = false;
    std::string payload;
    Moment arrival; // when its last byte had been read
  };

  struct Request {
    std::string method;
    std::string target;                         // path and query
    std::map<std::string, std::string> headers; // names in lower case
    std::string body;
  };

  // What a request, an upgrade included, is answered with.
  struct Reply {
    enum class Kind {
      http,    // `status`, `headers` and `body`
      upgrade, // the web-socket handshake; only for an upgrade
      raw,     // the bytes of `body` and the end of the connection
      silence  // nothing, while the connection stays open
    };
    Kind kind = Kind::http;
    int status = 200;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;

    static Reply http(int status, std::string body = "");
    static Reply upgrade();
    static Reply raw(std::string bytes);
    static Reply silence();
  };

  // One web socket. Values outlive the connection and the server; calls on a closed one do nothing.
  class Connection {
   public:
    virtual ~Connection() = default;

    virtual void sendText(std::string text) = 0;
    virtual void sendBinary(std::string bytes) = 0;
    // Starts the closing handshake.
    virtual void close(std::uint16_t code, std::string reason = "") = 0;
    // Ends the TCP connection by a reset, without a goodbye.
    virtual void reset() = 0;
    // Leaves what arrives in the socket's buffers; a close frame too. At most one frame more is read.
    virtual void stopReading() = 0;
    virtual void resumeReading() = 0;

    [[nodiscard]] virtual const Request& request() const = 0; // of the upgrade
    [[nodiscard]] virtual std::vector<Frame> frames() const = 0;
    [[nodiscard]] virtual std::size_t frameCount() const = 0;
    // The code with which the peer closed; nothing while open or if it went without a goodbye.
    [[nodiscard]] virtual std::optional<std::uint16_t> closeCode() const = 0;
    [[nodiscard]] virtual std::string closeReason() const = 0;
  };
  using ConnectionPointer = std::shared_ptr<Connection>;

  struct Options {
    std::string address = "127.0.0.1"; // or "::1"
    std::uint16_t port = 0;            // 0: a free one
    // PEM texts; with both the server speaks TLS.
    std::string certificateChain;
    std::string privateKey;
    bool acceptsConnections = true; // false: connects complete in the backlog and nobody ever answers
  };

  LoopbackServer(); // with the default options
  // Throws boost::system::system_error if the address cannot be bound.
  explicit LoopbackServer(Options options);
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  [[nodiscard]] std::uint16_t port() const;
  // scheme://address:port followed by `pathAndQuery`.
  [[nodiscard]] std::string url(const std::string& scheme, const std::string& pathAndQuery = "/") const;

  void onRequest(std::function<Reply(const Request&)> handler);
  void onUpgrade(std::function<Reply(const Request&)> handler);
  void onOpen(std::function<void(Connection&)> handler);
  void onFrame(std::function<void(Connection&, const Frame&)> handler);

  // All HTTP requests so far, upgrades included, in order.
  [[nodiscard]] std::vector<Request> requests() const;
  // The web socket opened as the `index`-th, or null.
  [[nodiscard]] ConnectionPointer connection(std::size_t index) const;
  // TCP connections accepted so far, whatever became of them; and those that are there now.
  [[nodiscard]] std::size_t acceptedCount() const;
  [[nodiscard]] std::size_t liveCount() const;

  // Waits until `condition` holds, looking whenever something happens here; false after `limit`.
  bool waitFor(const std::function<bool()>& condition,
               std::chrono::milliseconds limit = std::chrono::seconds(10)) const;

 private:
  struct State;
  class Peer;
  class Run;
  std::shared_ptr<State> state_;
  std::unique_ptr<Run> run_;
};

} // namespace tolvera::test
