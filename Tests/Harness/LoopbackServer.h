#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/ssl/stream.hpp>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace tolvera::test {

// An HTTP and web-socket server on loopback that does what a test tells it to, with one blocking thread for
// each connection. It accepts every upgrade, records what arrives, says nothing, and answers other requests
// by 404, until handlers say otherwise. It shares no code with the client under test, and it can break the
// protocol on purpose.
//
// The handlers (`on...`) run on the threads of the connections; set them before the first connection that
// they concern. Everything else may be called from any thread. The destructor drops all connections at once.
class LoopbackServer {
 public:
  struct Frame {
    bool isText = false;
    std::string payload;
    std::chrono::steady_clock::time_point arrival; // when its last byte had been read
  };
  struct Request {
    std::string method, target, body;           // the target is path and query
    std::map<std::string, std::string> headers; // names in lower case
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
    bool acceptsConnections = true; // false: connects complete in the backlog and are never answered
  };
  class Connection;
  using ConnectionPointer = std::shared_ptr<Connection>;

  LoopbackServer() : LoopbackServer(Options()) {}
  // Throws boost::system::system_error if the address cannot be bound.
  explicit LoopbackServer(Options options);
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  [[nodiscard]] std::uint16_t port() const { return port_; }
  // scheme://address:port followed by `pathAndQuery`.
  [[nodiscard]] std::string url(const std::string& scheme, const std::string& pathAndQuery = "/") const;

  using Answer = std::function<Reply(const Request&)>;
  void onRequest(Answer answer) { set(state_->onRequest, std::move(answer)); }
  void onUpgrade(Answer answer) { set(state_->onUpgrade, std::move(answer)); }
  void onOpen(std::function<void(Connection&)> handler) { set(state_->onOpen, std::move(handler)); }
  void onFrame(std::function<void(Connection&, const Frame&)> handler) {
    set(state_->onFrame, std::move(handler));
  }

  // All HTTP requests so far, upgrades included, in order.
  [[nodiscard]] std::vector<Request> requests() const { return state_->read(state_->requests); }
  // The web socket opened as the `index`-th, or null.
  [[nodiscard]] ConnectionPointer connection(std::size_t index) const;
  // TCP connections accepted so far, and those that are open now.
  [[nodiscard]] std::size_t acceptedCount() const { return state_->read(state_->accepted); }
  [[nodiscard]] std::size_t liveCount() const { return state_->read(state_->live).size(); }

  // Waits until `condition` holds; false after `limit`.
  bool waitFor(const std::function<bool()>& condition,
               std::chrono::milliseconds limit = std::chrono::seconds(10)) const;

 private:
  // Shared with the connections, so that it outlives the server while a test holds one of them.
  struct State {
    boost::asio::io_context context;
    std::mutex mutex; // of everything below and of the records of the connections
    std::condition_variable happened;
    Answer onRequest = [](const Request&) { return Reply::http(404); };
    Answer onUpgrade = [](const Request&) { return Reply::upgrade(); };
    std::function<void(Connection&)> onOpen = [](Connection&) {};
    std::function<void(Connection&, const Frame&)> onFrame = [](Connection&, const Frame&) {};
    std::vector<Request> requests;
    std::vector<ConnectionPointer> opened;
    std::set<ConnectionPointer> live;
    std::size_t accepted = 0;

    template<typename Value>
    Value read(const Value& value) {
      const std::scoped_lock lock(mutex);
      return value;
    }
    template<typename Change>
    void change(Change apply) {
      const std::scoped_lock lock(mutex);
      apply();
      happened.notify_all();
    }
  };
  template<typename Handler>
  void set(Handler& handler, Handler value) {
    state_->change([&] { handler = std::move(value); });
  }
  void acceptAll();

  const Options options_;
  const std::shared_ptr<State> state_;
  std::shared_ptr<boost::asio::ssl::context> tls_;
  boost::asio::ip::tcp::acceptor acceptor_;
  std::uint16_t port_ = 0;
  std::thread accepting_;
};

// One accepted connection, a web socket from its upgrade on. Calls on a closed one do nothing. Under TLS only
// the handlers may send.
class LoopbackServer::Connection : public std::enable_shared_from_this<Connection> {
 public:
  Connection(std::shared_ptr<State> state, boost::asio::ip::tcp::socket socket,
             std::shared_ptr<boost::asio::ssl::context> tls);

  void sendText(const std::string& text) { sendFrame(1, text); }
  void sendBinary(const std::string& bytes) { sendFrame(2, bytes); }
  void close(std::uint16_t code); // begins the closing handshake
  void reset();                   // ends the TCP connection by a reset
  // Leaves what arrives in the socket's buffers, a close frame too; one read under way still ends.
  void stopReading() { pause(true); }
  void resumeReading() { pause(false); }

  [[nodiscard]] Request request() const { return state_->read(request_); } // of the upgrade
  [[nodiscard]] std::vector<Frame> frames() const { return state_->read(frames_); }
  [[nodiscard]] std::size_t frameCount() const { return state_->read(frameCount_); }
  // The code and the reason with which the peer closed; absent before, or if it went without a goodbye.
  [[nodiscard]] std::optional<std::uint16_t> closeCode() const { return state_->read(closeCode_); }
  [[nodiscard]] std::string closeReason() const { return state_->read(closeReason_); }

 private:
  friend class LoopbackServer;
  void serve();
  void converse();
  Request readRequest();
  void readFrames();
  std::string take(std::size_t count);
  void fill();
  void put(const std::string& bytes);
  void sendFrame(unsigned opcode, const std::string& payload);
  void pause(bool paused);
  // Wakes the thread of the connection, which then closes the socket.
  void drop(boost::asio::ip::tcp::socket::shutdown_type which);

  const std::shared_ptr<State> state_;
  boost::asio::ip::tcp::socket socket_;
  std::shared_ptr<boost::asio::ssl::context> context_;
  std::optional<boost::asio::ssl::stream<boost::asio::ip::tcp::socket&>> tls_;
  std::mutex writing_;
  std::string unread_; // by the thread of the connection alone
  bool paused_ = false, dropped_ = false;
  std::atomic<bool> closing_ = false;
  Request request_;
  std::vector<Frame> frames_;
  std::size_t frameCount_ = 0;
  std::optional<std::uint16_t> closeCode_;
  std::string closeReason_;
};

} // namespace tolvera::test
