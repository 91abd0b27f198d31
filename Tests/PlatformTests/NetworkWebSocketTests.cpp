#include "PlatformTests/NetworkFixture.h"

namespace tolvera::test {
namespace {

using NetworkWebSocket = NetworkTest;

TEST_F(NetworkWebSocket, SendsInOrderOfCalls) {
  auto socket = make(server_.url("ws", "/live/ws?token=secret&target=es"));
  std::vector<Pending> sends;
  for (std::size_t i = 0; i < 50; ++i) sends.push_back(start(socket->send(bytes(i))));
  sends.push_back(start(socket->send(std::string("stop"))));
  EXPECT_FALSE(endsWithin(sends.front(), 20ms)) << "sends wait for the handshake";
  socket->resume();
  for (auto& send : sends) EXPECT_EQ(end(send), "sent");
  ASSERT_TRUE(hasFrames(51));
  const auto frames = server_.connection(0)->frames();
  for (std::size_t i = 0; i < 50; ++i) EXPECT_EQ(frames[i].payload.size(), i);
  EXPECT_FALSE(frames[49].isText);
  EXPECT_TRUE(frames[50].isText);
  EXPECT_EQ(server_.requests().at(0).target, "/live/ws?token=secret&target=es");
}

TEST_F(NetworkWebSocket, ReceivesWholeMessagesInOrder) {
  server_.onOpen([](Connection& connection) {
    connection.sendText("first");
    connection.sendBinary("");
  });
  server_.onFrame([](Connection& connection, const Frame& frame) { connection.sendBinary(frame.payload); });
  auto socket = open(server_.url("ws"));
  EXPECT_EQ(run(socket->receive()), "\"first\"");
  EXPECT_EQ(run(socket->receive()), "");
  auto later = start(socket->receive());
  auto latest = start(socket->receive());
  run(socket->send(bytes(3'000'000)));
  run(socket->send(bytes(7)));
  EXPECT_EQ(end(later), std::string(3'000'000, '*'));
  EXPECT_EQ(end(latest), "*******");
}

TEST_F(NetworkWebSocket, BoundsUnreceivedMessages) {
  struct Flood {
    int count;
    std::size_t size;
  };
  for (const Flood flood : {Flood{60, 100'000}, Flood{1'500, 1}}) { // what may come in a second and a half
    const auto message = [flood](int i) { return std::string(flood.size, static_cast<char>(i)); };
    server_.onOpen([flood, message](Connection& connection) {
      for (int i = 0; i < flood.count; ++i) connection.sendBinary(message(i));
    });
    const auto begin = std::chrono::steady_clock::now();
    auto socket = open(server_.url("ws"));
    for (int i = 0; i < flood.count; ++i) ASSERT_EQ(run(socket->receive()), message(i));
    EXPECT_GT(std::chrono::steady_clock::now() - begin, 1300ms) << "more is handed on than the pace allows";
  }
}

TEST_F(NetworkWebSocket, SaysGoodbyeAfterWhatWasSent) {
  auto socket = connect();
  auto pending = start(socket->receive());
  EXPECT_FALSE(endsWithin(pending, 20ms));
  run(socket->send(std::string("last words")));
  const std::string reason(122, 'a');
  socket->cancel(1000, reason + "界"); // longer than a close frame has room for
  socket->cancel(1001, "too late");
  EXPECT_EQ(end(pending), closed);
  EXPECT_EQ(run(socket->send(bytes(1))), closed);
  EXPECT_EQ(run(socket->receive()), closed);
  EXPECT_TRUE(allClosed());
  EXPECT_EQ(server_.connection(0)->closeCode(), 1000);
  EXPECT_EQ(server_.connection(0)->closeReason(), reason);
  EXPECT_EQ(server_.connection(0)->frameCount(), 2U);
}

TEST_F(NetworkWebSocket, ClosesWhenDropped) {
  auto socket = connect();
  auto pending = start(socket->receive());
  EXPECT_FALSE(endsWithin(pending, 20ms));
  socket.reset();
  EXPECT_EQ(end(pending), closed);
  EXPECT_TRUE(allClosed());
  EXPECT_EQ(server_.connection(0)->closeCode(), 1001);
}

TEST_F(NetworkWebSocket, CancelsBeforeItIsOpen) {
  auto before = make(server_.url("ws"));
  before->cancel(1000, "");
  before->resume();
  EXPECT_EQ(run(before->receive()), closed);
  EXPECT_TRUE(server_.requests().empty());

  server_.onUpgrade([](const auto&) { return Reply::silence(); });
  for (int i = 0; i < 20; ++i) {
    auto socket = open(server_.url("ws"));
    auto receiving = start(socket->receive());
    auto sending = start(socket->send(bytes(1)));
    if (i == 0) ASSERT_TRUE(eventually([this] { return server_.requests().size() == 1; }));
    socket->cancel(1000, "");
    EXPECT_TRUE(endsWithin(receiving, 2s)) << "a cancel does not wait for the time-out";
    EXPECT_EQ(end(receiving), closed);
    EXPECT_EQ(end(sending), closed);
  }
  EXPECT_TRUE(allClosed());
}

TEST_F(NetworkWebSocket, KeepsReadWhenReaderIsCancelled) {
  auto socket = connect();
  auto reader = [](std::shared_ptr<WebSocketTask> from) -> Task<void> {
    const auto message = co_await from->receive();
  };
  const auto reading = spawn(main_.get_executor(), "reader", reader(socket));
  run(socket->send(bytes(1))); // by now the reader waits
  reading.cancel();
  run(socket->send(bytes(1)));
  EXPECT_FALSE(reading.finished());
  server_.connection(0)->sendText("for the cancelled reader");
  EXPECT_TRUE(eventually([&] { return reading.finished(); }));
  server_.connection(0)->sendText("for the next");
  EXPECT_EQ(run(socket->receive()), "\"for the next\"");
}

} // namespace
} // namespace tolvera::test
