#pragma once

#include "Async/Task.h"

#include <boost/asio/any_completion_handler.hpp>
#include <boost/asio/async_result.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/generic/stream_protocol.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/ssl/stream_base.hpp>
#include <boost/beast/core/role.hpp>

#include <array>
#include <cstddef>
#include <memory>

namespace tolvera::adapters {

// A connected socket, of TCP or of this machine, plain or under TLS, as one type, so that Beast's templates
// are instantiated once instead of once for each kind of stream. Used on the socket's executor alone.
class AnyStream {
 public:
  using executor_type = Executor;
  using Socket = boost::asio::generic::stream_protocol::socket;
  using ErrorCode = boost::system::error_code;
  using TransferHandler = boost::asio::any_completion_handler<void(ErrorCode, std::size_t)>;
  using EndHandler = boost::asio::any_completion_handler<void(ErrorCode)>;

  // One write takes at most this many buffers of a sequence; the others follow in the next write.
  struct Buffers {
    std::array<boost::asio::const_buffer, 8> items;
    std::size_t count = 0;

    using value_type = boost::asio::const_buffer;
    [[nodiscard]] const value_type* begin() const { return items.data(); }
    [[nodiscard]] const value_type* end() const { return items.data() + count; }
  };

  struct Layer {
    virtual ~Layer() = default;
    virtual Socket& socket() = 0;
    virtual void readSome(boost::asio::mutable_buffer buffer, TransferHandler handler) = 0;
    virtual void writeSome(Buffers buffers, TransferHandler handler) = 0;
    virtual void handshake(boost::asio::ssl::stream_base::handshake_type side, EndHandler handler) = 0;
    virtual void shutDown(boost::beast::role_type role, EndHandler handler) = 0;
    virtual void* nativeTLS() { return nullptr; }
  };

  AnyStream() = default;
  static AnyStream plain(Socket socket);
  static AnyStream secure(Socket socket, std::shared_ptr<boost::asio::ssl::context> context);

  [[nodiscard]] executor_type get_executor() const { return layer_->socket().get_executor(); }
  [[nodiscard]] Socket& socket() { return layer_->socket(); }
  // OpenSSL's SSL*, or null for a plain stream.
  [[nodiscard]] void* nativeTLS() { return layer_->nativeTLS(); }
  // Ends every operation under way. Calling it again is harmless.
  void close();

  template<typename MutableBuffers, typename Token>
  auto async_read_some(const MutableBuffers& buffers, Token&& token) ->
      typename boost::asio::async_result<std::decay_t<Token>, void(ErrorCode, std::size_t)>::return_type {
    boost::asio::mutable_buffer first;
    for (auto it = boost::asio::buffer_sequence_begin(buffers);
         it != boost::asio::buffer_sequence_end(buffers) && first.size() == 0; ++it) {
      first = *it;
    }
    auto initiation = [](auto handler, Layer* layer, boost::asio::mutable_buffer buffer) {
      layer->readSome(buffer, TransferHandler(std::move(handler)));
    };
    return boost::asio::async_initiate<Token, void(ErrorCode, std::size_t)>(initiation, token, layer_.get(),
                                                                            first);
  }

  template<typename ConstBuffers, typename Token>
  auto async_write_some(const ConstBuffers& buffers, Token&& token) ->
      typename boost::asio::async_result<std::decay_t<Token>, void(ErrorCode, std::size_t)>::return_type {
    Buffers gathered;
    for (auto it = boost::asio::buffer_sequence_begin(buffers);
         it != boost::asio::buffer_sequence_end(buffers) && gathered.count < gathered.items.size(); ++it) {
      const boost::asio::const_buffer buffer = *it;
      if (buffer.size() > 0) gathered.items[gathered.count++] = buffer;
    }
    auto initiation = [](auto handler, Layer* layer, const Buffers& all) {
      layer->writeSome(all, TransferHandler(std::move(handler)));
    };
    return boost::asio::async_initiate<Token, void(ErrorCode, std::size_t)>(initiation, token, layer_.get(),
                                                                            gathered);
  }

  // The TLS handshake; for a secure stream only.
  template<typename Token>
  auto handshake(boost::asio::ssl::stream_base::handshake_type side, Token&& token) {
    auto initiation = [](auto handler, Layer* layer, boost::asio::ssl::stream_base::handshake_type which) {
      layer->handshake(which, EndHandler(std::move(handler)));
    };
    return boost::asio::async_initiate<Token, void(ErrorCode)>(initiation, token, layer_.get(), side);
  }

  // Ends the layer below the web socket in its orderly way, that of TLS or of TCP.
  void shutDown(boost::beast::role_type role, EndHandler handler) {
    layer_->shutDown(role, std::move(handler));
  }

 private:
  explicit AnyStream(std::unique_ptr<Layer> layer) : layer_(std::move(layer)) {}
  std::unique_ptr<Layer> layer_;
};

// Beast's web socket requires these functions of its stream, with these names.
template<typename Handler>
void async_teardown(boost::beast::role_type role, AnyStream& stream, Handler&& handler) {
  stream.shutDown(role, AnyStream::EndHandler(std::forward<Handler>(handler)));
}
inline void beast_close_socket(AnyStream& stream) { stream.close(); }

} // namespace tolvera::adapters
