#include "Harness/LoopbackServer.h"

#include "Platform/Linux/Network/BeastAnyStream.h"

#include <boost/asio/detached.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/lexical_cast.hpp>

#include <linux/filter.h>
#include <sys/socket.h>

#include <deque>

namespace tolvera::test {

namespace asio = boost::asio;
namespace http = boost::beast::http;
namespace websocket = boost::beast::websocket;
using adapters::AnyStream;
using asio::ip::tcp;
using boost::system::error_code;

struct LoopbackServer::Connection::Transport {
  websocket::stream<AnyStream, false> stream;
  std::deque<Frame> outgoing; // the first is on its way;
  asio::steady_timer resumed;
  bool paused = false;
};

LoopbackServer::Reply LoopbackServer::Reply::http(int status, const std::string& body) {
  return raw("HTTP/1.1 " + std::to_string(status) + " Reply\r\nConnection: close\r\nContent-Length: " +
             std::to_string(body.size()) + "\r\n\r\n" + body);
}

LoopbackServer::LoopbackServer(const Options& options)
    : acceptor_(context_, tcp::endpoint(asio::ip::make_address(options.address), options.port)),
      endpoint_(acceptor_.local_endpoint()), where_(boost::lexical_cast<std::string>(endpoint_)) {
  if (!options.certificateChainFile.empty()) {
    tls_ = std::make_shared<asio::ssl::context>(asio::ssl::context::tls_server);
    tls_->use_certificate_chain_file(options.certificateChainFile);
    tls_->use_private_key_file(options.privateKeyFile, asio::ssl::context::pem);
  }
  asio::co_spawn(context_, acceptAll(), asio::detached);
  thread_ = std::thread([this] { context_.run(); });
}

LoopbackServer::~LoopbackServer() {
  asio::post(context_, [this] {
    acceptor_.close();
    for (Connection& connection : connections_) connection.drop();
  });
  thread_.join(); // nothing is left to do
}

asio::awaitable<void> LoopbackServer::acceptAll() {
  for (;;) {
    auto socket = co_await acceptor_.async_accept(asio::use_awaitable);
    socket.set_option(tcp::no_delay(true));
    locked([&] {
      ++live_;
      connections_.emplace_back(*this, std::move(socket));
    });
    asio::co_spawn(context_, connections_.back().serve(), asio::detached);
  }
}

LoopbackServer::Connection* LoopbackServer::connection(std::size_t index) const {
  const auto opened = get(opened_);
  return index < opened.size() ? opened[index] : nullptr;
}

LoopbackServer::Connection::Connection(LoopbackServer& server, tcp::socket socket)
    : server_(server),
      transport_(new Transport{
          websocket::stream<AnyStream, false>(server.tls_ ? AnyStream::secure(std::move(socket), server.tls_)
                                                          : AnyStream::plain(std::move(socket))),
          {},
          asio::steady_timer(server.context_)}) {
  transport_->stream.auto_fragment(false);
}

asio::awaitable<void> LoopbackServer::Connection::serve() {
  try {
    co_await converse();
  } catch (const boost::system::system_error& end) { // the peer went; what had arrived is recorded
    if (end.code() == websocket::error::closed) {
      server_.locked([this] {
        closeCode_ = transport_->stream.reason().code;
        closeReason_ = transport_->stream.reason().reason.c_str();
      });
    }
  }
  drop();
  server_.locked([this] { --server_.live_; });
}

asio::awaitable<void> LoopbackServer::Connection::converse() {
  auto& layer = transport_->stream.next_layer();
  if (server_.tls_) co_await layer.handshake(asio::ssl::stream_base::server, asio::use_awaitable);
  boost::beast::flat_buffer buffer;
  http::request<http::string_body> message;
  co_await http::async_read(layer, buffer, message, asio::use_awaitable);
  Request request{std::string(message.method_string()), std::string(message.target()), message.body(), {}};
  for (const auto& field : message) request.headers.emplace(field.name_string(), field.value());
  const auto answer = server_.locked([&] {
    server_.requests_.push_back(request);
    return websocket::is_upgrade(message) ? server_.onUpgrade_ : server_.onRequest_;
  });
  const Reply reply = answer(request);
  if (reply.kind == Reply::Kind::upgrade) {
    co_await transport_->stream.async_accept(message, asio::use_awaitable);
    co_await readFrames();
  }
  co_await asio::async_write(layer, asio::buffer(reply.bytes), asio::use_awaitable);
  if (reply.kind == Reply::Kind::bytes) layer.socket().shutdown(tcp::socket::shutdown_send);
  for (char rest = 0;;) co_await layer.async_read_some(asio::buffer(&rest, 1), asio::use_awaitable);
}

asio::awaitable<void> LoopbackServer::Connection::readFrames() {
  auto& [stream, outgoing, resumed, paused] = *transport_;
  server_.locked([this] { server_.opened_.push_back(this); });
  const auto onFrame = server_.get(server_.onFrame_);
  server_.get(server_.onOpen_)(*this);
  for (;;) {
    error_code ignored;
    while (paused) co_await resumed.async_wait(asio::redirect_error(asio::use_awaitable, ignored));
    Frame frame;
    auto payload = asio::dynamic_buffer(frame.payload);
    co_await stream.async_read(payload, asio::use_awaitable);
    frame.isText = stream.got_text();
    server_.locked([&] { frames_.push_back(frame); });
    onFrame(*this, frame);
  }
}

asio::awaitable<void> LoopbackServer::Connection::writeAll() {
  for (auto& queue = transport_->outgoing; !queue.empty(); queue.pop_front()) {
    transport_->stream.text(queue.front().isText);
    co_await transport_->stream.async_write(asio::buffer(queue.front().payload), asio::use_awaitable);
  }
}

void LoopbackServer::Connection::send(bool isText, const std::string& payload) {
  asio::post(server_.context_, [this, frame = Frame{isText, payload}] {
    transport_->outgoing.push_back(frame);
    if (transport_->outgoing.size() == 1) asio::co_spawn(server_.context_, writeAll(), asio::detached);
  });
}

void LoopbackServer::Connection::close(std::uint16_t code) {
  asio::post(server_.context_, [this, code] { transport_->stream.async_close(code, asio::detached); });
}

void LoopbackServer::Connection::reset() {
  asio::post(server_.context_, [this] {
    error_code ignored;
    transport_->stream.next_layer().socket().set_option(asio::socket_base::linger(true, 0), ignored);
    drop();
  });
}

bool LoopbackServer::Connection::vanish() {
  sock_filter nothing{BPF_RET | BPF_K, 0, 0, 0};
  const sock_fprog filter{1, &nothing};
  return ::setsockopt(transport_->stream.next_layer().socket().native_handle(), SOL_SOCKET, SO_ATTACH_FILTER,
                      &filter, sizeof filter) == 0;
}

void LoopbackServer::Connection::pauseReading(bool paused) {
  asio::post(server_.context_, [this, paused] {
    transport_->paused = paused;
    transport_->resumed.cancel();
  });
}

void LoopbackServer::Connection::drop() {
  transport_->stream.next_layer().close();
  transport_->paused = false;
  transport_->resumed.cancel();
}

} // namespace tolvera::test
