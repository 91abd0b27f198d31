#include "Platform/Linux/Network/BeastWebSocketTask.h"

#include "Async/Log.h"
#include "Async/Spawn.h"
#include "Async/Suspension.h"
#include "Platform/Linux/Network/BeastErrors.h"
#include "Platform/Linux/Network/BeastWebSocketErrors.h"
#include "Platform/Linux/Network/BeastWebSocketWaiter.h"
#include "Platform/Linux/Network/ReadingPace.h"

#include <boost/asio/dispatch.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket/stream.hpp>

#include <deque>

namespace tolvera::adapters {

namespace {

namespace beast = boost::beast;
namespace websocket = boost::beast::websocket;
using platform::PlatformError;
using ErrorCode = boost::system::error_code;
using Message = platform::WebSocketTask::Message;
using Stream = websocket::stream<AnyStream, false>;

constexpr std::size_t maxInboxBytes = 4U << 20U;
constexpr std::size_t maxInboxMessages = 4096;
constexpr std::size_t keptReadBufferBytes = 256U << 10U;
constexpr auto afterFailedWrite = std::chrono::milliseconds(500);

std::size_t sizeOf(const Message& message) {
  return std::visit([](const auto& content) { return content.size(); }, message);
}

// A close frame has room for 123 bytes of reason, and takes whole UTF-8 characters only.
websocket::close_reason closeReason(std::uint16_t code, std::string reason) {
  constexpr std::size_t room = 123;
  if (reason.size() > room) {
    auto end = room;
    while (end > 0 && (static_cast<unsigned char>(reason[end]) & 0xC0U) == 0x80U) --end;
    reason.resize(end);
  }
  return {static_cast<websocket::close_code>(code), reason};
}

platform::PlatformError closedHere() {
  return transportError(TransportError::cancelled, "The connection was closed");
}

} // namespace

// One web socket, on its executor. Sends and receives wait in queues, so that a caller's cancellation does
// not reach the socket. While the connection is open a read is under way, but for the rests that its pace
// asks for. It is never cancelled: it ends with the close handshake or with the socket.
class WebSocketConnection : public std::enable_shared_from_this<WebSocketConnection> {
 public:
  WebSocketConnection(std::shared_ptr<BeastEnvironment> environment, Executor serial, platform::URL url)
      : environment_(std::move(environment)), executor_(std::move(serial)), url_(std::move(url)) {}

  void resume() {
    dispatch([](WebSocketConnection& self) {
      if (self.phase_ != Phase::idle) return;
      self.phase_ = Phase::connecting;
      self.connecting_ = spawn(self.executor_, "web socket", connect(self.shared_from_this()));
    });
  }

  void close(std::uint16_t code, std::string reason) {
    dispatch([code, reason = std::move(reason)](WebSocketConnection& self) { self.closeNow(code, reason); });
  }

  static Task<void> send(std::shared_ptr<WebSocketConnection> self, Message message) {
    auto waiter = std::make_shared<Waiter>();
    waiter->message = std::move(message);
    co_await queue(self, waiter, &WebSocketConnection::enqueue);
    if (waiter->failure) waiter->failure->raise();
  }

  static Task<Message> receive(std::shared_ptr<WebSocketConnection> self) {
    auto waiter = std::make_shared<Waiter>();
    co_await queue(self, waiter, &WebSocketConnection::deliverTo);
    if (waiter->failure) waiter->failure->raise();
    co_return std::move(*waiter->message);
  }

 private:
  enum class Phase { idle, connecting, open, closing, closed };

  // Runs the function at once if the caller is on the executor already.
  template<typename Function>
  void dispatch(Function function) {
    boost::asio::dispatch(executor_,
                          [self = shared_from_this(), function = std::move(function)] { function(*self); });
  }

  // Parks the caller with `waiter`, which `accept` takes over on the executor.
  static Task<void> queue(std::shared_ptr<WebSocketConnection> self, WaiterPointer waiter,
                          void (WebSocketConnection::*accept)(WaiterPointer)) {
    auto park = [self, waiter, accept](Resumption resume) {
      self->dispatch([waiter, accept, resume = std::move(resume)](WebSocketConnection& connection) {
        waiter->resumption = resume;
        (connection.*accept)(waiter);
      });
    };
    auto goOnWaiting = [](const Resumption&, boost::asio::cancellation_type) {};
    co_await suspend(std::move(park), std::move(goOnWaiting));
  }

  static Task<void> connect(std::shared_ptr<WebSocketConnection> self) {
    const Stopwatch stopwatch;
    const std::string path(self->url_.encoded_path()); // without the query, which holds the token
    std::optional<PlatformError> failure;
    try {
      auto endpoint = Endpoint::of(self->url_);
      self->where_ = endpoint.where();
      auto stream = co_await openStream(endpoint, self->environment_, Duration::max() / 2);
      self->socket_.emplace(std::move(stream));
      co_await upgrade(self, endpoint);
    } catch (const PlatformError& error) {
      failure = error;
    } catch (const boost::system::system_error& error) {
      failure = connectionLost(self->where_, error.code());
    }
    if (failure || self->phase_ != Phase::connecting) {
      self->hangUp();
      self->fail(failure ? *failure : closedHere());
      co_return;
    }
    log::trace(log::Category::network, "web socket to ", self->where_, path, " is open after ",
               stopwatch.milliseconds(), " ms");
    self->phase_ = Phase::open;
    self->readNext();
    self->writeNext();
  }

  static Task<void> upgrade(std::shared_ptr<WebSocketConnection> self, Endpoint endpoint) {
    const auto& options = self->environment_->options;
    auto& socket = *self->socket_;
    socket.auto_fragment(false);
    socket.read_message_max(std::max(options.maxTextBytes, options.maxBinaryBytes));
    const auto target = requestTarget(self->url_);

    websocket::response_type response;
    ErrorCode error;
    const Deadline deadline(self->executor_, options.upgradeTimeout, [self] { self->hangUp(); });
    auto token = boost::asio::redirect_error(boost::asio::use_awaitable, error);
    co_await socket.async_handshake(response, endpoint.hostHeader(), target, token);
    if (deadline.expired()) throw noAnswer(self->where_, options.upgradeTimeout);
    if (error) throw upgradeFailure(self->where_, error, response);
    // From here on this limits how long a closing handshake of the peer may take.
    socket.set_option(
        websocket::stream_base::timeout{options.closeTimeout, websocket::stream_base::none(), false});
  }

  void enqueue(WaiterPointer waiter) {
    if (failure_) return waiter->fail(*failure_);
    outbox_.push_back(std::move(waiter));
    writeNext();
  }

  void writeNext() {
    if (phase_ != Phase::open || writing_ || writeFailure_ || outbox_.empty()) return;
    writing_ = std::move(outbox_.front());
    outbox_.pop_front();
    auto& socket = *socket_;
    socket.text(std::holds_alternative<std::string>(*writing_->message));
    auto content =
        std::visit([](const auto& bytes) { return boost::asio::buffer(bytes); }, *writing_->message);
    socket.async_write(content,
                       [self = shared_from_this()](ErrorCode error, std::size_t) { self->wrote(error); });
  }

  // A server that closes may reset the socket right after its goodbye. The read under way will tell which of
  // both happened, so a failed write waits a moment for its words.
  void wrote(ErrorCode error) {
    auto waiter = std::exchange(writing_, nullptr);
    if (!error) {
      waiter->succeed();
      writeNext();
      return;
    }
    if (phase_ != Phase::open) return;
    if (!reading_) {
      hangUp();
      fail(connectionLost(where_, error));
      return;
    }
    outbox_.push_front(std::move(waiter));
    writeFailure_ = error;
    hangUpAfter(afterFailedWrite);
  }

  void deliverTo(WaiterPointer waiter) {
    if (!inbox_.empty()) {
      inboxBytes_ -= sizeOf(inbox_.front());
      waiter->message = std::move(inbox_.front());
      inbox_.pop_front();
      waiter->succeed();
      readNext();
    } else if (failure_) {
      waiter->fail(*failure_);
    } else {
      receivers_.push_back(std::move(waiter));
    }
  }

  void readNext() {
    if (phase_ != Phase::open || reading_ || resting_ || inboxBytes_ >= maxInboxBytes ||
        inbox_.size() >= maxInboxMessages) {
      return;
    }
    reading_ = true;
    socket_->async_read(buffer_,
                        [self = shared_from_this()](ErrorCode error, std::size_t) { self->didRead(error); });
  }

  void didRead(ErrorCode error) {
    reading_ = false;
    if (error) {
      hangUp();
      if (phase_ == Phase::open) fail(failureOfRead(error));
      return;
    }
    if (phase_ == Phase::open) {
      if (socket_->got_text() && buffer_.size() > environment_->options.maxTextBytes) {
        hangUp();
        return fail(tooLarge(where_, true, environment_->options));
      }
      rest(pace_.pauseAfter(buffer_.size(), environment_->options));
      take(message());
    }
    buffer_.consume(buffer_.size());
    if (buffer_.capacity() > keptReadBufferBytes) buffer_.shrink_to_fit();
    readNext(); // while closing, the close handshake reads on
  }

  void rest(Duration pause) {
    if (pause == Duration::zero()) return;
    resting_.emplace(executor_, pause, [weak = weak_from_this()] {
      const auto self = weak.lock();
      if (!self) return;
      self->resting_.reset();
      self->readNext();
    });
  }

  [[nodiscard]] Message message() const {
    const auto bytes = buffer_.cdata();
    const auto* data = static_cast<const std::byte*>(bytes.data());
    if (socket_->got_text()) return std::string(static_cast<const char*>(bytes.data()), bytes.size());
    return platform::Data(data, data + bytes.size());
  }

  void take(Message message) {
    if (receivers_.empty()) {
      inboxBytes_ += sizeOf(message);
      inbox_.push_back(std::move(message));
      return;
    }
    auto waiter = std::move(receivers_.front());
    receivers_.pop_front();
    waiter->message = std::move(message);
    waiter->succeed();
  }

  [[nodiscard]] PlatformError failureOfRead(ErrorCode error) const {
    const bool endedByUs = error == boost::asio::error::operation_aborted;
    return readFailure(where_, endedByUs && writeFailure_ ? *writeFailure_ : error,
                       {socket_->reason(), socket_->got_text()}, environment_->options);
  }

  // All waiting callers fail, and later ones will. The first reason stays.
  void fail(const Failure& why) {
    if (!failure_) {
      failure_ = why;
      const std::string said = socket_ ? socket_->reason().reason.c_str() : "";
      log::trace(log::Category::network, where_, " ended: ", why.text, "; reason: ", said);
    }
    phase_ = Phase::closed;
    if (writing_) writing_->fail(*failure_); // its bytes are kept until the write ends
    for (auto& waiter : std::exchange(outbox_, {})) waiter->fail(*failure_);
    for (auto& waiter : std::exchange(receivers_, {})) waiter->fail(*failure_);
  }

  void closeNow(std::uint16_t code, const std::string& reason) {
    const auto before = phase_;
    if (before == Phase::closing) return;
    if (before == Phase::open) log::trace(log::Category::network, "closing ", where_, " with code ", code);
    inbox_.clear();
    inboxBytes_ = 0;
    fail(closedHere());
    if (before == Phase::connecting) {
      connecting_.cancel();
      hangUp();
    } else if (before == Phase::open) {
      phase_ = Phase::closing;
      hangUpAfter(environment_->options.closeTimeout);
      socket_->async_close(closeReason(code, reason),
                           [self = shared_from_this()](ErrorCode) { self->hangUp(); });
    }
  }

  // The operation under way keeps the connection alive until then. The deadline must not: the connection owns
  // it, and a program that ends earlier would free neither.
  void hangUpAfter(Duration timeout) {
    deadline_.emplace(executor_, timeout, [weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->hangUp();
    });
  }

  // Drops the socket. Every operation under way on it ends.
  void hangUp() {
    if (socket_) socket_->next_layer().close();
    deadline_.reset();
    resting_.reset();
  }

  const std::shared_ptr<BeastEnvironment> environment_;
  const Executor executor_;
  const platform::URL url_;

  // Used on the executor alone.
  Phase phase_ = Phase::idle;
  std::string where_;
  std::optional<Failure> failure_; // set once closing or closed
  TaskHandle connecting_;
  std::optional<Stream> socket_;
  std::deque<WaiterPointer> outbox_;
  WaiterPointer writing_;
  std::optional<ErrorCode> writeFailure_;
  std::deque<WaiterPointer> receivers_;
  std::deque<Message> inbox_; // read, and not yet asked for
  std::size_t inboxBytes_ = 0;
  beast::flat_buffer buffer_;
  bool reading_ = false;
  ReadingPace pace_;
  std::optional<Deadline> resting_;  // until the next read
  std::optional<Deadline> deadline_; // after which the socket is dropped
};

BeastWebSocketTask::BeastWebSocketTask(std::shared_ptr<BeastEnvironment> environment, const Executor& serial,
                                       const platform::URL& url)
    : connection_(std::make_shared<WebSocketConnection>(std::move(environment), serial, url)) {}

BeastWebSocketTask::~BeastWebSocketTask() {
  constexpr std::uint16_t goingAway = 1001;
  connection_->close(goingAway, "");
}

void BeastWebSocketTask::resume() { connection_->resume(); }

Task<void> BeastWebSocketTask::send(Message message) {
  return WebSocketConnection::send(connection_, std::move(message));
}

Task<platform::WebSocketTask::Message> BeastWebSocketTask::receive() {
  return WebSocketConnection::receive(connection_);
}

void BeastWebSocketTask::cancel(std::uint16_t closeCode, std::string reason) {
  connection_->close(closeCode, std::move(reason));
}

} // namespace tolvera::adapters
