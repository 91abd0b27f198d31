#include "Harness/LoopbackServer.h"

#include "Async/Suspension.h"
#include "Platform/Linux/Network/BeastAnyStream.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/v6_only.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/write.hpp>
#include <boost/beast/websocket/stream.hpp>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>

namespace tolvera::test {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
namespace websocket = boost::beast::websocket;
using adapters::AnyStream;
using asio::ip::tcp;
using ErrorCode = boost::system::error_code;
using Stream = websocket::stream<AnyStream, false>;
using HTTPMessage = http::request<http::string_body>;

constexpr std::size_t maxBytes = 64U << 20U;

LoopbackServer::Request recorded(const HTTPMessage& message) {
  LoopbackServer::Request request;
  request.method = std::string(message.method_string());
  request.target = std::string(message.target());
  request.body = message.body();
  for (const auto& field : message) {
    std::string name(field.name_string());
    std::ranges::transform(name, name.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    request.headers.insert_or_assign(std::move(name), std::string(field.value()));
  }
  return request;
}

std::shared_ptr<asio::ssl::context> serverContext(const LoopbackServer::Options& options) {
  if (options.certificateChain.empty() || options.privateKey.empty()) return nullptr;
  auto context = std::make_shared<asio::ssl::context>(asio::ssl::context::tls_server);
  context->use_certificate_chain(asio::buffer(options.certificateChain));
  context->use_private_key(asio::buffer(options.privateKey), asio::ssl::context::pem);
  return context;
}

} // namespace

LoopbackServer::Reply LoopbackServer::Reply::http(int status, std::string body) {
  return {Kind::http, status, {}, std::move(body)};
}
LoopbackServer::Reply LoopbackServer::Reply::upgrade() { return {Kind::upgrade, 101, {}, {}}; }
LoopbackServer::Reply LoopbackServer::Reply::raw(std::string bytes) {
  return {Kind::raw, 0, {}, std::move(bytes)};
}
LoopbackServer::Reply LoopbackServer::Reply::silence() { return {Kind::silence, 0, {}, {}}; }

// What the server, its connections and the test share. It outlives the server as long as a test holds a
// connection.
struct LoopbackServer::State {
  asio::io_context context{1};

  mutable std::mutex mutex;
  mutable std::condition_variable happened;
  std::uint64_t version = 0; // counts whatever `waitFor` might wait for
  bool running = true;
  std::function<Reply(const Request&)> onRequest = [](const Request&) { return Reply::http(404); };
  std::function<Reply(const Request&)> onUpgrade = [](const Request&) { return Reply::upgrade(); };
  std::function<void(Connection&)> onOpen = [](Connection&) {};
  std::function<void(Connection&, const Frame&)> onFrame = [](Connection&, const Frame&) {};
  std::vector<Request> requests;
  std::vector<ConnectionPointer> opened;
  std::vector<std::shared_ptr<Peer>> live;
  std::size_t accepted = 0;

  // Runs `change` under the lock and wakes those who wait.
  template<typename Change>
  auto update(Change change) {
    struct Notify {
      State* state;
      ~Notify() { state->happened.notify_all(); }
    } const notify{this};
    const std::scoped_lock lock(mutex);
    ++version;
    return change();
  }
  template<typename Look>
  auto look(Look read) const {
    const std::scoped_lock lock(mutex);
    return read();
  }
};

// One accepted TCP connection; a web socket from its upgrade on.
class LoopbackServer::Peer final : public Connection, public std::enable_shared_from_this<Peer> {
 public:
  Peer(std::shared_ptr<State> state, AnyStream stream)
      : state_(std::move(state)), socket_(std::move(stream)) {}

  void sendText(std::string text) override { send(true, std::move(text)); }
  void sendBinary(std::string bytes) override { send(false, std::move(bytes)); }
  void close(std::uint16_t code, std::string reason) override {
    post([code, reason = std::move(reason)](Peer& self) {
      if (!self.state_->look([&self] { return self.open_; })) return;
      const websocket::close_reason why(static_cast<websocket::close_code>(code), reason);
      self.socket_.async_close(why, [keep = self.shared_from_this()](ErrorCode) { keep->drop(); });
    });
  }
  void reset() override {
    post([](Peer& self) {
      ErrorCode ignored;
      self.tcpSocket().set_option(asio::socket_base::linger(true, 0), ignored);
      self.drop();
    });
  }
  void stopReading() override {
    post([](Peer& self) { self.paused_ = true; });
  }
  void resumeReading() override {
    post([](Peer& self) {
      self.paused_ = false;
      self.wakeReader();
    });
  }

  [[nodiscard]] const Request& request() const override { return request_; }
  [[nodiscard]] std::vector<Frame> frames() const override {
    return state_->look([this] { return frames_; });
  }
  [[nodiscard]] std::size_t frameCount() const override {
    return state_->look([this] { return frames_.size(); });
  }
  [[nodiscard]] std::optional<std::uint16_t> closeCode() const override {
    return state_->look([this] { return closeCode_; });
  }
  [[nodiscard]] std::string closeReason() const override {
    return state_->look([this] { return closeReason_; });
  }

  static Task<void> serve(std::shared_ptr<Peer> self, bool secure) {
    try {
      auto& stream = self->socket_.next_layer();
      if (secure) co_await stream.handshake(asio::ssl::stream_base::server, asio::use_awaitable);
      co_await self->converse();
    } catch (const std::exception&) {
      // The peer went; what had arrived is recorded.
    }
    self->drop();
    self->state_->update([&self] {
      self->open_ = false;
      std::erase(self->state_->live, self);
    });
  }

  void drop() {
    paused_ = false;
    socket_.next_layer().close();
    wakeReader();
  }

 private:
  tcp::socket& tcpSocket() { return socket_.next_layer().socket(); }

  template<typename Function>
  void post(Function function) {
    const std::scoped_lock lock(state_->mutex);
    if (!state_->running) return;
    asio::post(state_->context,
               [self = shared_from_this(), function = std::move(function)]() mutable { function(*self); });
  }

  Task<void> converse() {
    beast::flat_buffer buffer;
    http::request_parser<http::string_body> parser;
    parser.body_limit(maxBytes);
    co_await http::async_read(socket_.next_layer(), buffer, parser, asio::use_awaitable);
    const auto message = parser.release();
    request_ = recorded(message);
    const bool isUpgrade = websocket::is_upgrade(message);
    const auto handler = state_->update([this, isUpgrade] {
      state_->requests.push_back(request_);
      return isUpgrade ? state_->onUpgrade : state_->onRequest;
    });
    auto reply = handler(request_);
    if (reply.kind == Reply::Kind::upgrade && isUpgrade) {
      co_await socket_.async_accept(message, asio::use_awaitable);
      co_await readFrames();
    } else {
      co_await answer(std::move(reply));
      co_await waitForEnd();
    }
  }

  Task<void> answer(Reply reply) {
    if (reply.kind == Reply::Kind::silence) co_return;
    if (reply.kind == Reply::Kind::raw) {
      co_await asio::async_write(socket_.next_layer(), asio::buffer(reply.body), asio::use_awaitable);
    } else {
      http::response<http::string_body> response;
      response.version(11);
      response.result(static_cast<unsigned>(reply.status));
      response.set(http::field::connection, "close");
      for (const auto& [name, value] : reply.headers) response.insert(name, value);
      response.body() = std::move(reply.body);
      response.prepare_payload();
      co_await http::async_write(socket_.next_layer(), response, asio::use_awaitable);
    }
    ErrorCode ignored;
    tcpSocket().shutdown(tcp::socket::shutdown_send, ignored);
  }

  Task<void> waitForEnd() {
    std::array<char, 4096> rest{};
    for (;;) {
      co_await socket_.next_layer().async_read_some(asio::buffer(rest), asio::use_awaitable);
    }
  }

  Task<void> readFrames() {
    socket_.read_message_max(maxBytes);
    socket_.auto_fragment(false);
    const auto [onOpen, onFrame] = state_->update([this] {
      open_ = true;
      state_->opened.push_back(shared_from_this());
      return std::pair(state_->onOpen, state_->onFrame);
    });
    onOpen(*this);
    beast::flat_buffer buffer;
    for (;;) {
      if (paused_) co_await suspend([this](Resumption resume) { reader_ = std::move(resume); });
      ErrorCode error;
      auto token = asio::redirect_error(asio::use_awaitable, error);
      co_await socket_.async_read(buffer, token);
      if (error) {
        recordEnd(error);
        co_return;
      }
      const auto bytes = buffer.cdata();
      Frame frame{socket_.got_text(), std::string(static_cast<const char*>(bytes.data()), bytes.size()),
                  std::chrono::steady_clock::now()};
      buffer.consume(buffer.size());
      state_->update([this, &frame] { frames_.push_back(frame); });
      onFrame(*this, frame);
    }
  }

  void recordEnd(ErrorCode error) {
    state_->update([this, error] {
      open_ = false;
      constexpr std::uint16_t noCode = 1005;
      const auto& reason = socket_.reason();
      // With a goodbye from both sides the read may end by that of its stream's end.
      if (error != websocket::error::closed && reason.code == websocket::close_code::none) return;
      closeCode_ = reason.code == websocket::close_code::none ? noCode : reason.code;
      closeReason_ = std::string(reason.reason.data(), reason.reason.size());
    });
  }

  void send(bool isText, std::string payload) {
    post([isText, payload = std::move(payload)](Peer& self) mutable {
      self.outbox_.emplace_back(isText, std::move(payload));
      if (self.outbox_.size() == 1) self.writeNext();
    });
  }

  void writeNext() {
    if (outbox_.empty()) return;
    socket_.text(outbox_.front().first);
    socket_.async_write(asio::buffer(outbox_.front().second),
                        [self = shared_from_this()](ErrorCode error, std::size_t) {
                          if (error) return;
                          self->outbox_.pop_front();
                          self->writeNext();
                        });
  }

  void wakeReader() {
    if (auto resume = std::exchange(reader_, std::nullopt)) (*resume)();
  }

  const std::shared_ptr<State> state_;

  // On the server's thread.
  Stream socket_;
  std::deque<std::pair<bool, std::string>> outbox_;
  bool paused_ = false;
  std::optional<Resumption> reader_;

  Request request_; // fixed before anybody else sees this object
  // Under the state's lock.
  std::vector<Frame> frames_;
  bool open_ = false;
  std::optional<std::uint16_t> closeCode_;
  std::string closeReason_;
};

// The listening socket and the thread.
class LoopbackServer::Run {
 public:
  Run(std::shared_ptr<State> state, Options chosen)
      : options(std::move(chosen)), state_(std::move(state)), tls_(serverContext(options)),
        acceptor_(state_->context.get_executor()), work_(asio::make_work_guard(state_->context)) {
    const tcp::endpoint endpoint(asio::ip::make_address(options.address), options.port);
    acceptor_.open(endpoint.protocol());
    acceptor_.set_option(asio::socket_base::reuse_address(true));
    if (endpoint.address().is_v6()) acceptor_.set_option(asio::ip::v6_only(true));
    acceptor_.bind(endpoint);
    acceptor_.listen();
    port = acceptor_.local_endpoint().port();
    if (options.acceptsConnections) accept();
    thread_ = std::thread([this] { state_->context.run(); });
  }

  ~Run() {
    {
      const std::scoped_lock lock(state_->mutex);
      state_->running = false;
    }
    asio::post(state_->context, [this] {
      ErrorCode ignored;
      acceptor_.close(ignored);
      for (const auto& peer : state_->look([this] { return state_->live; })) peer->drop();
      work_.reset();
    });
    thread_.join();
    // The connections hold the state; the state no longer holds them.
    const auto gone = state_->update([this] { return std::exchange(state_->opened, {}); });
  }

  const Options options;
  std::uint16_t port = 0;

 private:
  void accept() {
    acceptor_.async_accept([this](ErrorCode error, tcp::socket socket) {
      if (error) return;
      ErrorCode ignored;
      socket.set_option(tcp::no_delay(true), ignored);
      auto stream = tls_ ? AnyStream::secure(std::move(socket), tls_) : AnyStream::plain(std::move(socket));
      auto peer = std::make_shared<Peer>(state_, std::move(stream));
      state_->update([this, &peer] {
        ++state_->accepted;
        state_->live.push_back(peer);
      });
      asio::co_spawn(state_->context, Peer::serve(peer, tls_ != nullptr), asio::detached);
      accept();
    });
  }

  std::shared_ptr<State> state_;
  std::shared_ptr<asio::ssl::context> tls_;
  tcp::acceptor acceptor_;
  asio::executor_work_guard<asio::io_context::executor_type> work_;
  std::thread thread_;
};

LoopbackServer::LoopbackServer() : LoopbackServer(Options{}) {}
LoopbackServer::LoopbackServer(Options options)
    : state_(std::make_shared<State>()), run_(std::make_unique<Run>(state_, std::move(options))) {}
LoopbackServer::~LoopbackServer() = default;

std::uint16_t LoopbackServer::port() const { return run_->port; }

std::string LoopbackServer::url(const std::string& scheme, const std::string& pathAndQuery) const {
  const auto& address = run_->options.address;
  const auto host = address.find(':') == std::string::npos ? address : "[" + address + "]";
  return scheme + "://" + host + ":" + std::to_string(port()) + pathAndQuery;
}

void LoopbackServer::onRequest(std::function<Reply(const Request&)> handler) {
  state_->update([&] { state_->onRequest = std::move(handler); });
}
void LoopbackServer::onUpgrade(std::function<Reply(const Request&)> handler) {
  state_->update([&] { state_->onUpgrade = std::move(handler); });
}
void LoopbackServer::onOpen(std::function<void(Connection&)> handler) {
  state_->update([&] { state_->onOpen = std::move(handler); });
}
void LoopbackServer::onFrame(std::function<void(Connection&, const Frame&)> handler) {
  state_->update([&] { state_->onFrame = std::move(handler); });
}

std::vector<LoopbackServer::Request> LoopbackServer::requests() const {
  return state_->look([this] { return state_->requests; });
}
LoopbackServer::ConnectionPointer LoopbackServer::connection(std::size_t index) const {
  return state_->look(
      [this, index] { return index < state_->opened.size() ? state_->opened[index] : ConnectionPointer(); });
}
std::size_t LoopbackServer::acceptedCount() const {
  return state_->look([this] { return state_->accepted; });
}
std::size_t LoopbackServer::liveCount() const {
  return state_->look([this] { return state_->live.size(); });
}

bool LoopbackServer::waitFor(const std::function<bool()>& condition, std::chrono::milliseconds limit) const {
  const auto end = std::chrono::steady_clock::now() + limit;
  for (;;) {
    const auto seen = state_->look([this] { return state_->version; });
    if (condition()) return true;
    std::unique_lock lock(state_->mutex);
    // A condition may also look at things outside the server, so it is asked now and then at least.
    const auto soon = std::min(end, std::chrono::steady_clock::now() + std::chrono::milliseconds(20));
    state_->happened.wait_until(lock, soon, [&] { return state_->version != seen; });
    lock.unlock();
    if (std::chrono::steady_clock::now() >= end) return condition();
  }
}

} // namespace tolvera::test
