#include "Platform/Linux/Network/WordedURLSession.h"
#include "PlatformTests/NetworkFixture.h"

#include <boost/asio/ip/tcp.hpp>

namespace tolvera::test {
namespace {

using boost::asio::ip::tcp;

// A listening port whose backlog is full, so that a connect to it waits in vain.
struct FullPort {
  FullPort() {
    acceptor.listen(0);
    for (int i = 0; i < 8; ++i) {
      waiting.emplace_back(context).async_connect(acceptor.local_endpoint(), [](auto) {});
    }
  }

  boost::asio::io_context context;
  tcp::acceptor acceptor{context, tcp::endpoint(boost::asio::ip::address_v4::loopback(), 0)};
  std::vector<tcp::socket> waiting;
  const std::uint16_t port = acceptor.local_endpoint().port();
};

class NetworkFault : public NetworkTest {
 protected:
  NetworkFault() : NetworkTest(impatient()) {}

  static BeastOptions impatient() {
    BeastOptions options;
    options.resolveTimeout = options.connectTimeout = options.tlsTimeout = options.upgradeTimeout = 300ms;
    options.closeTimeout = 300ms;
    options.unacknowledged = 2s;
    options.keepAliveIdle = options.keepAliveInterval = 1s;
    options.maxBinaryBytes = limit;
    return options;
  }
  static constexpr std::size_t limit = 1U << 20U;

  // Receivers, senders and later callers get the same words.
  void expectFailure(const std::string& url, const std::string& text) {
    auto socket = open(url + "/ws?token=secret");
    auto receiving = start(socket->receive());
    EXPECT_EQ(run(socket->send(bytes(10))), text);
    EXPECT_EQ(end(receiving), text);
    EXPECT_EQ(run(socket->send(bytes(1))), text);
  }

  // Sends until a send does not end any more, and gives that one.
  Pending fill(WebSocketTask& socket) {
    for (int i = 0; i < 2000; ++i) {
      auto sending = start(socket.send(bytes(64 * 1024)));
      if (!endsWithin(sending, 500ms)) return sending;
    }
    throw std::runtime_error("the socket takes everything");
  }

  void expectReached(const LoopbackServer& server, const std::string& host) {
    auto socket = open("ws://" + host + ":" + std::to_string(server.port()) + "/ws");
    EXPECT_EQ(run(socket->send(bytes(1))), "sent");
  }
};

TEST_F(NetworkFault, NamesAnswerToRefusedUpgrade) {
  const std::string wrong = "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\n"
                            "Connection: upgrade\r\nSec-WebSocket-Accept: wrong\r\n\r\n";
  const std::pair<Reply, std::string> cases[] = {
      {Reply::http(404), "The server answered 404 to the web socket request"},
      {Reply::http(200, "hello"), "The server answered 200 to the web socket request"},
      {Reply::raw("\x01 garbage\r\n\r\n"), where_ + " gave no valid answer to the web socket request"},
      {Reply::raw(wrong), where_ + " gave no valid answer to the web socket request"},
      {Reply::raw(""), where_ + " ended the connection"},
      {Reply::silence(), "No answer from " + where_ + " within 0.3 s"},
  };
  for (const auto& [reply, text] : cases) {
    server_.onUpgrade([&reply](const auto&) { return reply; });
    expectFailure("ws://" + where_, text);
  }
  EXPECT_TRUE(allClosed());
}

TEST_F(NetworkFault, NamesReasonForUnreachableAddress) {
  const auto at = [](std::uint16_t port) { return "127.0.0.1:" + std::to_string(port); };
  const std::string gone = LoopbackServer().where();
  const FullPort full;
  boost::asio::io_context context;
  const tcp::acceptor silent(context, tcp::endpoint(boost::asio::ip::address_v4::loopback(), 0));
  const std::string mute = at(silent.local_endpoint().port());
  expectFailure("ftp://" + where_, "The address does not begin with http or https");
  expectFailure("ws://" + gone, "Could not connect to " + gone + ": Connection refused");
  expectFailure("ws://nowhere.test", "There is no host named nowhere.test");
  expectFailure("ws://127.0.0.1:99999", "There is no port 99999");
  const std::pair<std::string, std::string> waiting[] = {
      {"ws://slow.test", "Looking up slow.test took too long"},
      {"ws://" + at(full.port), "No answer from " + at(full.port) + " within 0.3 s"},
      {"wss://" + mute, "No answer from " + mute + " within 0.3 s"},
  };
  for (const auto& [url, text] : waiting) {
    expectFailure(url, text);
    auto socket = open(url);
    auto pending = start(socket->receive());
    EXPECT_FALSE(endsWithin(pending, 100ms));
    socket->cancel(1000, "");
    EXPECT_TRUE(endsWithin(pending, 2s)) << "a cancel does not wait for the time-out";
    EXPECT_EQ(end(pending), closed);
  }
}

TEST_F(NetworkFault, WordsFailuresForPeople) {
  platform::InterfaceLanguage language;
  adapters::WordedURLSession worded(session_, language);
  const std::string gone = LoopbackServer().where();
  const auto socket = worded.webSocketTask(platform::URL("ws://" + gone + "/?token=secret"),
                                           boost::asio::make_strand(network_));
  socket->resume();
  EXPECT_EQ(run(socket->receive()), "The service at " + gone + " does not answer");
  language.setChinese(true);
  EXPECT_EQ(run(socket->send(bytes(1))), gone + " 上的服务没有响应");
  EXPECT_EQ(run(worded.data(get("http://nowhere.test/?token=secret"))), "找不到服务器 nowhere.test");
}

TEST_F(NetworkFault, ReachesFirstAddressThatAnswers) {
  LoopbackServer::Options six;
  six.address = "::1";
  const LoopbackServer sixOnly(six);
  for (const std::string host : {"both.test", "dead-first.test"}) {
    expectReached(server_, host);
    expectReached(sixOnly, host);
  }
  expectReached(sixOnly, "[::1]");
  EXPECT_EQ(sixOnly.requests().at(2).headers.at("host"), sixOnly.where());

  // An address that swallows connects does not hold up the next.
  const FullPort full;
  six.port = full.port;
  expectReached(LoopbackServer(six), "swallowing.test");
}

TEST_F(NetworkFault, DeliversMessagesBeforeTheEnd) {
  const std::pair<std::function<void(Connection&)>, std::string> cases[] = {
      {[](Connection& server) { server.close(1011); }, "The server closed the connection (1011)"},
      {[](Connection& server) { server.reset(); }, "The connection to " + where_ + " was reset"},
      {[](Connection& server) { server.sendBinary(std::string(limit + 1, 42)); },
       where_ + " sent a message of more than 1024 KiB"},
      {[](Connection& server) { server.sendText(std::string(65'537, 'a')); },
       where_ + " sent a text of more than 64 KiB"},
      {[](Connection& server) { server.sendText("\xff\xfe"); }, where_ + " broke the web socket protocol"},
  };
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    auto socket = open(server_.url("ws"));
    ASSERT_TRUE(eventually([this, i] { return server_.connection(i) != nullptr; }));
    server_.connection(i)->sendBinary(std::string(limit, '*'));
    EXPECT_EQ(run(socket->receive()), std::string(limit, '*'));
    const auto& [end, text] = cases[i];
    end(*server_.connection(i));
    EXPECT_EQ(run(socket->receive()), text);
    EXPECT_EQ(run(socket->send(bytes(1))), text);
  }
}

TEST_F(NetworkFault, HoldsSenderWhileServerDoesNotRead) {
  auto socket = connect();
  server_.connection(0)->pauseReading(true);
  auto held = fill(*socket);
  server_.connection(0)->pauseReading(false);
  EXPECT_EQ(end(held), "sent");

  server_.connection(0)->pauseReading(true);
  held = fill(*socket);
  auto pending = start(socket->receive());
  socket->cancel(1000, "");
  EXPECT_EQ(end(held), closed);
  EXPECT_EQ(end(pending), closed);
  server_.connection(0)->pauseReading(false);
  EXPECT_TRUE(allClosed());
}

TEST_F(NetworkFault, LeavesServerThatNeverSaysGoodbye) {
  auto socket = connect();
  server_.connection(0)->pauseReading(true);
  run(socket->send(bytes(1))); // ends a read that is under way, so that the close frame is not read
  eventually([this] { return server_.connection(0)->frameCount() == 2; }, 100ms);
  socket->cancel(1000, "");
  network_.join();
  EXPECT_FALSE(server_.connection(0)->closeCode());
  server_.connection(0)->pauseReading(false);
  EXPECT_TRUE(allClosed());
}

TEST_F(NetworkFault, NoticesVanishedPeer) {
  for (const std::size_t sends : {0U, 1U}) { // in silence too
    auto socket = connect(sends);
    auto pending = start(socket->receive());
    if (!server_.connection(sends)->vanish()) GTEST_SKIP() << "only the superuser can cut a connection here";
    if (sends > 0) run(socket->send(bytes(3200)));
    EXPECT_TRUE(endsWithin(pending, 10s)) << sends;
    EXPECT_EQ(end(pending), where_ + " has stopped answering");
  }
}

} // namespace
} // namespace tolvera::test
