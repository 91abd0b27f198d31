#include "TolveraCore/TranslateSession.h"

#include "Fakes/ScriptedURLSession.h"
#include "Harness/TestLoop.h"
#include "TolveraCore/SessionProtocol.h"

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
constexpr const char* line = R"({"type":"tr","text":"hola"})";
const Event lineEvent = Session::Caption{Session::CaptionKind::translation, "hola", "", false};

// A run in virtual time, with the events and when each came.
class SessionRun : public testing::Test {
 protected:
  test::TestLoop loop_;
  test::ScriptedURLSession network_;
  const WallTime origin_ = loop_.clock().now();
  std::shared_ptr<Session> session_ = make(loop_.executor());
  std::vector<Event> events_;
  std::vector<double> times_;
  bool streamOver_ = false;

  std::shared_ptr<Session> make(const Executor& background) {
    return Session::make(background, loop_.clock(), platform::URL("http://h/base"), "token",
                         {.target = "es", .source = "en", .dub = false, .showSource = true, .voice = {}},
                         network_);
  }
  void start() {
    auto read = [](std::shared_ptr<Session> session, SessionRun& test) -> Task<void> {
      auto stream = co_await session->start();
      session.reset();
      while (auto event = co_await stream.next()) {
        test.times_.push_back(std::chrono::duration<double>(test.loop_.clock().now() - test.origin_).count());
        test.events_.push_back(std::move(*event));
      }
      test.streamOver_ = true;
    };
    streamOver_ = false;
    begin(read(session_, *this));
  }
  TaskHandle begin(Task<void> task) {
    auto handle = spawn(loop_.executor(), "test", std::move(task));
    loop_.settle();
    return handle;
  }
  TaskHandle send() { return begin(session_->send(chunk)); }
  std::shared_ptr<ScriptedConnection> current() { return network_.connection(); }
  void fail() {
    current()->fail();
    loop_.settle();
  }
  void deliver(ScriptedConnection::Message message) {
    current()->deliver(std::move(message));
    loop_.settle();
  }
};

TEST_F(SessionRun, BacksOffThenGivesUp) {
  network_.onConnection([](ScriptedConnection& connection) { connection.fail("连接被拒绝"); });
  start();
  loop_.advance(60s);
  const Event failed = Session::Failed{"连接断开：连接被拒绝", "disconnected"};
  EXPECT_THAT(events_, ElementsAre(connecting, reconnecting, reconnecting, reconnecting, reconnecting,
                                   reconnecting, reconnecting, failed, ended));
  EXPECT_THAT(times_, ElementsAre(0, 0.5, 1.5, 3.5, 7.5, 15.5, 23.5, 23.5, 23.5));
  EXPECT_TRUE(streamOver_);
  for (const auto& each : network_.connections())
    EXPECT_EQ(each->url.buffer(), "ws://h/base/ws?token=token&target=es&source=en&dub=0&src=1");
}

TEST_F(SessionRun, CountsAfreshWhenReady) {
  network_.onConnection([](ScriptedConnection& connection) { connection.fail(); });
  start();
  network_.onConnection(&ScriptedConnection::accept);
  loop_.advance(500ms); // opened, then broken before its "ready": that is an attempt too
  fail();
  loop_.advance(1s);
  deliver(readyFrame);
  fail();
  loop_.advance(1s);
  EXPECT_THAT(events_, ElementsAre(connecting, reconnecting, reconnecting, ready, reconnecting));
  EXPECT_THAT(times_, ElementsAre(0, 0.5, 1.5, 1.5, 2.0));
}

TEST_F(SessionRun, SendsNothingAfterGoodbye) {
  // Stopped before it began.
  loop_.run(session_->stop());
  start();
  EXPECT_TRUE(send().finished() && streamOver_ && events_.empty() && network_.connections().empty());
  // During the handshake, while it waits to connect again, and while it runs.
  for (const auto& [accepts, lost] : {std::pair{false, true}, {true, true}, {true, false}}) {
    network_.onConnection([accepts](auto& connection) { accepts ? connection.accept() : void(); });
    session_ = make(loop_.executor());
    events_.clear();
    start();
    if (accepts && lost) fail();
    const auto stopping = begin(session_->stop());
    EXPECT_TRUE(send().finished());
    if (!accepts) fail();
    loop_.advance(4900ms);
    EXPECT_FALSE(stopping.finished());
    loop_.advance(100ms);
    EXPECT_TRUE(stopping.finished());
    EXPECT_THAT(events_, ElementsAre(connecting, ended));
    EXPECT_EQ(current()->sent.size(), lost ? 0U : 1U);
  }
  EXPECT_EQ(network_.connections().size(), 3U);
}

// Both the receive loop and the pump notice a loss, each with its own wait and its own attempt.
TEST_F(SessionRun, CountsLossTwiceWhileAudioFlows) {
  start();
  deliver(readyFrame);
  fail();
  loop_.advance(100ms);
  const auto sending = send();
  loop_.advance(900ms);
  EXPECT_FALSE(sending.finished()) << "the pump is held";
  EXPECT_EQ(network_.connections().size(), 2U);
  loop_.advance(100ms);
  EXPECT_TRUE(sending.finished());
  const auto replaced = network_.connections().at(1);
  EXPECT_TRUE(replaced->closes.empty());
  EXPECT_TRUE(replaced->sent.empty()) << "a lost chunk is not sent again";
  replaced->deliver(line);
  replaced->fail();
  loop_.advance(10s);
  fail();
  loop_.advance(10s);
  EXPECT_THAT(events_, ElementsAre(connecting, ready, reconnecting, reconnecting, reconnecting));
  EXPECT_THAT(times_, ElementsAre(0, 0, 0.5, 1.1, 13.1)) << "the third attempt waits 2 s";
}

TEST_F(SessionRun, FinishesFrameOfCancelledSender) {
  start();
  for (const bool lost : {false, true}) {
    current()->stall();
    const auto pump = send();
    pump.cancel();
    loop_.advance(30s);
    EXPECT_FALSE(pump.finished()) << "the pump waits while the server does not read";
    deliver(line);
    if (lost) fail();
    current()->accept();
    loop_.advance(1s);
    EXPECT_TRUE(pump.finished());
  }
  EXPECT_THAT(network_.connections().front()->sent, ElementsAre(chunk));
  EXPECT_THAT(events_, ElementsAre(connecting, lineEvent, lineEvent, reconnecting, reconnecting));
}

TEST_F(SessionRun, LeavesNothingBehindWhenDropped) {
  start();
  fail();
  loop_.advance(100ms);
  send();
  loop_.advance(2s); // a replaced connection and a current one, both open
  fail();            // and one more attempt is due
  const std::weak_ptr<Session> dropped = std::exchange(session_, nullptr);
  EXPECT_TRUE(dropped.expired());
  loop_.advance(10s);
  EXPECT_TRUE(streamOver_);
  ASSERT_EQ(network_.connections().size(), 3U);
  for (const auto& each : network_.connections()) {
    EXPECT_EQ(each->closes.size(), 1U);
    EXPECT_EQ(each.use_count(), 2) << "the network and this loop";
  }
}

// Real threads and a server that fails at any moment. The sanitizers are the judges.
TEST_F(SessionRun, SurvivesFailuresOnThreads) {
  boost::asio::thread_pool pool(2);
  auto feed = [](std::shared_ptr<Session> into) -> Task<void> {
    for (int i = 0; i < 50; ++i) co_await into->send(chunk);
  };
  for (int run = 0; run < 60; ++run) {
    network_.onConnection([run](ScriptedConnection& connection) {
      connection.accept();
      connection.deliver(readyFrame);
      if (run % 3 == 0) connection.fail();
    });
    events_.clear();
    session_ = make(pool.get_executor());
    start();
    ASSERT_TRUE(loop_.settleUntil([&] { return !events_.empty(); }));
    const auto pump = spawn(loop_.executor(), "pump", feed(session_));
    for (int i = 0; i < run; ++i) loop_.settle();
    current()->deliver(line);
    if (run % 2 == 0) current()->fail();
    pump.cancel();
    const auto stopping = spawn(loop_.executor(), "stop", session_, session_->stop());
    session_.reset();
    ASSERT_TRUE(loop_.settleUntil([&] {
      if (const auto due = loop_.clock().nextDue()) loop_.clock().moveTo(*due);
      return streamOver_ && stopping.finished() && pump.finished();
    }));
    EXPECT_EQ(events_.back(), ended);
  }
  pool.join();
}

TEST(SocketURL, TurnsSchemeOfBase) {
  const std::tuple<const char*, std::optional<std::string>, std::string> addresses[] = {
      {"https://h/base", std::nullopt, "wss://h/base/ws?token=t&target=es&source=auto&dub=0&src=1"},
      {"http://[::1]:8080", "", "ws://[::1]:8080/ws?token=t&target=es&source=auto&dub=0&src=1&voice="},
      {"wss://h", "warm", "wss://h/ws?token=t&target=es&source=auto&dub=0&src=1&voice=warm"},
      {"HTTP://h", std::nullopt, "HTTP://h/ws?token=t&target=es&source=auto&dub=0&src=1"},
      {"http://h/http/", std::nullopt, "ws://h/http//ws?token=t&target=es&source=auto&dub=0&src=1"}};
  for (const auto& [base, voice, expected] : addresses) {
    const Session::Config config{"es", "auto", false, true, voice};
    EXPECT_EQ(SessionProtocol::socketURL(platform::URL(base), "t", config).buffer(), expected);
  }
}

TEST(SocketURL, EncodesAnyTextInQuery) {
  const std::string awkward = "a+b c&d=e%20/?#\"é中\x01";
  const Session::Config config{awkward, "en", true, false, awkward};
  auto url = SessionProtocol::socketURL(platform::URL("http://h/b"), awkward, config);
  std::vector<std::string> values;
  for (const auto& parameter : url.params()) values.emplace_back(parameter.value);
  EXPECT_THAT(values, testing::ElementsAre(awkward, awkward, "en", "1", "0", awkward));
  EXPECT_EQ(std::string(url.encoded_query()).find_first_of("+ #"), std::string::npos)
      << "servers differ in what a bare plus means";
}

TEST(IncomingFrame, ReadsEveryKindWithDefaults) {
  const std::pair<const char*, Event> frames[] = {
      {R"({"type":"ready","secondsLeft":12.5,"more":[1]})", Session::Ready{12.5}},
      {R"({"type":"balance","secondsLeft":-3})", Session::Balance{-3}},
      {R"({"type":"src","text":"Hi","stash":" the","final":true})",
       Session::Caption{Session::CaptionKind::source, "Hi", " the", true}},
      {R"({"type":"tr","text":"\u4f60好\ud83d\ude00"})",
       Session::Caption{Session::CaptionKind::translation, "你好😀", "", false}},
      {R"({"type":"status","state":"reconnecting"})", Session::Reconnecting{}},
      {R"({"type":"error","code":"busy","message":"忙"})", Session::Failed{"忙", "busy"}},
      {R"({"type":"ready"})", Session::Ready{0}},
      {R"({"type":"ready","secondsLeft":"5"})", Session::Ready{0}},
      {R"({"type":"ready","secondsLeft":true})", Session::Ready{0}},
      {R"({"type":"balance","secondsLeft":1e999})", Session::Balance{0}},
      {R"({"type":"tr","text":7,"stash":null,"final":1})",
       Session::Caption{Session::CaptionKind::translation, "", "", false}},
      {R"({"type":"error","code":3})", Session::Failed{"翻译服务出错", "upstream"}}};
  for (const auto& [text, event] : frames) EXPECT_EQ(SessionProtocol::event(text), event) << text;
}

TEST(IncomingFrame, IsDroppedIfNotUnderstood) {
  const std::string deep = std::string(200'000, '[') + std::string(200'000, ']');
  EXPECT_EQ(SessionProtocol::event(R"({"type":"ready","x":)" + deep + "}"), std::nullopt);
  for (const char* frame :
       {"", "null", "[]", "{}", R"([{"type":"ready"}])", R"({"type":5})", R"({"type":"Ready"})", R"("ready")",
        R"({"type":"ready"} {"type":"ready"})", R"({"type":"ready")", R"({"type":"status"})",
        R"({"type":"status","state":"fine"})", R"({"type":"status","state":1})", R"({"type":"reconnecting"})",
        "{\"type\":\"ready\",\"x\":\"\xff\"}", "\xef\xbb\xbf{\"type\":\"ready\"}",
        R"({"type":"ready","x":NaN})"})
    EXPECT_EQ(SessionProtocol::event(frame), std::nullopt) << frame;
}

} // namespace
} // namespace tolvera
