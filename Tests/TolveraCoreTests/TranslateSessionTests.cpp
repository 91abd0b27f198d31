#include "TolveraCore/TranslateSession.h"

#include "Fakes/ScriptedURLSession.h"
#include "Harness/TestLoop.h"

#include <boost/asio/thread_pool.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tolvera {

namespace {

using namespace std::chrono_literals;
using Session = TranslateSession;
using Event = Session::Event;
using test::ScriptedConnection;
using testing::ElementsAre;

const Event connecting = Session::Connecting{};
const Event reconnecting = Session::Reconnecting{};
const Event ended = Session::Ended{};
const platform::Data chunk(3200, std::byte{1});
constexpr const char* readyFrame = R"({"type":"ready","secondsLeft":60})";
const Event ready = Session::Ready{60};

Event disconnected(const std::string& why) { return Session::Failed{"连接断开：" + why, "disconnected"}; }

std::string line(const std::string& text) { return R"({"type":"tr","text":")" + text + R"("})"; }
Event lineEvent(const std::string& text) {
  return Session::Caption{Session::CaptionKind::translation, text, "", false};
}

// A run in virtual time, with the events and when each came.
class SessionRun : public testing::Test {
 protected:
  test::TestLoop loop_;
  test::ScriptedURLSession network_;
  const WallTime origin_ = loop_.clock().now();
  std::shared_ptr<Session> session_ = make();
  std::vector<Event> events_;
  std::vector<double> times_;
  bool streamOver_ = false;

  std::shared_ptr<Session> make() { return make(loop_.executor()); }
  std::shared_ptr<Session> make(const Executor& background) {
    return Session::make(background, loop_.clock(), platform::URL("http://h/base"), "token",
                         {.target = "es", .source = "en", .dub = false, .showSource = true, .voice = {}},
                         network_);
  }
  void start() {
    streamOver_ = false;
    auto read = [](std::shared_ptr<Session> session, SessionRun& test) -> Task<void> {
      auto stream = co_await session->start();
      session.reset();
      while (auto event = co_await stream.next()) {
        test.times_.push_back(test.seconds());
        test.events_.push_back(std::move(*event));
      }
      test.streamOver_ = true;
    };
    spawn(loop_.executor(), "reader", read(session_, *this));
    loop_.settle();
  }
  TaskHandle begin(Task<void> task) {
    auto handle = spawn(loop_.executor(), "test", std::move(task));
    loop_.settle();
    return handle;
  }
  TaskHandle send() { return begin(session_->send(chunk)); }
  TaskHandle stop() { return begin(session_->stop()); }
  double seconds() { return std::chrono::duration<double>(loop_.clock().now() - origin_).count(); }
  std::shared_ptr<ScriptedConnection> current() { return network_.connection(); }
  void fail(const std::string& why = "线路断了") {
    current()->fail(why);
    loop_.settle();
  }
  void deliver(const std::string& text) {
    current()->deliver(text);
    loop_.settle();
  }
};

TEST_F(SessionRun, BacksOffThenGivesUp) {
  network_.onConnection([](ScriptedConnection& connection) { connection.fail("连接被拒绝"); });
  start();
  loop_.advance(60s);
  EXPECT_THAT(events_, ElementsAre(connecting, reconnecting, reconnecting, reconnecting, reconnecting,
                                   reconnecting, reconnecting, disconnected("连接被拒绝"), ended));
  EXPECT_THAT(times_, ElementsAre(0, 0.5, 1.5, 3.5, 7.5, 15.5, 23.5, 23.5, 23.5));
  EXPECT_TRUE(streamOver_);
  for (const auto& each : network_.connections())
    EXPECT_EQ(each->url().buffer(), "ws://h/base/ws?token=token&target=es&source=en&dub=0&src=1");
}

TEST_F(SessionRun, CountsAfreshWhenReady) {
  network_.onConnection([](ScriptedConnection& connection) { connection.fail(); });
  start();
  network_.onConnection([](ScriptedConnection& connection) { connection.accept(); });
  loop_.advance(400ms);
  fail();
  loop_.advance(100ms); // opened, then broken before its "ready": that is an attempt too
  fail();
  loop_.advance(1s);
  deliver(readyFrame);
  fail();
  loop_.advance(1s);
  EXPECT_THAT(events_, ElementsAre(connecting, reconnecting, reconnecting, ready, reconnecting));
  EXPECT_THAT(times_, ElementsAre(0, 0.5, 1.5, 1.5, 2.0));
}

TEST_F(SessionRun, PassesFramesBothWays) {
  network_.onConnection([](ScriptedConnection&) {}); // the handshake takes a while
  start();
  const auto sending = send();
  EXPECT_FALSE(sending.finished());
  current()->accept();
  loop_.settle();
  EXPECT_TRUE(sending.finished());
  EXPECT_THAT(current()->sentAudio(), ElementsAre(chunk));
  for (const char* ignored : {"{", R"({"type":"status","state":"fine"})"}) deliver(ignored);
  deliver(R"({"type":"error"})"); // not fatal
  deliver(R"({"type":"status","state":"reconnecting"})");
  current()->deliver(
      platform::Data{std::byte{0}, std::byte{0x80}, std::byte{0}, std::byte{0x40}, std::byte{9}});
  current()->deliver(platform::Data{std::byte{9}});
  deliver(line("hola"));
  fail();
  loop_.advance(500ms); // the first wait: a status does not count
  EXPECT_THAT(events_, ElementsAre(connecting, Event(Session::Failed{"翻译服务出错", "upstream"}),
                                   reconnecting, Event(Session::Dub{{-1.0F, 0.5F}}), Event(Session::Dub{}),
                                   lineEvent("hola"), reconnecting));
}

TEST_F(SessionRun, EndsOnFatalError) {
  for (const std::string code : {"quota_exhausted", "replaced", "upstream_rejected"}) {
    events_.clear();
    session_ = make();
    start();
    current()->deliver(R"({"type":"error","code":")" + code + R"(","message":"no"})");
    current()->deliver(line("too late"));
    loop_.settle();
    EXPECT_TRUE(send().finished());
    EXPECT_TRUE(stop().finished()) << "no goodbye is due";
    loop_.advance(60s);
    EXPECT_THAT(events_, ElementsAre(connecting, Event(Session::Failed{"no", code}), ended));
    EXPECT_EQ(current()->closes().size(), 1U);
    EXPECT_TRUE(current()->sent().empty());
  }
}

TEST_F(SessionRun, ListensFiveSecondsAfterGoodbye) {
  start();
  deliver(readyFrame);
  send();
  const auto stopping = stop();
  EXPECT_TRUE(stop().finished());
  EXPECT_TRUE(send().finished());
  EXPECT_THAT(current()->sentTexts(), ElementsAre(R"({"type":"stop"})"));
  EXPECT_EQ(current()->sentAudio().size(), 1U) << "no audio after the goodbye";
  loop_.advance(4900ms);
  deliver(line("late"));
  EXPECT_FALSE(stopping.finished());
  EXPECT_TRUE(current()->closes().empty());
  loop_.advance(100ms);
  EXPECT_TRUE(stopping.finished());
  EXPECT_THAT(events_, ElementsAre(connecting, ready, lineEvent("late"), ended));
  EXPECT_EQ(current()->closes().at(0).code, 1000);
  EXPECT_EQ(current()->closes().at(0).reason, "");
}

TEST_F(SessionRun, StopsInEveryState) {
  EXPECT_TRUE(send().finished());
  EXPECT_TRUE(stop().finished()) << "before it began";
  start();
  EXPECT_TRUE(streamOver_ && events_.empty() && network_.connections().empty());

  // Nothing is sent while it waits to connect again, and no connection follows.
  session_ = make();
  start();
  fail();
  const auto stopping = stop();
  loop_.advance(5s);
  EXPECT_TRUE(stopping.finished());
  EXPECT_THAT(events_, ElementsAre(connecting, ended));
  EXPECT_EQ(network_.connections().size(), 1U);

  // Before the handshake is done, the frame waits. A failure ends the session early.
  events_.clear();
  network_.onConnection([](ScriptedConnection&) {});
  session_ = make();
  start();
  const auto early = stop();
  fail();
  EXPECT_THAT(events_, ElementsAre(connecting, ended));
  EXPECT_FALSE(early.finished());
  loop_.advance(5s);
  EXPECT_TRUE(early.finished());
  EXPECT_EQ(events_.size(), 2U);
}

// Both the receive loop and the pump notice a loss, each with its own wait and its own attempt.
TEST_F(SessionRun, CountsLossTwiceWhileAudioFlows) {
  start();
  deliver(readyFrame);
  loop_.advance(1s);
  fail();
  loop_.advance(100ms);
  const auto sending = send();
  loop_.advance(900ms);
  EXPECT_FALSE(sending.finished()) << "the pump is held";
  EXPECT_EQ(network_.connections().size(), 2U);
  loop_.advance(100ms);
  EXPECT_TRUE(sending.finished());
  const auto replaced = network_.connections().at(1);
  EXPECT_TRUE(replaced->closes().empty());
  EXPECT_TRUE(replaced->sent().empty()) << "a lost chunk is not sent again";
  replaced->deliver(line("from the past"));
  replaced->fail();
  loop_.advance(10s);
  EXPECT_THAT(events_, ElementsAre(connecting, ready, reconnecting, reconnecting));
  EXPECT_THAT(times_, ElementsAre(0, 0, 1.5, 2.1));
  EXPECT_EQ(network_.connections().size(), 3U);
  fail();
  loop_.advance(1900ms);
  EXPECT_EQ(network_.connections().size(), 3U) << "the third attempt waits 2 s";
  loop_.advance(100ms);
  EXPECT_EQ(network_.connections().size(), 4U);
}

TEST_F(SessionRun, FinishesFrameOfCancelledSender) {
  start();
  for (const bool lost : {false, true}) {
    current()->stall();
    const auto pump = send();
    pump.cancel();
    loop_.advance(30s);
    EXPECT_FALSE(pump.finished()) << "the pump waits while the server does not read";
    deliver(line("reading goes on"));
    if (lost) fail();
    current()->goOn();
    loop_.advance(1s);
    EXPECT_TRUE(pump.finished());
  }
  const auto caption = lineEvent("reading goes on");
  EXPECT_THAT(network_.connections().front()->sentAudio(), ElementsAre(chunk));
  EXPECT_THAT(events_, ElementsAre(connecting, caption, caption, reconnecting, reconnecting));
}

TEST_F(SessionRun, LeavesNothingBehindWhenDropped) {
  start();
  fail();
  std::weak_ptr<Session> dropped = std::exchange(session_, make()); // while it waits
  EXPECT_TRUE(dropped.expired());
  loop_.advance(10s);
  EXPECT_TRUE(streamOver_);
  EXPECT_EQ(network_.connections().size(), 1U);

  start();
  fail();
  loop_.advance(100ms);
  send();
  loop_.advance(2s); // a replaced connection and a current one, both open
  dropped = std::exchange(session_, nullptr);
  EXPECT_TRUE(dropped.expired());
  loop_.settle();
  EXPECT_EQ(network_.connections().at(2)->closes().size(), 1U);
  EXPECT_EQ(network_.connections().at(3)->closes().size(), 1U);
  for (const auto& each : network_.connections())
    EXPECT_EQ(each.use_count(), 2) << "the network and this loop";
}

// Real threads and a server that fails at any moment. The sanitizers are the judges.
TEST_F(SessionRun, SurvivesFailuresOnThreads) {
  boost::asio::thread_pool pool(2);
  auto feed = [](std::shared_ptr<Session> into) -> Task<void> {
    for (int i = 0; i < 50; ++i) co_await into->send(chunk);
  };
  auto finish = [](std::shared_ptr<Session> what) -> Task<void> { co_await what->stop(); };
  for (int run = 0; run < 60; ++run) {
    network_.onConnection([run](ScriptedConnection& connection) {
      connection.deliver(readyFrame);
      if (run % 3 == 0) connection.fail();
    });
    events_.clear();
    session_ = make(pool.get_executor());
    start();
    ASSERT_TRUE(loop_.settleUntil([&] { return !events_.empty(); }));
    const auto pump = spawn(loop_.executor(), "pump", feed(session_));
    for (int i = 0; i < run; ++i) loop_.settle();
    current()->deliver(line("x"));
    if (run % 2 == 0) current()->fail();
    pump.cancel();
    const auto stopping = spawn(loop_.executor(), "stop", finish(std::exchange(session_, nullptr)));
    ASSERT_TRUE(loop_.settleUntil([&] {
      if (const auto due = loop_.clock().nextDue()) loop_.clock().moveTo(*due);
      return streamOver_ && stopping.finished() && pump.finished();
    }));
    EXPECT_EQ(events_.back(), ended);
  }
  pool.join();
}

} // namespace
} // namespace tolvera
