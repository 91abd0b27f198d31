#include "PlatformTests/NetworkFixture.h"
#include "PlatformTests/NetworkHosts.h"

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
  static BeastOptions quick() {
    BeastOptions options;
    options.resolveTimeout = options.connectTimeout = options.tlsTimeout = options.upgradeTimeout = 300ms;
    options.closeTimeout = 300ms;
    options.maxMessageBytes = limit;
    return options;
  }
  static constexpr std::size_t limit = 1U << 20U;
  BeastURLSession quick_{network_.get_executor(), quick()};

  // To its receiver, to its sender and to whoever comes later a web socket fails in the same words.
  void expectFailure(const std::string& url, const std::string& text) {
    auto socket = open(quick_, url + "/ws?token=secret");
    auto receiving = start(socket->receive());
    auto sending = start(socket->send(bytes(10)));
    const auto failure = receiving.failure();
    EXPECT_EQ(failure.localizedDescription(), text);
    EXPECT_EQ(failure.domain(), platform::transportErrorDomain);
    EXPECT_EQ(sending.failure().localizedDescription(), text);
    EXPECT_EQ(start(socket->send(bytes(1))).failure().localizedDescription(), text);
  }

  // Sends until a send does not end any more, and gives that one.
  Started<void> fill(WebSocketTask& socket) {
    for (int i = 0; i < 2000; ++i) {
      auto sending = start(socket.send(bytes(64 * 1024)));
      if (!server_.waitFor([&] { return sending.ended(); }, 500ms)) return sending;
    }
    throw std::runtime_error("the socket takes everything");
  }

  void expectReached(const LoopbackServer& server, const std::string& host) {
    auto socket = open("ws://" + host + ":" + std::to_string(server.port()) + "/ws");
    run(socket->send(bytes(1)));
    socket->cancel(1000, "");
  }
};

TEST_F(NetworkFault, AnUpgradeThatIsAnsweredOtherwiseFailsWithTheAnswerInWords) {
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

TEST_F(NetworkFault, AnAddressThatCannotBeReachedSaysWhyAndDoesNotHoldUpACancel) {
  const auto at = [](std::uint16_t port) { return "127.0.0.1:" + std::to_string(port); };
  const std::string gone = at(LoopbackServer().port());
  const FullPort full;
  LoopbackServer::Options mute;
  mute.acceptsConnections = false;
  const LoopbackServer silent(mute);
  hosts::holdBack("slow.test");
  expectFailure("ftp://" + where_, "The address does not begin with http or https");
  expectFailure("ws://" + gone, "Could not connect to " + gone + ": Connection refused");
  expectFailure("ws://nowhere.test", "There is no host named nowhere.test");
  const std::pair<std::string, std::string> waiting[] = {
      {"ws://slow.test", "Looking up slow.test took too long"},
      {"ws://" + at(full.port), "No answer from " + at(full.port) + " within 0.3 s"},
      {"wss://" + at(silent.port()), "No answer from " + at(silent.port()) + " within 0.3 s"},
  };
  for (const auto& [url, text] : waiting) {
    expectFailure(url, text);
    auto socket = open(url);
    auto pending = start(socket->receive());
    EXPECT_FALSE(server_.waitFor([&] { return pending.ended(); }, 100ms));
    socket->cancel(1000, "");
    expectCancelled(pending);
  }
  hosts::release();
}

TEST_F(NetworkFault, TheFirstAddressThatAnswersWinsOfEitherFamily) {
  hosts::define("both.test", {"::1", "127.0.0.1"});
  hosts::define("dead-first.test", {"127.0.0.2", "127.0.0.3", "::1", "127.0.0.1"});
  LoopbackServer::Options six;
  six.address = "::1";
  const LoopbackServer sixOnly(six);
  for (const std::string host : {"both.test", "dead-first.test"}) {
    expectReached(server_, host);
    expectReached(sixOnly, host);
  }
  expectReached(sixOnly, "[::1]");
  EXPECT_EQ(sixOnly.requests().at(2).headers.at("host"), "[::1]:" + std::to_string(sixOnly.port()));

  // An address that swallows connects does not hold up the next.
  const FullPort full;
  six.port = full.port;
  hosts::define("swallowing.test", {"127.0.0.1", "::1"});
  expectReached(LoopbackServer(six), "swallowing.test");
}

TEST_F(NetworkFault, HoweverTheServerEndsItItsMessagesComeFirstAndThenWhoeverWaitsLearnsWhy) {
  const std::pair<std::function<void(Connection&)>, std::string> cases[] = {
      {[](Connection& server) { server.close(1011); }, "The server closed the connection (1011)"},
      {[](Connection& server) { server.reset(); }, "The connection to " + where_ + " was reset"},
      {[](Connection& server) { server.sendBinary(std::string(limit + 1, 42)); },
       where_ + " sent a message of more than 1 MiB"},
      {[](Connection& server) { server.sendText("\xff\xfe"); }, where_ + " broke the web socket protocol"},
  };
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    auto socket = open(quick_, server_.url("ws"));
    ASSERT_TRUE(server_.waitFor([this, i] { return server_.connection(i) != nullptr; }));
    auto message = start(socket->receive());
    server_.connection(i)->sendBinary(std::string(limit, 42));
    EXPECT_EQ(message.result(), Message(bytes(limit)));
    const auto& [end, text] = cases[i];
    end(*server_.connection(i));
    EXPECT_EQ(start(socket->receive()).failure().localizedDescription(), text);
    EXPECT_EQ(start(socket->send(bytes(1))).failure().localizedDescription(), text);
  }

  std::optional<LoopbackServer> killed(std::in_place);
  auto socket = open(killed->url("ws"));
  auto pending = start(socket->receive());
  ASSERT_TRUE(killed->waitFor([&] { return killed->connection(0) != nullptr; }));
  killed.reset();
  EXPECT_EQ(pending.failure().code(), code(TransportError::connectionLost));
}

TEST_F(NetworkFault, AServerThatStopsReadingHoldsTheSenderUntilItReadsOnButNotCancel) {
  auto socket = connect(quick_);
  server_.connection(0)->stopReading();
  auto held = fill(*socket);
  server_.connection(0)->resumeReading();
  held.result();

  server_.connection(0)->stopReading();
  auto heldAgain = fill(*socket);
  auto pending = start(socket->receive());
  socket->cancel(1000, "");
  expectCancelled(heldAgain);
  expectCancelled(pending);
  server_.connection(0)->resumeReading();
  EXPECT_TRUE(allClosed());
}

TEST_F(NetworkFault, AServerThatNeverEndsTheGoodbyeIsLeft) {
  auto socket = connect(quick_);
  server_.connection(0)->stopReading();
  run(socket->send(bytes(1))); // read by the read that was under way; the close frame is not
  socket->cancel(1000, "");
  ASSERT_TRUE(server_.waitFor([this] { return server_.connection(0)->frameCount() == 1; }));
  joinThreads(); // ends only when nothing of the connection is left
  server_.connection(0)->resumeReading();
  EXPECT_TRUE(allClosed());
}

TEST_F(NetworkFault, MessagesThatNobodyReceivesAreBoundedAndThenComeWhole) {
  constexpr int count = 200;
  server_.onOpen([](Connection& connection) {
    for (int i = 0; i < count; ++i) connection.sendBinary(std::string(100'000, static_cast<char>(i)));
  });
  auto socket = connect();
  for (int i = 0; i < count; ++i) {
    ASSERT_EQ(run(socket->receive()), Message(platform::Data(100'000, static_cast<std::byte>(i))));
  }
  socket->cancel(1000, "");
}

} // namespace
} // namespace tolvera::test
