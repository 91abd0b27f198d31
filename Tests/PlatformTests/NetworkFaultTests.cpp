#include "PlatformTests/NetworkFixture.h"
#include "PlatformTests/NetworkHosts.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace tolvera::test {
namespace {

platform::Data bytes(std::size_t count) { return platform::Data(count, std::byte{42}); }

// A listening port whose backlog is full, so that a connect to it waits in vain.
class FullPort {
 public:
  FullPort() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(listener_, generic, size) != 0 || listen(listener_, 0) != 0 ||
        getsockname(listener_, generic, &size) != 0) {
      throw std::runtime_error("no listening socket");
    }
    for (int i = 0; i < 8; ++i) {
      waiting_.push_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
      (void)connect(waiting_.back(), generic, size);
    }
    port = ntohs(address.sin_port);
  }
  ~FullPort() {
    for (const int descriptor : waiting_) ::close(descriptor);
    ::close(listener_);
  }
  FullPort(const FullPort&) = delete;
  FullPort& operator=(const FullPort&) = delete;

  int port = 0;

 private:
  int listener_ = -1;
  std::vector<int> waiting_;
};

class NetworkFault : public NetworkTest {
 protected:
  LoopbackServer server_;
  std::string where_ = "127.0.0.1:" + std::to_string(server_.port());

  static BeastOptions quick() {
    BeastOptions options;
    options.resolveTimeout = options.connectTimeout = options.tlsTimeout = options.upgradeTimeout = 300ms;
    options.closeTimeout = 300ms;
    return options;
  }
  BeastURLSession quick_{network_.get_executor(), quick()};

  // How a web socket to `url` fails; the same to its receiver and to its sender, and without the token.
  PlatformError failureOf(BeastURLSession& session, const std::string& url) {
    auto socket = open(session, url + "?token=secret");
    auto receiving = start(socket->receive());
    auto sending = start(socket->send(bytes(10)));
    const auto failure = receiving.failure();
    EXPECT_EQ(sending.failure().localizedDescription(), failure.localizedDescription());
    EXPECT_EQ(start(socket->send(bytes(1))).failure().code(), failure.code());
    EXPECT_EQ(failure.domain(), platform::transportErrorDomain);
    EXPECT_EQ(failure.localizedDescription().find("secret"), std::string::npos);
    return failure;
  }

  std::shared_ptr<WebSocketTask> openConnection(BeastURLSession& session) {
    auto socket = open(session, server_.url("ws", "/?token=secret"));
    EXPECT_TRUE(server_.waitFor([this] { return server_.connection(0) != nullptr; }));
    return socket;
  }

  // Sends until a send does not end any more, and gives that one.
  Started<void> fill(WebSocketTask& socket) {
    for (int i = 0; i < 2000; ++i) {
      auto sending = start(socket.send(bytes(64 * 1024)));
      if (!server_.waitFor([&] { return sending.ended(); }, 500ms)) return sending;
    }
    throw std::runtime_error("the socket takes everything");
  }
};

TEST_F(NetworkFault, AnUpgradeThatIsAnsweredOtherwiseFailsWithTheAnswerInWords) {
  struct Case {
    LoopbackServer::Reply reply;
    TransportError code;
    std::string text;
  };
  using Reply = LoopbackServer::Reply;
  const std::vector<Case> cases = {
      {Reply::http(404), TransportError::upgradeRefused, "The server answered 404 to the web socket request"},
      {Reply::http(500, "{}"), TransportError::upgradeRefused,
       "The server answered 500 to the web socket request"},
      {Reply::http(200, "hello"), TransportError::upgradeRefused,
       "The server answered 200 to the web socket request"},
      {Reply::raw("\x01 garbage\r\n\r\n"), TransportError::notHTTP,
       where_ + " gave no valid answer to the web socket request"},
      {Reply::raw("HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: upgrade\r\n"
                  "Sec-WebSocket-Accept: wrong\r\n\r\n"),
       TransportError::notHTTP, where_ + " gave no valid answer to the web socket request"},
      {Reply::raw(""), TransportError::connectionLost, where_ + " ended the connection"},
      {Reply::silence(), TransportError::timedOut, "No answer from " + where_ + " within 0.3 s"},
  };
  for (const auto& one : cases) {
    server_.onUpgrade([reply = one.reply](const auto&) { return reply; });
    const auto failure = failureOf(quick_, server_.url("ws", "/ws"));
    EXPECT_EQ(failure.code(), code(one.code));
    EXPECT_EQ(failure.localizedDescription(), one.text);
  }
  EXPECT_TRUE(server_.waitFor([this] { return server_.liveCount() == 0; }));
}

TEST_F(NetworkFault, AnAddressThatCannotBeReachedSaysWhy) {
  std::optional<LoopbackServer> gone(std::in_place);
  const auto port = std::to_string(gone->port());
  gone.reset();
  const auto refused = failureOf(session_, "ws://127.0.0.1:" + port + "/ws");
  EXPECT_EQ(refused.code(), code(TransportError::cannotConnect));
  EXPECT_EQ(refused.localizedDescription(),
            "Could not connect to 127.0.0.1:" + port + ": Connection refused");

  EXPECT_EQ(failureOf(session_, "ws://nowhere.test/ws").localizedDescription(),
            "There is no host named nowhere.test");
  EXPECT_EQ(failureOf(session_, "ftp://127.0.0.1/ws").code(), code(TransportError::badRequest));

  const FullPort full;
  const auto silent = failureOf(quick_, "ws://127.0.0.1:" + std::to_string(full.port) + "/ws");
  EXPECT_EQ(silent.code(), code(TransportError::timedOut));
}

TEST_F(NetworkFault, ALookupThatHangsEndsAfterItsTimeoutAndAtOnceWhenCancelled) {
  hosts::holdBack("slow.test");
  EXPECT_EQ(failureOf(quick_, "ws://slow.test/ws").localizedDescription(),
            "Looking up slow.test took too long");
  auto socket = open("ws://slow.test/ws");
  auto pending = start(socket->receive());
  socket->cancel(1000, "");
  EXPECT_EQ(pending.failure(2s).code(), code(TransportError::cancelled));
  hosts::release();
}

TEST_F(NetworkFault, CancelWhileConnectingIsImmediate) {
  const FullPort full;
  auto socket = open("ws://127.0.0.1:" + std::to_string(full.port) + "/ws");
  auto pending = start(socket->receive());
  EXPECT_FALSE(server_.waitFor([&] { return pending.ended(); }, 100ms));
  socket->cancel(1000, "");
  EXPECT_EQ(pending.failure(2s).code(), code(TransportError::cancelled));
}

TEST_F(NetworkFault, TheFirstAddressThatAnswersWinsOfEitherFamily) {
  auto reaches = [this](const LoopbackServer& server, const std::string& host) {
    auto socket = open("ws://" + host + ":" + std::to_string(server.port()) + "/ws");
    run(socket->send(bytes(1)));
    socket->cancel(1000, "");
  };
  hosts::define("both.test", {"::1", "127.0.0.1"});
  hosts::define("dead-first.test", {"127.0.0.2", "127.0.0.3", "::1", "127.0.0.1"});
  LoopbackServer::Options six;
  six.address = "::1";
  const LoopbackServer sixOnly(six);
  reaches(server_, "both.test");
  reaches(server_, "dead-first.test");
  reaches(sixOnly, "both.test");
  reaches(sixOnly, "dead-first.test");
  reaches(sixOnly, "[::1]");
  EXPECT_EQ(sixOnly.requests().at(2).headers.at("host"), "[::1]:" + std::to_string(sixOnly.port()));

  // An address that swallows connects does not hold up the next.
  const FullPort full;
  LoopbackServer::Options samePort;
  samePort.address = "::1";
  samePort.port = static_cast<std::uint16_t>(full.port);
  const LoopbackServer behind(samePort);
  hosts::define("swallowing.test", {"127.0.0.1", "::1"});
  reaches(behind, "swallowing.test");
}

TEST_F(NetworkFault, TheServersGoodbyeComesAfterItsMessagesAndWithItsCode) {
  server_.onOpen([](LoopbackServer::Connection& connection) {
    connection.sendText("last words");
    connection.close(1011);
  });
  auto socket = openConnection(session_);
  EXPECT_EQ(run(socket->receive()), WebSocketTask::Message("last words"));
  const auto failure = start(socket->receive()).failure();
  EXPECT_EQ(failure.code(), code(TransportError::closedByPeer));
  EXPECT_EQ(failure.localizedDescription(), "The server closed the connection (1011)");
  EXPECT_EQ(start(socket->send(bytes(1))).failure().localizedDescription(), failure.localizedDescription());
  EXPECT_TRUE(server_.waitFor([this] { return server_.connection(0)->closeCode() == 1011; }));
}

TEST_F(NetworkFault, AResetAndAVanishedProcessFailWhoeverWaits) {
  auto socket = openConnection(session_);
  auto pending = start(socket->receive());
  server_.connection(0)->reset();
  EXPECT_EQ(pending.failure().localizedDescription(), "The connection to " + where_ + " was reset");
  EXPECT_EQ(start(socket->send(bytes(1))).failure().code(), code(TransportError::connectionLost));

  std::optional<LoopbackServer> killed(std::in_place);
  auto other = open(killed->url("ws", "/"));
  auto otherPending = start(other->receive());
  ASSERT_TRUE(killed->waitFor([&] { return killed->connection(0) != nullptr; }));
  killed.reset();
  EXPECT_EQ(otherPending.failure().code(), code(TransportError::connectionLost));
}

TEST_F(NetworkFault, AServerThatStopsReadingHoldsTheSenderUntilItReadsOn) {
  auto socket = openConnection(session_);
  server_.connection(0)->stopReading();
  auto held = fill(*socket);
  server_.connection(0)->resumeReading();
  held.result();
}

TEST_F(NetworkFault, AServerThatStopsReadingDoesNotHoldUpCancel) {
  auto socket = openConnection(quick_);
  server_.connection(0)->stopReading();
  auto held = fill(*socket);
  auto pending = start(socket->receive());
  socket->cancel(1000, "");
  EXPECT_EQ(held.failure(2s).code(), code(TransportError::cancelled));
  EXPECT_EQ(pending.failure(2s).code(), code(TransportError::cancelled));
  server_.connection(0)->resumeReading();
  EXPECT_TRUE(server_.waitFor([this] { return server_.liveCount() == 0; }));
}

TEST_F(NetworkFault, AServerThatNeverEndsTheGoodbyeIsLeft) {
  auto socket = openConnection(quick_);
  server_.connection(0)->stopReading();
  run(socket->send(bytes(1))); // read by the read that was under way; the close frame is not
  socket->cancel(1000, "");
  ASSERT_TRUE(server_.waitFor([this] { return server_.connection(0)->frameCount() == 1; }));
  work_.reset();
  for (auto& thread : threads_) thread.join(); // ends only when nothing of the connection is left
  threads_.clear();
  server_.connection(0)->resumeReading();
  EXPECT_TRUE(server_.waitFor([this] { return server_.liveCount() == 0; }));
}

TEST_F(NetworkFault, MessagesThatNobodyReceivesAreBoundedAndThenComeWhole) {
  constexpr int count = 200;
  server_.onOpen([](LoopbackServer::Connection& connection) {
    for (int i = 0; i < count; ++i) connection.sendBinary(std::string(100'000, static_cast<char>(i)));
  });
  auto socket = openConnection(session_);
  for (int i = 0; i < count; ++i) {
    const auto message = run(socket->receive());
    ASSERT_EQ(std::get<platform::Data>(message), platform::Data(100'000, static_cast<std::byte>(i)));
  }
  socket->cancel(1000, "");
}

TEST_F(NetworkFault, AMessageOverTheLimitAndInvalidTextEndTheConnection) {
  BeastOptions small;
  small.maxMessageBytes = 1U << 20U;
  BeastURLSession session(network_.get_executor(), small);
  server_.onOpen([](LoopbackServer::Connection& connection) {
    connection.sendBinary(std::string(1U << 20U, 'a'));
    connection.sendBinary(std::string((1U << 20U) + 1, 'a'));
  });
  auto socket = openConnection(session);
  EXPECT_EQ(std::get<platform::Data>(run(socket->receive())).size(), 1U << 20U);
  EXPECT_EQ(start(socket->receive()).failure().code(), code(TransportError::tooLarge));

  server_.onOpen([](LoopbackServer::Connection& connection) { connection.sendText("\xff\xfe"); });
  auto other = open(session, server_.url("ws"));
  EXPECT_EQ(start(other->receive()).failure().localizedDescription(),
            where_ + " broke the web socket protocol");
}

} // namespace
} // namespace tolvera::test
