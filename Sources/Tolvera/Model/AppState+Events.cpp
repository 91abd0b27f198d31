#include "Tolvera/Model/AppState.h"

#include <boost/asio/post.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>

#include <chrono>
#include <variant>

namespace tolvera {

namespace {

template<typename... Cases>
struct Overloaded : Cases... {
  using Cases::operator()...;
};

// After so many events, or so much time, everything else on the main thread has its turn: the windows and the
// desktop are answered however fast the service sends.
constexpr int eventsInATurn = 64;
constexpr auto longestTurn = std::chrono::milliseconds(4);

} // namespace

Task<void> AppState::deliver(std::weak_ptr<AppState> model, AsyncStream<TranslateSession::Event> events) {
  using SteadyClock = std::chrono::steady_clock;
  int handled = 0;
  auto begin = SteadyClock::now();
  while (auto event = co_await events.next()) {
    if (auto state = model.lock()) state->handle(*event);
    if (++handled < eventsInATurn && SteadyClock::now() - begin < longestTurn) continue;
    co_await boost::asio::post(co_await boost::asio::this_coro::executor, boost::asio::use_awaitable);
    handled = 0;
    begin = SteadyClock::now();
  }
}

void AppState::handle(const TranslateSession::Event& event) {
  using Session = TranslateSession;
  std::visit(Overloaded{
                 [this](const Session::Ready& ready) {
                   setPhase(Phase(Phase::Kind::live), "the service is ready");
                   setSecondsLeft(ready.secondsLeft);
                   setOverlayStatus(listening());
                 },
                 [this](const Session::Caption& caption) {
                   setOverlayStatus({});
                   applyCaption(caption);
                   restartIdleTimer();
                 },
                 [this](const Session::Balance& balance) { setSecondsLeft(balance.secondsLeft); },
                 [this](const Session::Dub& dub) {
                   if (dubPlayer_) dubPlayer_->play(dub.samples);
                 },
                 [this](const Session::Failed& failed) {
                   const auto message = QString::fromStdString(failed.message);
                   log(QStringLiteral("会话报错 [") + QString::fromStdString(failed.code) +
                       QStringLiteral("] ") + message);
                   fail(friendly(message, failed.code),
                        "session error " + failed.code + ": " + failed.message);
                 },
                 [this](const Session::Connecting&) {
                   setPhase(Phase(Phase::Kind::connecting), "the session connects");
                   setOverlayStatus(strings().connecting());
                 },
                 [this](const Session::Reconnecting&) {
                   setPhase(Phase(Phase::Kind::reconnecting), "the session reconnects");
                   setOverlayStatus(strings().reconnecting());
                 },
                 [this](const Session::Ended&) {
                   log(QStringLiteral("收到 ended"));
                   if (phase_.is(Phase::Kind::failed)) return;
                   begin("stop after the session ended", stop());
                 },
             },
             event);
}

void AppState::applyCaption(const TranslateSession::Caption& caption) {
  const auto text = QString::fromStdString(caption.text);
  const auto stash = QString::fromStdString(caption.stash);
  if (caption.kind == TranslateSession::CaptionKind::source) {
    setSourceLine(text + stash);
  } else if (caption.final) {
    setPreviousLine(text);
    setCurrent({}, {});
  } else {
    setCurrent(text, stash);
  }
}

} // namespace tolvera
