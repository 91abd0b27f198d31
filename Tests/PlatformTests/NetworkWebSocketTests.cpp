#include "PlatformTests/NetworkFixture.h"

#include "Async/Spawn.h"

#include <filesystem>

namespace tolvera::test {
namespace {

using Message = WebSocketTask::Message;

platform::Data binary(const std::string& text) {
  const auto* bytes = reinterpret_cast<const std::byte*>(text.data());
  return {bytes, bytes + text.size()};
}

std::ptrdiff_t openDescriptors() {
  const std::filesystem::directory_iterator open("/proc/self/fd");
  return std::distance(begin(open), end(open));
}

class NetworkWebSocket : public NetworkTest {
 protected:
  LoopbackServer server_;

  std::shared_ptr<WebSocketTask> openConnection() {
    auto socket = open(server_.url("ws", "/live/ws?token=secret&target=es"));
    EXPECT_TRUE(server_.waitFor([this] { return !server_.connections().empty(); }));
    run(socket->send(binary("hello"))); // over for this side too
    return socket;
  }
};

TEST_F(NetworkWebSocket, SendsBegunBeforeTheHandshakeArriveInTheOrderOfTheCalls) {
  auto socket = session_.webSocketTask(platform::URL(server_.url("ws", "/live/ws?token=secret&target=es")));
  std::vector<Started<void>> sends;
  for (int i = 0; i < 50; ++i) sends.push_back(start(socket->send(binary(std::to_string(i)))));
  sends.push_back(start(socket->send(std::string("{\"type\":\"stop\"}"))));
  EXPECT_FALSE(sends.front().ended());
  socket->resume();
  for (auto& send : sends) send.result();

  ASSERT_TRUE(
      server_.waitFor([this] { return server_.connection(0) && server_.connection(0)->frameCount() == 51; }));
  const auto frames = server_.connection(0)->frames();
  for (std::size_t i = 0; i < 50; ++i) {
    EXPECT_EQ(frames[i].payload, std::to_string(i));
    EXPECT_FALSE(frames[i].isText);
  }
  EXPECT_TRUE(frames[50].isText);
  const auto request = server_.connection(0)->request();
  EXPECT_EQ(request.target, "/live/ws?token=secret&target=es");
  EXPECT_FALSE(request.headers.contains("sec-websocket-protocol"));
  EXPECT_FALSE(request.headers.contains("sec-websocket-extensions"));
}

TEST_F(NetworkWebSocket, EachReceiveGivesTheNextMessageWhetherItCameBeforeOrAfterTheCall) {
  server_.onOpen([](LoopbackServer::Connection& connection) {
    connection.sendText("first");
    connection.sendBinary("second");
    connection.sendText("");
    connection.sendBinary("");
  });
  auto socket = openConnection();
  EXPECT_EQ(run(socket->receive()), Message("first"));
  EXPECT_EQ(run(socket->receive()), Message(binary("second")));
  EXPECT_EQ(run(socket->receive()), Message(""));
  EXPECT_EQ(run(socket->receive()), Message(platform::Data()));
  auto later = start(socket->receive());
  auto latest = start(socket->receive());
  server_.connection(0)->sendText("third");
  server_.connection(0)->sendText("fourth");
  EXPECT_EQ(later.result(), Message("third"));
  EXPECT_EQ(latest.result(), Message("fourth"));
}

TEST_F(NetworkWebSocket, LargeAndEmptyMessagesGoThroughWholeInBothDirectionsAtOnce) {
  server_.onFrame([](LoopbackServer::Connection& connection, const LoopbackServer::Frame& frame) {
    if (frame.payload != "hello") connection.sendBinary(frame.payload);
  });
  auto socket = openConnection();
  std::string large(3'000'000, '\0');
  for (std::size_t i = 0; i < large.size(); ++i) large[i] = static_cast<char>(i * 31 % 251);
  auto received = start(socket->receive());
  auto empty = start(socket->receive());
  run(socket->send(binary(large)));
  run(socket->send(platform::Data()));
  EXPECT_EQ(received.result(), Message(binary(large)));
  EXPECT_EQ(empty.result(), Message(platform::Data()));
}

TEST_F(NetworkWebSocket, CancelSaysGoodbyeWithItsCodeAndFailsThePendingReceive) {
  auto socket = openConnection();
  auto pending = start(socket->receive());
  EXPECT_FALSE(pending.ended());
  socket->cancel(1000, "");
  EXPECT_EQ(pending.failure().code(), code(TransportError::cancelled));
  socket->cancel(1001, "too late");
  EXPECT_THROW(run(socket->send(binary("x"))), PlatformError);
  EXPECT_THROW(run(socket->receive()), PlatformError);
  ASSERT_TRUE(server_.waitFor([this] { return server_.connection(0)->closeCode().has_value(); }));
  EXPECT_EQ(server_.connection(0)->closeCode(), 1000);
  EXPECT_EQ(server_.connection(0)->closeReason(), "");
  EXPECT_TRUE(server_.waitFor([this] { return server_.liveCount() == 0; }));
}

TEST_F(NetworkWebSocket, AGoodbyeComesAfterTheFramesSentBeforeItAndItsReasonIsCutToFit) {
  auto socket = openConnection();
  run(socket->send(std::string("last words")));
  std::string reason(122, 'a');
  socket->cancel(1000, reason + "界");
  ASSERT_TRUE(server_.waitFor([this] { return server_.connection(0)->closeCode().has_value(); }));
  EXPECT_EQ(server_.connection(0)->frameCount(), 2U);
  EXPECT_EQ(server_.connection(0)->closeReason(), reason);
}

TEST_F(NetworkWebSocket, DroppingTheLastReferenceClosesTheConnectionInTheBackground) {
  auto socket = openConnection();
  auto pending = start(socket->receive());
  socket.reset();
  EXPECT_EQ(pending.failure().code(), code(TransportError::cancelled));
  ASSERT_TRUE(server_.waitFor([this] { return server_.connection(0)->closeCode().has_value(); }));
  EXPECT_EQ(server_.connection(0)->closeCode(), 1001);
}

TEST_F(NetworkWebSocket, CancelBeforeResumeAndRightAfterItConnectsToNobodyForLong) {
  auto before = session_.webSocketTask(platform::URL(server_.url("ws", "/")));
  before->cancel(1000, "");
  before->cancel(1000, "");
  before->resume();
  EXPECT_EQ(start(before->receive()).failure().code(), code(TransportError::cancelled));
  EXPECT_EQ(server_.acceptedCount(), 0U);

  for (int i = 0; i < 20; ++i) {
    auto after = open(server_.url("ws", "/"));
    auto pending = start(after->receive());
    after->cancel(1000, "");
    EXPECT_EQ(pending.failure().code(), code(TransportError::cancelled));
  }
  EXPECT_TRUE(server_.waitFor([this] { return server_.liveCount() == 0; }));
}

TEST_F(NetworkWebSocket, CancelDuringTheUpgradeDropsTheConnection) {
  server_.onUpgrade([](const auto&) { return LoopbackServer::Reply::silence(); });
  auto socket = open(server_.url("ws", "/?token=secret"));
  auto pendingReceive = start(socket->receive());
  auto pendingSend = start(socket->send(binary("x")));
  ASSERT_TRUE(server_.waitFor([this] { return server_.requests().size() == 1; }));
  socket->cancel(1000, "");
  EXPECT_EQ(pendingReceive.failure().code(), code(TransportError::cancelled));
  EXPECT_EQ(pendingSend.failure().code(), code(TransportError::cancelled));
  EXPECT_TRUE(server_.waitFor([this] { return server_.liveCount() == 0; }));
}

TEST_F(NetworkWebSocket, CancellingTheCallersLeavesTheConnectionAsItWas) {
  auto socket = openConnection();
  std::atomic<int> given = 0;
  auto reader = [](std::shared_ptr<WebSocketTask> from, std::atomic<int>& count) -> Task<void> {
    auto message = co_await from->receive();
    ++count;
  };
  const auto reading = spawn(main_.get_executor(), "reader", reader(socket, given));
  const auto ended = [&] {
    main_.restart();
    main_.poll();
    return reading.finished();
  };
  EXPECT_FALSE(ended());
  reading.cancel();
  EXPECT_FALSE(ended());
  run(socket->send(binary("still here")));
  server_.connection(0)->sendText("for the cancelled reader");
  EXPECT_TRUE(server_.waitFor(ended));
  EXPECT_EQ(given, 1);
  server_.connection(0)->sendText("for the next");
  EXPECT_EQ(run(socket->receive()), Message("for the next"));
}

TEST_F(NetworkWebSocket, ManyConnectionsOpenedAndClosedLeakNoDescriptor) {
  auto cycle = [this](std::size_t i) {
    auto socket = open(server_.url("ws", "/"));
    auto pending = start(socket->receive());
    run(socket->send(binary("x")));
    ASSERT_TRUE(server_.waitFor([this, i] { return server_.connection(i) != nullptr; }));
    if (i % 3 == 1) server_.connection(i)->reset();
    if (i % 3 == 2) server_.connection(i)->close(1011);
    socket->cancel(1000, "");
    pending.failure();
  };
  auto settled = [this] { return server_.liveCount() == 0; };
  for (std::size_t i = 0; i < 6; ++i) cycle(i);
  ASSERT_TRUE(server_.waitFor(settled));
  const auto before = openDescriptors();
  for (std::size_t i = 6; i < 200; ++i) cycle(i);
  ASSERT_TRUE(server_.waitFor(settled));
  EXPECT_TRUE(server_.waitFor([before] { return openDescriptors() <= before; }));
}

} // namespace
} // namespace tolvera::test
