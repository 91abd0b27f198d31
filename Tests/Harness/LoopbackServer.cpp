#include "Harness/LoopbackServer.h"

#include <boost/asio/write.hpp>
#include <openssl/evp.h>
#include <openssl/sha.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <sstream>
#include <stdexcept>

namespace tolvera::test {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

namespace {

// The key of a web-socket handshake, as the server has to send it back.
std::string acceptKey(const std::string& key) {
  const std::string salted = key + "258EAFA5-E914-47DA-95CA-C5AB0DC85B11";
  std::array<unsigned char, SHA_DIGEST_LENGTH> hash{};
  SHA1(reinterpret_cast<const unsigned char*>(salted.data()), salted.size(), hash.data());
  std::array<unsigned char, 32> text{};
  const int length = EVP_EncodeBlock(text.data(), hash.data(), static_cast<int>(hash.size()));
  return {text.begin(), text.begin() + length};
}

std::string bigEndian(std::uint64_t value, int bytes) {
  std::string text;
  for (int i = bytes - 1; i >= 0; --i) text += static_cast<char>(value >> (8 * i));
  return text;
}

std::uint64_t fromBigEndian(const std::string& bytes) {
  std::uint64_t value = 0;
  for (const char byte : bytes) value = value << 8U | static_cast<unsigned char>(byte);
  return value;
}

} // namespace

LoopbackServer::Reply LoopbackServer::Reply::http(int status, const std::string& body) {
  return raw("HTTP/1.1 " + std::to_string(status) + " Reply\r\nConnection: close\r\nContent-Length: " +
             std::to_string(body.size()) + "\r\n\r\n" + body);
}

LoopbackServer::Connection::Connection(std::shared_ptr<State> state, tcp::socket socket,
                                       std::shared_ptr<asio::ssl::context> tls)
    : state_(std::move(state)), socket_(std::move(socket)), context_(std::move(tls)) {
  socket_.set_option(tcp::no_delay(true));
  if (context_) tls_.emplace(socket_, *context_);
}

void LoopbackServer::Connection::serve() {
  try {
    if (tls_) tls_->handshake(asio::ssl::stream_base::server);
    converse();
  } catch (const std::exception&) { // the peer went; what had arrived is recorded
  }
  drop(tcp::socket::shutdown_both); // ends a write under way
  const std::scoped_lock lock(writing_);
  state_->change([this] {
    error_code ignored;
    socket_.close(ignored);
    state_->live.erase(shared_from_this());
  });
}

void LoopbackServer::Connection::converse() {
  auto request = readRequest();
  const bool isUpgrade = request.headers["upgrade"] == "websocket";
  state_->change([&] { state_->requests.push_back(request_ = request); });
  const auto reply = state_->read(isUpgrade ? state_->onUpgrade : state_->onRequest)(request);
  if (reply.kind == Reply::Kind::upgrade) {
    put("HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
        "Sec-WebSocket-Accept: " +
        acceptKey(request.headers["sec-websocket-key"]) + "\r\n\r\n");
    readFrames();
    return;
  }
  put(reply.bytes);
  if (reply.kind == Reply::Kind::bytes) socket_.shutdown(tcp::socket::shutdown_send);
  for (;;) fill(); // until the peer goes
}

LoopbackServer::Request LoopbackServer::Connection::readRequest() {
  do {
    fill();
    if (std::isalpha(static_cast<unsigned char>(unread_[0])) == 0) throw std::runtime_error("not HTTP");
  } while (unread_.find("\r\n\r\n") == std::string::npos);
  std::istringstream head(take(unread_.find("\r\n\r\n") + 4));
  Request request;
  head >> request.method >> request.target;
  head.ignore(64, '\n');
  for (std::string line; std::getline(head, line) && line.size() > 1;) {
    auto name = line.substr(0, line.find(':'));
    std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::tolower(c); });
    request.headers[name] = line.substr(name.size() + 2, line.size() - name.size() - 3);
  }
  if (request.headers.contains("content-length"))
    request.body = take(std::stoul(request.headers["content-length"]));
  return request;
}

void LoopbackServer::Connection::readFrames() {
  state_->change([this] { state_->opened.push_back(shared_from_this()); });
  const auto onFrame = state_->read(state_->onFrame);
  state_->read(state_->onOpen)(*this);
  for (;;) { // the client neither splits messages nor sends pings
    const auto head = take(2);
    const unsigned opcode = static_cast<unsigned char>(head[0]) & 0x0FU;
    std::uint64_t length = static_cast<unsigned char>(head[1]) & 0x7FU;
    if (length >= 126) length = fromBigEndian(take(length == 126 ? 2 : 8));
    const auto mask = take(4);
    auto payload = take(length);
    for (std::size_t i = 0; i < payload.size(); ++i) payload[i] ^= mask[i % 4];
    if (opcode == 8) {
      state_->change([&] {
        closeCode_ = payload.empty() ? 1005 : static_cast<std::uint16_t>(fromBigEndian(payload.substr(0, 2)));
        closeReason_ = payload.substr(std::min<std::size_t>(2, payload.size()));
      });
      if (!closing_) sendFrame(8, payload);
      return;
    }
    const Frame frame{opcode == 1, std::move(payload), std::chrono::steady_clock::now()};
    state_->change([&] {
      frames_.push_back(frame);
      ++frameCount_;
    });
    onFrame(*this, frame);
  }
}

std::string LoopbackServer::Connection::take(std::size_t count) {
  while (unread_.size() < count) fill();
  auto taken = unread_.substr(0, count);
  unread_.erase(0, count);
  return taken;
}

void LoopbackServer::Connection::fill() {
  {
    std::unique_lock lock(state_->mutex);
    state_->happened.wait(lock, [this] { return !paused_ || dropped_; });
  }
  std::array<char, 65536> bytes{};
  const auto into = asio::buffer(bytes);
  const auto count = tls_ ? tls_->read_some(into) : socket_.read_some(into);
  unread_.append(bytes.data(), count);
}

void LoopbackServer::Connection::put(const std::string& bytes) {
  const std::scoped_lock lock(writing_);
  error_code ignored; // the reader notices too
  const auto from = asio::buffer(bytes);
  tls_ ? asio::write(*tls_, from, ignored) : asio::write(socket_, from, ignored);
}

void LoopbackServer::Connection::sendFrame(unsigned opcode, const std::string& payload) {
  const auto size = payload.size();
  const int extra = size < 126 ? 0 : size < 65536 ? 2 : 8;
  const char length = static_cast<char>(extra == 0 ? size : extra == 2 ? 126 : 127);
  put(std::string{static_cast<char>(0x80U | opcode), length} + bigEndian(size, extra) + payload);
}

void LoopbackServer::Connection::close(std::uint16_t code) {
  closing_ = true;
  sendFrame(8, bigEndian(code, 2));
}

void LoopbackServer::Connection::reset() {
  error_code ignored;
  socket_.set_option(asio::socket_base::linger(true, 0), ignored);
  drop(tcp::socket::shutdown_receive);
}

void LoopbackServer::Connection::drop(tcp::socket::shutdown_type which) {
  state_->change([this, which] {
    error_code ignored;
    if (!std::exchange(dropped_, true)) socket_.shutdown(which, ignored);
  });
}

void LoopbackServer::Connection::pause(bool paused) {
  state_->change([this, paused] { paused_ = paused; });
}

LoopbackServer::LoopbackServer(Options options)
    : options_(std::move(options)), state_(std::make_shared<State>()), acceptor_(state_->context) {
  if (!options_.certificateChainFile.empty()) {
    tls_ = std::make_shared<asio::ssl::context>(asio::ssl::context::tls_server);
    tls_->use_certificate_chain_file(options_.certificateChainFile);
    tls_->use_private_key_file(options_.privateKeyFile, asio::ssl::context::pem);
  }
  const tcp::endpoint at(asio::ip::make_address(options_.address), options_.port);
  acceptor_ = tcp::acceptor(state_->context, at);
  port_ = acceptor_.local_endpoint().port();
  if (options_.acceptsConnections) accepting_ = std::thread([this] { acceptAll(); });
}

LoopbackServer::~LoopbackServer() {
  ::shutdown(acceptor_.native_handle(), SHUT_RDWR);
  if (accepting_.joinable()) accepting_.join();
  for (const auto& connection : state_->read(state_->live)) connection->drop(tcp::socket::shutdown_both);
  std::unique_lock lock(state_->mutex);
  state_->happened.wait(lock, [this] { return state_->live.empty(); });
  const auto unlinked = std::exchange(state_->opened, {}); // connections and state held each other
  lock.unlock();
}

void LoopbackServer::acceptAll() {
  for (error_code error;;) {
    auto socket = acceptor_.accept(error);
    if (error) return;
    auto connection = std::make_shared<Connection>(state_, std::move(socket), tls_);
    state_->change([&] {
      ++state_->accepted;
      state_->live.insert(connection);
    });
    std::thread([connection] { connection->serve(); }).detach();
  }
}

std::string LoopbackServer::url(const std::string& scheme, const std::string& pathAndQuery) const {
  const bool six = options_.address.find(':') != std::string::npos;
  return scheme + "://" + (six ? "[" + options_.address + "]" : options_.address) + ":" +
         std::to_string(port_) + pathAndQuery;
}

LoopbackServer::ConnectionPointer LoopbackServer::connection(std::size_t index) const {
  const auto opened = state_->read(state_->opened);
  return index < opened.size() ? opened[index] : nullptr;
}

bool LoopbackServer::waitFor(const std::function<bool()>& condition, std::chrono::milliseconds limit) const {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    std::unique_lock lock(state_->mutex);
    state_->happened.wait_for(lock, std::chrono::milliseconds(2));
  }
  return true;
}

} // namespace tolvera::test
