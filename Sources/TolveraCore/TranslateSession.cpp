#include "TolveraCore/TranslateSession.h"

#include "Async/Log.h"
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
constexpr Duration tracePeriod = 10s;
constexpr auto category = log::Category::session;

double inSeconds(Duration duration) { return std::chrono::duration<double>(duration).count(); }

// A wait whose failure only makes it shorter.
Task<void> pause(Clock& clock, Duration duration) {
  try {
    co_await clock.sleep(duration);
  } catch (const std::exception&) {
  }
}

// Holds the object whose members the task uses until the task has ended.
template<typename T>
Task<T> holding(std::shared_ptr<const void>, Task<T> task) {
  co_return co_await std::move(task);
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

template<typename T>
Task<T> TranslateSession::onStrand(Task<T> task) {
  return shielded(strand_, holding(shared_from_this(), std::move(task)));
}

Task<AsyncStream<TranslateSession::Event>> TranslateSession::start() { return onStrand(begin()); }

Task<void> TranslateSession::send(platform::Data audio) { return onStrand(sendChunk(std::move(audio))); }

Task<void> TranslateSession::stop() { return onStrand(sayGoodbye()); }

Task<AsyncStream<TranslateSession::Event>> TranslateSession::begin() {
  auto [writer, stream] = AsyncStream<Event>::make();
  if (finished_) co_return std::move(stream); // it was stopped before: no event will come
  continuation_ = std::move(writer);
  countingSince_ = clock_.now();
  connect();
  co_return std::move(stream);
}

Task<void> TranslateSession::sendChunk(platform::Data audio) {
  traceChunks();
  if (!task_ || stopping_) {
    ++droppedChunks_;
    co_return;
  }
  const auto failure = co_await attempt(task_, std::move(audio));
  ++(failure ? droppedChunks_ : sentChunks_);
  if (failure) co_await handleSocketFailure(weak_from_this(), *failure);
}

Task<void> TranslateSession::sayGoodbye() {
  if (stopping_) co_return;
  stopping_ = true;
  const auto connection = task_;
  if (connection) {
    log::trace(category, "says goodbye and listens for ", inSeconds(drainTime), " s");
    co_await attempt(connection, std::string(SessionProtocol::stopFrame));
    co_await pause(clock_, drainTime);
    connection->cancel(normalClosure, "");
  }
  finish("stopped");
}

void TranslateSession::connect() {
  if (stopping_ || finished_) return;
  deliver(reconnects_ == 0 ? Event(Connecting{}) : Event(Reconnecting{}));
  auto connection = urlSession_.webSocketTask(SessionProtocol::socketURL(baseURL_, token_, config_), strand_);
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
  if (const auto* ready = std::get_if<Ready>(&*event)) {
    reconnects_ = 0;
    log::trace(category, "ready, ", ready->secondsLeft, " s left");
  }
  const auto* failure = std::get_if<Failed>(&*event);
  const bool fatal = failure && std::ranges::find(fatalCodes, failure->code) != fatalCodes.end();
  const std::string why = fatal ? "the service refused to go on: " + failure->code : "";
  deliver(std::move(*event));
  if (!fatal) return;
  stopping_ = true;
  finish(why);
}

Task<void> TranslateSession::handleSocketFailure(std::weak_ptr<TranslateSession> session,
                                                 std::string description) {
  auto self = session.lock();
  if (!self) co_return;
  if (self->stopping_ || self->finished_) {
    self->finish(description);
    co_return;
  }
  if (self->reconnects_ >= mostReconnects) {
    self->deliver(Failed{"连接断开：" + description, "disconnected"});
    self->finish(description);
    co_return;
  }
  const auto backoff = std::min<Duration>(firstBackoff * (1 << self->reconnects_), longestBackoff);
  ++self->reconnects_;
  log::trace(category, "attempt ", self->reconnects_, " of ", mostReconnects, " follows in ",
             inSeconds(backoff), " s: ", description);
  auto& clock = self->clock_;
  self.reset();
  co_await pause(clock, backoff);
  if (auto still = session.lock()) still->connect();
}

void TranslateSession::deliver(Event event) {
  if (continuation_) continuation_->yield(std::move(event));
}

// Once in 10 s, when a chunk comes.
void TranslateSession::traceChunks() {
  if (!log::isOn(category)) return;
  const Duration passed = clock_.now() - countingSince_;
  if (passed < tracePeriod) return;
  log::trace(category, "chunks sent ", sentChunks_, ", dropped ", droppedChunks_, " in ", inSeconds(passed),
             " s");
  countingSince_ += passed;
  sentChunks_ = droppedChunks_ = 0;
}

void TranslateSession::finish(std::string_view why) {
  if (finished_) return;
  finished_ = true;
  log::trace(category, "ended: ", why, "; chunks sent ", sentChunks_, ", dropped ", droppedChunks_,
             " since the last count");
  if (task_) {
    task_->cancel(normalClosure, "");
    task_.reset();
  }
  deliver(Ended{});
  if (continuation_) continuation_->finish();
  continuation_.reset();
}

} // namespace tolvera
