#include "TolveraService/Stream/StreamConnection.h"

#include "TolveraService/Stream/CaptionRoute.h"
#include "TolveraService/Stream/Transcription.h"

#include "Async/Log.h"
#include "Async/On.h"
#include "Async/Spawn.h"

#include <boost/asio/redirect_error.hpp>
#include <boost/asio/steady_timer.hpp>

#include <algorithm>
#include <cstdlib>
#include <utility>
#include <vector>

namespace tolvera::service {

namespace asio = boost::asio;
namespace websocket = boost::beast::websocket;
using asio::use_awaitable;

namespace {

constexpr std::size_t frameLimit = 262144;     // 8 s of sound in one frame
constexpr std::size_t unreadFrameLimit = 4000; // a client that has not read for minutes
constexpr std::chrono::seconds handshakeLimit{10};
constexpr std::chrono::seconds idleLimit{60};      // with pings in between
constexpr std::chrono::seconds afterStopLimit{15}; // a client closes by itself after 5 s
constexpr std::chrono::milliseconds handOverLimit{5000};
constexpr std::chrono::milliseconds handOverStep{20};
// The connections that a client opened while its network was held arrive within this time of each other.
constexpr std::chrono::seconds freshTime{20};
// A client needs less to close a connection that it has given up.
constexpr std::chrono::milliseconds provingTime{1000};

Task<std::optional<AccountStore::Account>> found(std::shared_ptr<Services> services, std::string token) {
  co_return services->accounts.find(token);
}

Task<std::shared_ptr<SpeechEngine>> engineOfRun(std::shared_ptr<Services> services) {
  co_return services->engine.forNextRun();
}

// True if every sample is below -42 dB, which speech is not.
bool isSilence(std::string_view sound) {
  constexpr int loud = 256;
  for (std::size_t i = 0; i + 1 < sound.size(); i += 2) {
    const auto bits = static_cast<std::uint8_t>(sound[i]) | static_cast<std::uint8_t>(sound[i + 1]) << 8;
    if (std::abs(static_cast<std::int16_t>(bits)) >= loud) return false;
  }
  return true;
}

Task<void> pause(std::chrono::milliseconds duration) {
  asio::steady_timer timer(co_await asio::this_coro::executor, duration);
  co_await timer.async_wait(use_awaitable);
}

} // namespace

bool isStreamTarget(std::string_view target) {
  return target.substr(0, target.find('?')) == std::string(Routes::base) + "/ws";
}

StreamConnection::StreamConnection(ClientStream stream, std::shared_ptr<Services> services)
    : services_(std::move(services)), socket_(std::move(stream)) {
  websocket::stream_base::timeout limits{};
  limits.handshake_timeout = handshakeLimit;
  limits.idle_timeout = idleLimit;
  limits.keep_alive_pings = true;
  socket_.set_option(limits);
  socket_.read_message_max(frameLimit);
}

Task<void> StreamConnection::serve(ClientStream stream, Upgrade upgrade, std::shared_ptr<Services> services,
                                   std::shared_ptr<Connections::Entry> entry) {
  auto connection = std::make_shared<StreamConnection>(std::move(stream), std::move(services));
  entry->endsBy([weak = std::weak_ptr(connection)] {
    if (auto alive = weak.lock()) alive->end();
  });
  co_await connection->run(std::move(upgrade));
}

void StreamConnection::giveWayToNewer() {
  if (isOver()) return;
  if (!isFresh()) {
    replace();
    return;
  }
  isContested_ = true;
  lendListener();
  spawn(socket_.get_executor(), "replacing a fresh run", awaitOutcome(weak_from_this()));
}

void StreamConnection::replace() {
  output_->sendLast(errorFrame(errorCode::replaced, refusal::replaced()));
  audio_->abandon();
}

bool StreamConnection::isFresh() const {
  return !stopped_ && (!transcription_ || std::chrono::steady_clock::now() - began_ < freshTime);
}

bool StreamConnection::hasStayed() const {
  return transcription_ && std::chrono::steady_clock::now() - began_ >= provingTime;
}

Task<void> StreamConnection::awaitOutcome(std::weak_ptr<StreamConnection> connection) {
  for (;;) {
    co_await pause(handOverStep);
    const auto self = connection.lock();
    if (!self || self->isOver()) co_return;
    auto& run = self->services_->runs[self->account_];
    const auto newest = run.lock();
    const bool gone = !newest || newest->isOver();
    if (!gone && !newest->hasStayed()) continue;
    self->isContested_ = false;
    if (gone) {
      log::trace(log::Category::service, "the run of account ", self->account_,
                 " goes on: the newer one has gone");
      run = self;
      self->services_->tellRuns();
    } else {
      self->replace();
    }
    co_return;
  }
}

void StreamConnection::end() {
  goingAway_ = true;
  output_->sendLast({});
  audio_->abandon();
}

Task<void> StreamConnection::run(Upgrade upgrade) {
  const auto self = shared_from_this();
  const std::string_view target(upgrade.target().data(), upgrade.target().size());
  if (auto parameters = parseStreamParameters(target)) parameters_ = std::move(*parameters);
  co_await socket_.async_accept(upgrade, use_awaitable);
  std::string refusedWith;
  try {
    refusedWith = co_await admit();
  } catch (const DatabaseError&) {
    leaveRuns();
    refusedWith = errorFrame(errorCode::upstreamRejected, refusal::storeFailed());
  }
  if (!refusedWith.empty()) {
    log::trace(log::Category::service, "run refused: ", refusedWith);
    output_->sendLast(refusedWith);
    audio_->abandon();
  }
  auto writing = [](std::shared_ptr<StreamConnection> connection) -> Task<void> {
    co_await connection->write();
  };
  spawn(co_await asio::this_coro::executor, "writing to a stream", writing(self));
  std::string reason = "the client did not read";
  try {
    co_await read();
  } catch (const boost::system::system_error& error) {
    // Closed by either side, lost, or against the protocol: all are treated alike.
    reason = error.code().message();
  }
  if (refusedWith.empty())
    log::trace(log::Category::service, "run of account ", account_, " ended",
               stopped_ ? " after a stop: " : ": ", reason);
  audio_->abandon();
  if (dub_) dub_->drop();
  output_->sendLast({});
  co_await untilCharged();
  leaveRuns();
  // A translation under way needs a moment to give up: the network does not wait for it.
  if (transcription_) asio::post(services_->warming, [ended = std::move(transcription_)] {});
}

Task<void> StreamConnection::untilCharged() {
  for (auto waited = handOverStep; works_ && waited < handOverLimit; waited += handOverStep)
    co_await pause(handOverStep);
}

void StreamConnection::leaveRuns() {
  const auto run = services_->runs.find(account_);
  if (run == services_->runs.end() || run->second.lock().get() != this) return;
  services_->runs.erase(run);
  services_->tellRuns();
}

Task<std::string> StreamConnection::admit() {
  auto find = found(services_, parameters_.token);
  auto account = co_await on(services_->blocking, std::move(find));
  if (!account) co_return errorFrame(errorCode::upstreamRejected, refusal::unknownToken());
  auto choose = engineOfRun(services_);
  engine_ = co_await on(services_->blocking, std::move(choose));
  services_->onRun();
  if (std::string refused = refusedLanguages(); !refused.empty())
    co_return errorFrame(errorCode::upstreamRejected, refused);
  if (account->secondsLeft <= 0) co_return errorFrame(errorCode::quotaExhausted, refusal::outOfTime());

  auto earlier = std::exchange(services_->runs[account->id], weak_from_this()).lock();
  account_ = account->id;
  if (earlier) earlier->giveWayToNewer();
  services_->tellRuns();
  if (earlier) co_await earlier->untilCharged();
  auto ears = co_await listener();
  if (!ears) {
    leaveRuns();
    // A code that ends the run: after any other one the client would connect again and again in vain, and
    // show a lost connection in the end.
    co_return errorFrame(errorCode::upstreamRejected, refusal::busy(engine_->runs()));
  }
  if (earlier) {
    auto findAgain = found(services_, parameters_.token);
    if (const auto charged = co_await on(services_->blocking, std::move(findAgain))) account = charged;
  }
  begin(*account, std::move(ears));
  co_return std::string();
}

// What is wrong with the languages that the run asks for, as a text for the user; empty if nothing is. A
// language that is still to be identified is looked at when it is known.
std::string StreamConnection::refusedLanguages() const {
  const std::vector<std::string> languages = engine_->languages();
  if (languages.empty()) return refusal::noEngine();
  const bool automatic = parameters_.source == "auto";
  if (!automatic && std::find(languages.begin(), languages.end(), parameters_.source) == languages.end())
    return refusal::cannotHear(parameters_.source, languages);
  if (automatic && languages.size() > 1) return {};
  const std::string& source = automatic ? languages.front() : parameters_.source;
  if (captionRoute(source, parameters_.target, *engine_, services_->translator) != CaptionRoute::none)
    return {};
  const auto offered = captionLanguages(source, *engine_, services_->translator);
  return refusal::cannotTranslate(source, parameters_.target, offered, services_->translator.silentServer());
}

// A run that has ended, or gives way, needs a moment to give its ears back.
Task<std::unique_ptr<Listener>> StreamConnection::listener() {
  auto ears = engine_->listener();
  if (ears || !canHope()) co_return ears;
  for (auto waited = handOverStep; !ears && waited < handOverLimit; waited += handOverStep) {
    co_await pause(handOverStep);
    ears = engine_->listener();
  }
  co_return ears;
}

bool StreamConnection::canHope() {
  std::size_t holders = 0;
  for (const auto& [account, run] : services_->runs) {
    const auto other = run.lock();
    if (!other || other.get() == this || other->isOver()) continue;
    if (other->engine_ != engine_ || !other->holdsListener_) continue;
    if (other->giveWay()) return true;
    ++holders;
  }
  return holders < engine_->runs();
}

bool StreamConnection::giveWay() {
  if (!holdsListener_ || std::chrono::steady_clock::now() - lastSound_ < services_->silence) return false;
  log::trace(log::Category::service, "the silent run of account ", account_, " gives way");
  lendListener();
  return true;
}

void StreamConnection::lendListener() {
  if (!holdsListener_) return;
  holdsListener_ = false;
  audio_->pause();
}

void StreamConnection::listen(std::unique_ptr<Listener> listener) {
  holdsListener_ = works_ = true;
  lastSound_ = std::chrono::steady_clock::now();
  auto work = [services = services_, network = socket_.get_executor(), weak = weak_from_this(),
               transcription = transcription_, ears = std::move(listener)]() mutable {
    transcription->run(std::move(ears));
    asio::post(network, [weak] {
      if (auto alive = weak.lock()) alive->works_ = false;
    });
  };
  asio::post(services_->listening, std::move(work));
}

// A run that lent its listener gets one again when there is something to hear.
Task<void> StreamConnection::take(std::string_view sound) {
  const bool isSilent = isSilence(sound);
  if (!isSilent) lastSound_ = std::chrono::steady_clock::now();
  if (transcription_ && !holdsListener_) {
    if (isSilent) co_return;
    while (isContested_) co_await pause(handOverStep);
    if (isOver()) co_return;
    auto ears = co_await listener();
    while (works_) co_await pause(handOverStep);
    if (!ears) {
      output_->sendLast(errorFrame(errorCode::upstreamRejected, refusal::busy(engine_->runs())));
      audio_->abandon();
    } else {
      audio_->resume();
      listen(std::move(ears));
    }
  }
  audio_->push(sound);
}

void StreamConnection::begin(AccountStore::Account account, std::unique_ptr<Listener> listener) {
  began_ = std::chrono::steady_clock::now();
  output_->send(readyFrame(account.secondsLeft));
  log::trace(log::Category::service, "run of account ", account.id, " accepted: ", parameters_.source, " to ",
             parameters_.target, parameters_.dub ? ", with dub" : "");
  auto services = services_;
  for (const std::string& from :
       {parameters_.source, engine_->translatesInto(), engine_->languages().front()})
    if (services->translator.canTranslate(from, parameters_.target)) {
      asio::post(services->warming, [services, from, target = parameters_.target, audio = audio_] {
        services->translator.warmUp(from, target, [&audio] { return audio->isAbandoned(); });
      });
      break;
    }
  if (parameters_.dub && services->speech.canSpeak(parameters_.target)) {
    dub_ = std::make_shared<DubStream>(services->clock, output_);
    spawn(socket_.get_executor(), "speaking to a stream", DubStream::send(dub_));
  }
  Transcription::Job job{parameters_, account.installation, engine_, audio_, output_, dub_};
  transcription_ = std::make_shared<Transcription>(std::move(job), services->accounts, services->translator,
                                                   services->speech, services->clock);
  listen(std::move(listener));
}

Task<void> StreamConnection::read() {
  boost::beast::flat_buffer buffer;
  for (;;) {
    co_await audio_->untilRoom();
    buffer.clear();
    co_await socket_.async_read(buffer, use_awaitable);
    const std::string_view frame(static_cast<const char*>(buffer.cdata().data()), buffer.size());
    if (output_->waiting() > unreadFrameLimit) co_return;
    if (!socket_.got_text()) {
      co_await take(frame);
      const auto wait = pace_.pauseAfter(frame.size() / 2);
      if (wait > wait.zero()) co_await pause(wait);
    } else if (!stopped_ && isStopFrame(frame)) {
      stopped_ = true;
      audio_->finish();
      if (dub_) dub_->drop(); // a stop silences at once; captions still come
      auto bound = [](std::weak_ptr<StreamConnection> connection) -> Task<void> {
        co_await pause(afterStopLimit);
        if (auto alive = connection.lock()) alive->output_->sendLast({});
      };
      spawn(co_await asio::this_coro::executor, "bounding a stopped stream", bound(weak_from_this()));
    }
  }
}

Task<void> StreamConnection::write() {
  try {
    while (auto frame = co_await output_->next()) {
      if (!frame->payload.empty()) {
        socket_.binary(frame->binary);
        co_await socket_.async_write(asio::buffer(frame->payload), use_awaitable);
      }
      if (!frame->last) continue;
      if (!frame->payload.empty())
        log::trace(log::Category::service, "last frame to account ", account_, ": ", frame->payload);
      const auto code = goingAway_ ? websocket::close_code::going_away : websocket::close_code::normal;
      if (socket_.is_open()) co_await socket_.async_close(code, use_awaitable);
      co_return;
    }
  } catch (const boost::system::system_error&) {
    // The reader gets the same error and ends the run.
  }
}

} // namespace tolvera::service
