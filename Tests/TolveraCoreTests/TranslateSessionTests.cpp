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
class SessionTest : public testing::Test {
 protected:
  test::TestLoop loop_;
  test::ScriptedURLSession network_;
  const WallTime origin_ = loop_.clock().now();
  std::shared_ptr<Session> session_ = make();
  std::vector<Event> events_;
  std::vector<double> times_;
  bool streamOver_ = false;

  std::shared_ptr<Session> make() {
    return Session::make(loop_.executor(), loop_.clock(), platform::URL("http://h/base"), "token",
                         {.target = "es", .source = "en", .dub = false, .showSource = true, .voice = {}},
                         network_);
  }
  void start() {
    auto read = [](AsyncStream<Event> stream, SessionTest& test) -> Task<void> {
      while (auto event = co_await stream.next()) {
        test.times_.push_back(test.seconds());
        test.events_.push_back(std::move(*event));
      }
      test.streamOver_ = true;
    };
    spawn(loop_.executor(), "reader", read(loop_.run(session_->start()), *this));
    loop_.settle();
  }
  TaskHandle send() {
    auto handle = spawn(loop_.executor(), "send", session_->send(chunk));
    loop_.settle();
    return handle;
  }
  TaskHandle stop() {
    auto handle = spawn(loop_.executor(), "stop", session_->stop());
    loop_.settle();
    return handle;
  }
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

TEST_F(SessionTest, TriesARefusingServerSevenTimesWithGrowingWaits) {
  network_.onConnection([](ScriptedConnection& connection) { connection.fail("连接被拒绝"); });
  start();
  loop_.advance(60s);
  EXPECT_THAT(events_, ElementsAre(connecting, reconnecting, reconnecting, reconnecting, reconnecting,
                                   reconnecting, reconnecting, disconnected("连接被拒绝"), ended));
  EXPECT_THAT(times_, ElementsAre(0, 0.5, 1.5, 3.5, 7.5, 15.5, 23.5, 23.5, 23.5));
  EXPECT_TRUE(streamOver_);
  EXPECT_EQ(network_.connections().size(), 7U);
  for (const auto& each : network_.connections()) {
    EXPECT_EQ(each->url().buffer(), "ws://h/base/ws?token=token&target=es&source=en&dub=0&src=1");
  }
  EXPECT_EQ(loop_.clock().sleepers(), 0U);
}

TEST_F(SessionTest, BeginsItsCountAnewOnceTheServerIsReady) {
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

TEST_F(SessionTest, SendsChunksAtOnceAndDeliversWhatComes) {
  network_.onConnection([](ScriptedConnection&) {}); // the handshake takes a while
  start();
  const auto sending = send();
  EXPECT_FALSE(sending.finished());
  current()->accept();
  loop_.settle();
  EXPECT_TRUE(sending.finished());
  EXPECT_THAT(current()->sentAudio(), ElementsAre(chunk));
  deliver(readyFrame);
  deliver(line("hola"));
  current()->deliver(
      platform::Data{std::byte{0}, std::byte{0x80}, std::byte{0}, std::byte{0x40}, std::byte{9}});
  current()->deliver(platform::Data{std::byte{9}});
  loop_.settle();
  EXPECT_THAT(events_, ElementsAre(connecting, ready, lineEvent("hola"), Event(Session::Dub{{-1.0F, 0.5F}}),
                                   Event(Session::Dub{})));
}

TEST_F(SessionTest, FramesWithoutSenseErrorsAndStatusLeaveTheLineAlone) {
  start();
  deliver("{");
  deliver(R"({"type":"error"})");
  deliver(R"({"type":"status","state":"reconnecting"})");
  deliver(line("still here"));
  fail();
  loop_.advance(500ms); // the first wait: a status does not count
  EXPECT_THAT(events_, ElementsAre(connecting, Event(Session::Failed{"翻译服务出错", "upstream"}),
                                   reconnecting, lineEvent("still here"), reconnecting));
  EXPECT_EQ(network_.connections().size(), 2U);
}

TEST_F(SessionTest, EndsAtOnceOnAFatalError) {
  for (const std::string code : {"quota_exhausted", "replaced", "upstream_rejected"}) {
    events_.clear();
    session_ = make();
    start();
    current()->deliver(R"({"type":"error","code":")" + code + R"(","message":"no"})");
    current()->deliver(line("too late"));
    loop_.settle();
    EXPECT_THAT(events_, ElementsAre(connecting, Event(Session::Failed{"no", code}), ended));
    EXPECT_TRUE(streamOver_);
    EXPECT_EQ(current()->closes().size(), 1U);
    EXPECT_TRUE(send().finished());
    EXPECT_TRUE(stop().finished()) << "nothing is left to say goodbye to";
    EXPECT_TRUE(current()->sent().empty());
    loop_.advance(60s);
    EXPECT_EQ(events_.size(), 3U);
  }
}

TEST_F(SessionTest, SaysGoodbyeAndListensForFiveSeconds) {
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
  EXPECT_TRUE(streamOver_);
  for (const auto& close : current()->closes()) {
    EXPECT_EQ(close.code, 1000);
    EXPECT_TRUE(close.reason.empty());
  }
  EXPECT_FALSE(current()->closes().empty());
  EXPECT_TRUE(stop().finished());
  EXPECT_EQ(network_.connections().size(), 1U);
}

TEST_F(SessionTest, StopsWhereverItStands) {
  EXPECT_TRUE(send().finished());
  EXPECT_TRUE(stop().finished()) << "before it began";
  start();
  EXPECT_TRUE(streamOver_);
  EXPECT_TRUE(events_.empty());
  EXPECT_TRUE(network_.connections().empty());

  // While it waits to connect again: nothing is sent, and no connection follows.
  session_ = make();
  start();
  fail();
  const auto stopping = stop();
  loop_.advance(5s);
  EXPECT_TRUE(stopping.finished());
  EXPECT_THAT(events_, ElementsAre(connecting, ended));
  EXPECT_EQ(network_.connections().size(), 1U);

  // Before the handshake is done: the frame waits. A server that fails or closes ends it early.
  events_.clear();
  network_.onConnection([](ScriptedConnection&) {});
  session_ = make();
  start();
  const auto early = stop();
  EXPECT_EQ(current()->waitingSends(), 1U);
  fail();
  EXPECT_THAT(events_, ElementsAre(connecting, ended));
  loop_.advance(5s);
  EXPECT_TRUE(early.finished());
  EXPECT_EQ(events_.size(), 2U);
  EXPECT_EQ(network_.connections().size(), 2U);
}

// The receive loop and the pump both notice, each with its own wait and its own attempt.
TEST_F(SessionTest, CountsALossTwiceWhenAudioFlows) {
  start();
  deliver(readyFrame);
  loop_.advance(1s);
  fail();
  loop_.advance(100ms);
  const auto sending = send();
  loop_.advance(900ms); // 2.0 s: the loop's attempt is up, the pump is still held
  EXPECT_FALSE(sending.finished());
  EXPECT_EQ(network_.connections().size(), 2U);
  loop_.advance(100ms);
  EXPECT_TRUE(sending.finished());
  EXPECT_THAT(events_, ElementsAre(connecting, ready, reconnecting, reconnecting));
  EXPECT_THAT(times_, ElementsAre(0, 0, 1.5, 2.1));

  const auto replaced = network_.connections().at(1);
  EXPECT_TRUE(replaced->closes().empty());
  EXPECT_TRUE(replaced->sent().empty()) << "a lost chunk is not sent again";
  replaced->deliver(line("from the past"));
  replaced->fail();
  loop_.advance(10s);
  EXPECT_EQ(events_.size(), 4U);
  EXPECT_EQ(network_.connections().size(), 3U);
  EXPECT_EQ(replaced.use_count(), 2) << "only the network and this test still know it";
  fail();
  loop_.advance(1900ms);
  EXPECT_EQ(network_.connections().size(), 3U) << "the third attempt waits 2 s";
  loop_.advance(100ms);
  EXPECT_EQ(network_.connections().size(), 4U);
}

TEST_F(SessionTest, HoldsThePumpWhileTheServerDoesNotRead) {
  start();
  deliver(readyFrame);
  current()->stall();
  const auto held = send();
  loop_.advance(30s);
  EXPECT_FALSE(held.finished());
  deliver(line("reading goes on"));
  current()->goOn();
  loop_.settle();
  EXPECT_TRUE(held.finished());
  EXPECT_EQ(current()->sentAudio().size(), 1U);
  EXPECT_THAT(events_, ElementsAre(connecting, ready, lineEvent("reading goes on")));
}

TEST_F(SessionTest, FinishesAFrameOrItsFailureThoughTheSenderWasCancelled) {
  start();
  for (const bool lost : {false, true}) {
    current()->stall();
    const auto pump = send();
    pump.cancel();
    loop_.settle();
    EXPECT_FALSE(pump.finished());
    if (lost) fail();
    current()->goOn();
    loop_.advance(1s);
    EXPECT_TRUE(pump.finished());
  }
  EXPECT_THAT(network_.connections().front()->sentAudio(), ElementsAre(chunk));
  EXPECT_THAT(events_, ElementsAre(connecting, reconnecting, reconnecting));
}

TEST_F(SessionTest, LeavesNothingBehindWhenItIsDropped) {
  start();
  deliver(readyFrame);
  fail();
  loop_.advance(100ms);
  send();
  loop_.advance(2s); // a replaced connection and a current one, both open
  const std::weak_ptr<Session> weak = session_;
  session_.reset();
  EXPECT_TRUE(weak.expired());
  loop_.settle();
  EXPECT_TRUE(streamOver_);
  for (const auto& each : {network_.connections().at(1), network_.connections().at(2)}) {
    EXPECT_EQ(each->closes().size(), 1U);
    EXPECT_EQ(each.use_count(), 2) << "the network and this loop";
  }
}

TEST_F(SessionTest, IsFreeAndSilentOnceItIsDroppedWhileItWaitsOrWhenItHasFinished) {
  start();
  fail();
  const std::weak_ptr<Session> waiting = std::exchange(session_, make());
  EXPECT_TRUE(waiting.expired());
  loop_.advance(10s);
  EXPECT_TRUE(streamOver_);

  start();
  loop_.run(session_->stop());
  loop_.settle();
  const std::weak_ptr<Session> finished = std::exchange(session_, nullptr);
  EXPECT_TRUE(finished.expired());
  loop_.advance(10s);
  EXPECT_EQ(network_.connections().size(), 2U);
  for (const auto& each : network_.connections()) EXPECT_EQ(each.use_count(), 2);
}

// Real threads: the strand on a pool, the application here, and a server that fails when it likes. The
// sanitizers are the judges.
TEST(SessionOnThreads, SurvivesRunsThatFailAndStopAtAnyMoment) {
  test::TestLoop loop;
  boost::asio::thread_pool pool(2);
  auto read = [](std::shared_ptr<Session> of, std::vector<Event>& into) -> Task<void> {
    auto stream = co_await of->start();
    while (auto event = co_await stream.next()) into.push_back(std::move(*event));
  };
  auto feed = [](std::shared_ptr<Session> into) -> Task<void> {
    for (int i = 0; i < 50; ++i) co_await into->send(chunk);
  };
  auto finish = [](std::shared_ptr<Session> what) -> Task<void> { co_await what->stop(); };
  for (int run = 0; run < 60; ++run) {
    test::ScriptedURLSession network;
    network.onConnection([run](ScriptedConnection& connection) {
      connection.deliver(readyFrame);
      if (run % 3 == 0) connection.fail();
    });
    auto session =
        Session::make(pool.get_executor(), loop.clock(), platform::URL("http://h"), "t", {}, network);
    std::vector<Event> events;
    const auto reader = spawn(loop.executor(), "reader", read(session, events));
    ASSERT_TRUE(loop.settleUntil([&] { return !events.empty(); }));
    const auto pump = spawn(loop.executor(), "pump", feed(session));
    for (int i = 0; i < run; ++i) loop.settle();
    network.connection()->deliver(line("x"));
    if (run % 2 == 0) network.connection()->fail();
    pump.cancel();
    const auto stopping = spawn(loop.executor(), "stop", finish(std::move(session)));
    ASSERT_TRUE(loop.settleUntil([&] {
      if (const auto due = loop.clock().nextDue()) loop.clock().moveTo(*due);
      return reader.finished() && stopping.finished() && pump.finished();
    }));
    EXPECT_EQ(events.back(), ended);
  }
  pool.join();
}

} // namespace
} // namespace tolvera
