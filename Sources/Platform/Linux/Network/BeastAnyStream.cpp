#include "Platform/Linux/Network/BeastAnyStream.h"

#include <boost/asio/bind_executor.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/beast/websocket/teardown.hpp>

#include <vector>

namespace tolvera::adapters {

namespace {

using Socket = AnyStream::Socket;
namespace ssl = boost::asio::ssl;

class PlainLayer final : public AnyStream::Layer {
 public:
  explicit PlainLayer(Socket socket) : socket_(std::move(socket)) {}

  Socket& socket() override { return socket_; }
  void readSome(boost::asio::mutable_buffer buffer, AnyStream::TransferHandler handler) override {
    socket_.async_read_some(buffer, std::move(handler));
  }
  void writeSome(AnyStream::Buffers buffers, AnyStream::TransferHandler handler) override {
    socket_.async_write_some(buffers, std::move(handler));
  }
  void handshake(ssl::stream_base::handshake_type, AnyStream::EndHandler handler) override {
    boost::asio::post(socket_.get_executor(), [handler = std::move(handler)]() mutable {
      std::move(handler)(boost::asio::error::operation_not_supported);
    });
  }
  void shutDown(boost::beast::role_type role, AnyStream::EndHandler handler) override {
    auto bound = boost::asio::bind_executor(socket_.get_executor(), std::move(handler));
    boost::beast::websocket::async_teardown(role, socket_, std::move(bound));
  }

 private:
  Socket socket_;
};

class SecureLayer final : public AnyStream::Layer {
 public:
  SecureLayer(Socket socket, std::shared_ptr<ssl::context> context)
      : context_(std::move(context)), stream_(std::move(socket), *context_) {}

  Socket& socket() override { return stream_.next_layer(); }
  void readSome(boost::asio::mutable_buffer buffer, AnyStream::TransferHandler handler) override {
    stream_.async_read_some(buffer, std::move(handler));
  }
  // A frame's header and payload come as two buffers. Joined, they make one record and one packet.
  void writeSome(AnyStream::Buffers buffers, AnyStream::TransferHandler handler) override {
    if (buffers.count <= 1) {
      stream_.async_write_some(buffers, std::move(handler));
      return;
    }
    record_.resize(std::min(boost::asio::buffer_size(buffers), maxRecordBytes));
    boost::asio::buffer_copy(boost::asio::buffer(record_), buffers);
    stream_.async_write_some(boost::asio::buffer(record_), std::move(handler));
  }
  void handshake(ssl::stream_base::handshake_type side, AnyStream::EndHandler handler) override {
    stream_.async_handshake(side, std::move(handler));
  }
  void shutDown(boost::beast::role_type, AnyStream::EndHandler handler) override {
    stream_.async_shutdown(std::move(handler));
  }
  void* nativeTLS() override { return stream_.native_handle(); }

 private:
  static constexpr std::size_t maxRecordBytes = 16384;

  std::shared_ptr<ssl::context> context_;
  ssl::stream<Socket> stream_;
  std::vector<std::byte> record_; // of the one write under way
};

} // namespace

AnyStream AnyStream::plain(Socket socket) {
  return AnyStream(std::make_unique<PlainLayer>(std::move(socket)));
}

AnyStream AnyStream::secure(Socket socket, std::shared_ptr<ssl::context> context) {
  return AnyStream(std::make_unique<SecureLayer>(std::move(socket), std::move(context)));
}

void AnyStream::close() {
  if (!layer_) return;
  ErrorCode ignored;
  layer_->socket().close(ignored);
}

} // namespace tolvera::adapters
