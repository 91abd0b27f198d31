#include "TolveraCore/TranslateSession.h"

#include "Async/On.h"
#include "Async/Spawn.h"
#include "TolveraCore/PCMChunker.h"
#include "TolveraCore/SessionProtocol.h"

#include <boost/asio/strand.hpp>

#include <algorithm>
#include <chrono>
#include <exception>

namespace tolvera {

using namespace std::chrono_literals;

namespace {

constexpr int mostReconnects = 6;
constexpr Duration firstBackoff = 500ms;
constexpr Duration longestBackoff = 8s;
constexpr Duration drainTime = 5s;
constexpr std::uint16_t normalClosure = 1000;

// A wait whose failure only makes it shorter.
Task<void> pause(Clock& clock, Duration duration) {
  try {
    co_await clock.sleep(duration);
  } catch (const std::exception&) {
  }
}

// Sends, and gives the description of the failure if there was one.
Task<std::optional<std::string>> attempt(std::shared_ptr<platform::WebSocketTask> connection,
                                         platform::WebSocketTask::Message message) {
  try {
    co_await connection->send(std::move(message));
  } catch (const std::exception& error) {
    co_return error.what();
  }
  co_return std::nullopt;
}

} // namespace

std::shared_ptr<TranslateSession> TranslateSession::make(const Executor& background, Clock& clock,
                                                         platform::URL baseURL, std::string token,
                                                         Config config, platform::URLSession& urlSession) {
  return std::shared_ptr<TranslateSession>(new TranslateSession(boost::asio::make_strand(background), clock,
                                                                std::move(baseURL), std::move(token),
                                                                std::move(config), urlSession));
}

TranslateSession::TranslateSession(Executor strand, Clock& clock, platform::URL baseURL, std::string token,
                                   Config config, platform::URLSession& urlSession)
    : strand_(std::move(strand)), clock_(clock), baseURL_(std::move(baseURL)), token_(std::move(token)),
      config_(std::move(config)), urlSession_(urlSession) {}

TranslateSession::~TranslateSession() {
  if (task_) task_->cancel(normalClosure, "");
  for (const auto& old : replaced_) {
    if (auto connection = old.lock()) connection->cancel(normalClosure, "");
  }
}

Task<AsyncStream<TranslateSession::Event>> TranslateSession::start() {
  return shielded(strand_, begin(shared_from_this()));
}

Task<void> TranslateSession::send(platform::Data audio) {
  return shielded(strand_, sendChunk(shared_from_this(), std::move(audio)));
}

Task<void> TranslateSession::stop() { return shielded(strand_, sayGoodbye(shared_from_this())); }

Task<AsyncStream<TranslateSession::Event>> TranslateSession::begin(std::shared_ptr<TranslateSession> self) {
  auto [writer, stream] = AsyncStream<Event>::make();
  if (self->finished_) co_return std::move(stream); // stopped before it began: nothing will come
  self->continuation_ = std::move(writer);
  self->connect();
  co_return std::move(stream);
}

Task<void> TranslateSession::sendChunk(std::shared_ptr<TranslateSession> self, platform::Data audio) {
  if (!self->task_ || self->stopping_) co_return;
  const auto failure = co_await attempt(self->task_, std::move(audio));
  if (failure) co_await handleSocketFailure(self, *failure);
}

Task<void> TranslateSession::sayGoodbye(std::shared_ptr<TranslateSession> self) {
  if (self->stopping_) co_return;
  self->stopping_ = true;
  const auto connection = self->task_;
  if (connection) {
    co_await attempt(connection, std::string(SessionProtocol::stopFrame));
    co_await pause(self->clock_, drainTime);
    connection->cancel(normalClosure, "");
  }
  self->finish();
}

void TranslateSession::connect() {
  if (stopping_ || finished_) return;
  deliver(reconnects_ == 0 ? Event(Connecting{}) : Event(Reconnecting{}));
  auto connection = urlSession_.webSocketTask(SessionProtocol::socketURL(baseURL_, token_, config_));
  if (task_) {
    std::erase_if(replaced_, [](const auto& old) { return old.expired(); });
    replaced_.push_back(task_);
  }
  task_ = connection;
  connection->resume();
  spawn(strand_, "session receive loop", receiveLoop(weak_from_this(), std::move(connection)));
}

Task<void> TranslateSession::receiveLoop(std::weak_ptr<TranslateSession> session, Connection connection) {
  for (;;) {
    std::optional<platform::WebSocketTask::Message> message;
    std::string failure;
    try {
      message = co_await connection->receive();
    } catch (const std::exception& error) {
      failure = error.what();
    }
    auto self = session.lock();
    if (!self || self->task_ != connection) co_return;
    if (!message) {
      self.reset();
      co_await handleSocketFailure(std::move(session), std::move(failure));
      co_return;
    }
    self->receive(*message);
    if (self->finished_) co_return;
  }
}

void TranslateSession::receive(const platform::WebSocketTask::Message& message) {
  if (const auto* sound = std::get_if<platform::Data>(&message)) {
    deliver(Dub{PCMChunker::decode(*sound)});
  } else {
    handle(std::get<std::string>(message));
  }
}

void TranslateSession::handle(std::string_view text) {
  auto event = SessionProtocol::event(text);
  if (!event) return;
  if (std::holds_alternative<Ready>(*event)) reconnects_ = 0;
  const auto* failure = std::get_if<Failed>(&*event);
  const bool fatal = failure && std::ranges::find(fatalCodes, failure->code) != fatalCodes.end();
  deliver(std::move(*event));
  if (!fatal) return;
  stopping_ = true;
  finish();
}

Task<void> TranslateSession::handleSocketFailure(std::weak_ptr<TranslateSession> session,
                                                 std::string description) {
  auto self = session.lock();
  if (!self) co_return;
  if (self->stopping_ || self->finished_) {
    self->finish();
    co_return;
  }
  if (self->reconnects_ >= mostReconnects) {
    self->deliver(Failed{"连接断开：" + description, "disconnected"});
    self->finish();
    co_return;
  }
  const auto backoff = std::min<Duration>(firstBackoff * (1 << self->reconnects_), longestBackoff);
  ++self->reconnects_;
  auto& clock = self->clock_;
  self.reset();
  co_await pause(clock, backoff);
  if (auto still = session.lock()) still->connect();
}

void TranslateSession::deliver(Event event) {
  if (continuation_) continuation_->yield(std::move(event));
}

void TranslateSession::finish() {
  if (finished_) return;
  finished_ = true;
  if (task_) {
    task_->cancel(normalClosure, "");
    task_.reset();
  }
  deliver(Ended{});
  if (continuation_) continuation_->finish();
  continuation_.reset();
}

} // namespace tolvera
