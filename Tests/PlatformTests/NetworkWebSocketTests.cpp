#include "Fakes/Recording.h"
#include "PlatformTests/NetworkFixture.h"

namespace tolvera::test {
namespace {

using NetworkWebSocket = NetworkTest;

TEST_F(NetworkWebSocket, SendsBegunBeforeTheHandshakeArriveInTheOrderOfTheCalls) {
  auto socket = session_.webSocketTask(platform::URL(server_.url("ws", "/live/ws?token=secret&target=es")));
  std::vector<Started<void>> sends;
  for (std::size_t i = 0; i < 50; ++i) sends.push_back(start(socket->send(bytes(i))));
  sends.push_back(start(socket->send(std::string("{\"type\":\"stop\"}"))));
  EXPECT_FALSE(sends.front().ended());
  socket->resume();
  for (auto& send : sends) send.result();

  ASSERT_TRUE(
      server_.waitFor([this] { return server_.connection(0) && server_.connection(0)->frameCount() == 51; }));
  const auto frames = server_.connection(0)->frames();
  for (std::size_t i = 0; i < 50; ++i) {
    EXPECT_EQ(frames[i].payload.size(), i);
    EXPECT_FALSE(frames[i].isText);
  }
  EXPECT_TRUE(frames[50].isText);
  EXPECT_EQ(server_.connection(0)->request().target, "/live/ws?token=secret&target=es");
}

TEST_F(NetworkWebSocket, EachReceiveGivesTheNextMessageWholeWhetherItCameBeforeOrAfterTheCall) {
  server_.onOpen([](Connection& connection) {
    connection.sendText("first");
    connection.sendBinary("");
  });
  server_.onFrame([](Connection& connection, const Frame& frame) { connection.sendBinary(frame.payload); });
  auto socket = connect();
  EXPECT_EQ(run(socket->receive()), Message("first"));
  EXPECT_EQ(run(socket->receive()), Message(platform::Data()));
  platform::Data large(3'000'000);
  for (std::size_t i = 0; i < large.size(); ++i) large[i] = static_cast<std::byte>(i * 31 % 251);
  auto later = start(socket->receive());
  auto latest = start(socket->receive());
  run(socket->send(large));
  run(socket->send(bytes(0)));
  EXPECT_EQ(later.result(), Message(large));
  EXPECT_EQ(latest.result(), Message(platform::Data()));
}

TEST_F(NetworkWebSocket, CancelSaysGoodbyeAfterWhatWasSentAndFailsWhoeverWaits) {
  auto socket = connect();
  run(socket->send(std::string("last words")));
  auto pending = start(socket->receive());
  EXPECT_FALSE(pending.ended());
  const std::string reason(122, 'a');
  socket->cancel(1000, reason + "界"); // longer than a close frame has room for
  expectCancelled(pending);
  socket->cancel(1001, "too late");
  auto sending = start(socket->send(bytes(1)));
  auto receiving = start(socket->receive());
  expectCancelled(sending);
  expectCancelled(receiving);
  EXPECT_EQ(closeCode(), 1000);
  EXPECT_EQ(server_.connection(0)->closeReason(), reason);
  EXPECT_EQ(server_.connection(0)->frameCount(), 1U);
  EXPECT_TRUE(allClosed());
}

TEST_F(NetworkWebSocket, DroppingTheLastReferenceClosesTheConnectionInTheBackground) {
  auto socket = connect();
  run(socket->send(bytes(1))); // over the handshake
  auto pending = start(socket->receive());
  socket.reset();
  expectCancelled(pending);
  EXPECT_EQ(closeCode(), 1001);
}

TEST_F(NetworkWebSocket, CancelBeforeItIsOpenConnectsToNobodyForLong) {
  auto before = session_.webSocketTask(platform::URL(server_.url("ws")));
  before->cancel(1000, "");
  before->resume();
  auto pending = start(before->receive());
  expectCancelled(pending);
  EXPECT_EQ(server_.acceptedCount(), 0U);

  server_.onUpgrade([](const auto&) { return Reply::silence(); });
  for (int i = 0; i < 20; ++i) {
    auto socket = open(server_.url("ws"));
    auto receiving = start(socket->receive());
    auto sending = start(socket->send(bytes(1)));
    if (i == 0) ASSERT_TRUE(server_.waitFor([this] { return server_.requests().size() == 1; }));
    socket->cancel(1000, "");
    expectCancelled(receiving);
    expectCancelled(sending);
  }
  EXPECT_TRUE(allClosed());
}

TEST_F(NetworkWebSocket, CancellingTheCallersLeavesTheConnectionAsItWas) {
  auto socket = connect();
  std::atomic<int> given = 0;
  auto reader = [](std::shared_ptr<WebSocketTask> from, std::atomic<int>& count) -> Task<void> {
    auto message = co_await from->receive();
    ++count;
  };
  const auto reading = spawn(main_.get_executor(), "reader", reader(socket, given));
  EXPECT_FALSE(finished(reading));
  reading.cancel();
  EXPECT_FALSE(finished(reading));
  run(socket->send(bytes(1)));
  server_.connection(0)->sendText("for the cancelled reader");
  EXPECT_TRUE(server_.waitFor([&] { return finished(reading); }));
  EXPECT_EQ(given, 1);
  server_.connection(0)->sendText("for the next");
  EXPECT_EQ(run(socket->receive()), Message("for the next"));
}

TEST_F(NetworkWebSocket, ManyConnectionsOpenedAndClosedLeakNoDescriptor) {
  auto cycle = [this](std::size_t i) {
    auto socket = open(server_.url("ws"));
    auto pending = start(socket->receive());
    run(socket->send(bytes(1)));
    ASSERT_TRUE(server_.waitFor([this, i] { return server_.connection(i) != nullptr; }));
    if (i % 3 == 1) server_.connection(i)->reset();
    if (i % 3 == 2) server_.connection(i)->close(1011);
    socket->cancel(1000, "");
    pending.failure();
  };
  for (std::size_t i = 0; i < 6; ++i) cycle(i);
  ASSERT_TRUE(allClosed());
  const auto before = entries("/proc/self/fd");
  for (std::size_t i = 6; i < 200; ++i) cycle(i);
  ASSERT_TRUE(allClosed());
  EXPECT_TRUE(server_.waitFor([before] { return entries("/proc/self/fd") <= before; }));
}

} // namespace
} // namespace tolvera::test
