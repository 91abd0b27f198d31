#include "PlatformTests/NetworkFixture.h"
#include "PlatformTests/NetworkHosts.h"
#include "Support/TestCertificates.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>

namespace tolvera::test {
namespace {

// Before any thread: the variable is read when a session first speaks TLS.
class TrustedAuthority {
 public:
  TrustedAuthority() {
    path_ = testing::TempDir() + "authority-" + std::to_string(getpid()) + ".pem";
    std::ofstream(path_) << authority.certificate();
    setenv("SSL_CERT_FILE", path_.c_str(), 1);
  }
  ~TrustedAuthority() {
    unsetenv("SSL_CERT_FILE");
    std::remove(path_.c_str());
  }
  TrustedAuthority(const TrustedAuthority&) = delete;
  TrustedAuthority& operator=(const TrustedAuthority&) = delete;

  TestAuthority authority{"Trusted Test Authority"};

 private:
  std::string path_;
};

class NetworkTLS : public NetworkTest {
 protected:
  static void SetUpTestSuite() { trusted = std::make_unique<TrustedAuthority>(); }
  static void TearDownTestSuite() { trusted.reset(); }
  static inline std::unique_ptr<TrustedAuthority> trusted;

  static LoopbackServer::Options secure(const TestIdentity& identity) {
    LoopbackServer::Options options;
    options.certificateChain = identity.certificateChain;
    options.privateKey = identity.privateKey;
    return options;
  }
  static std::string at(const std::string& scheme, const std::string& host, const LoopbackServer& server) {
    return scheme + "://" + host + ":" + std::to_string(server.port()) + "/?token=secret";
  }
  // How both kinds of connection are refused; in the same words.
  PlatformError refusal(const std::string& host, const LoopbackServer& server) {
    auto socket = open(at("wss", host, server));
    const auto failure = start(socket->receive()).failure();
    const auto exchange = start(session_.data(get(at("https", host, server)))).failure();
    EXPECT_EQ(exchange.localizedDescription(), failure.localizedDescription());
    EXPECT_EQ(failure.localizedDescription().find("secret"), std::string::npos);
    return failure;
  }
};

TEST_F(NetworkTLS, AServerWithTheRightNameFromATrustedAuthorityIsSpokenTo) {
  hosts::define("service.test", {"127.0.0.1"});
  LoopbackServer server(secure(trusted->authority.issue({"service.test", "127.0.0.1"})));
  server.onRequest([](const auto&) { return LoopbackServer::Reply::http(200, "secretly"); });
  for (const std::string host : {"service.test", "127.0.0.1"}) {
    EXPECT_EQ(run(session_.data(get(at("https", host, server)))).body, "secretly");
  }
  server.onFrame([](LoopbackServer::Connection& connection, const LoopbackServer::Frame& frame) {
    connection.sendBinary(frame.payload);
  });
  auto socket = open(at("wss", "service.test", server));
  const platform::Data sent(100'000, std::byte{7});
  auto received = start(socket->receive());
  run(socket->send(sent));
  EXPECT_EQ(received.result(), WebSocketTask::Message(sent));
  socket->cancel(1000, "");
  ASSERT_TRUE(server.waitFor([&] { return server.connection(0)->closeCode().has_value(); }));
  EXPECT_EQ(server.connection(0)->closeCode(), 1000);
  EXPECT_TRUE(server.waitFor([&] { return server.liveCount() == 0; }));
}

TEST_F(NetworkTLS, ACertificateForAnotherNameIsRefused) {
  hosts::define("example.test", {"127.0.0.1"});
  const LoopbackServer server(secure(trusted->authority.issue({"service.test", "*.test"})));
  const auto failure = refusal("127.0.0.1", server);
  EXPECT_EQ(failure.code(), code(TransportError::notTrusted));
  EXPECT_EQ(failure.localizedDescription(), "The server's certificate is not valid for 127.0.0.1");

  const LoopbackServer other(secure(trusted->authority.issue({"service.test"})));
  EXPECT_EQ(refusal("example.test", other).localizedDescription(),
            "The server's certificate is not valid for example.test");
}

TEST_F(NetworkTLS, AnUnknownAuthorityAndAnExpiredCertificateAreRefused) {
  const TestAuthority unknown("Unknown Test Authority");
  const LoopbackServer server(secure(unknown.issue({"127.0.0.1"})));
  const auto failure = refusal("127.0.0.1", server);
  EXPECT_EQ(failure.code(), code(TransportError::notTrusted));
  EXPECT_EQ(failure.localizedDescription(), "The certificate of 127.0.0.1:" + std::to_string(server.port()) +
                                                " comes from an authority that is not trusted here");

  const LoopbackServer expired(secure(trusted->authority.issue({"127.0.0.1"}, 1)));
  EXPECT_EQ(refusal("127.0.0.1", expired).localizedDescription(),
            "The certificate of 127.0.0.1:" + std::to_string(expired.port()) + " has expired");
}

TEST_F(NetworkTLS, APeerThatDoesNotSpeakTLSOrSaysNothingIsNoSecureConnection) {
  LoopbackServer plain;
  plain.onRequest([](const auto&) { return LoopbackServer::Reply::http(400); });
  const auto failure = refusal("127.0.0.1", plain);
  EXPECT_TRUE(failure.code() == code(TransportError::secureConnection) ||
              failure.code() == code(TransportError::connectionLost))
      << failure.localizedDescription();

  LoopbackServer::Options mute;
  mute.acceptsConnections = false;
  const LoopbackServer silent(mute);
  BeastOptions quick;
  quick.tlsTimeout = 200ms;
  BeastURLSession session(network_.get_executor(), quick);
  auto socket = open(session, at("wss", "127.0.0.1", silent));
  EXPECT_EQ(start(socket->receive()).failure().code(), code(TransportError::timedOut));

  auto cancelled = open(at("wss", "127.0.0.1", silent));
  auto pending = start(cancelled->receive());
  EXPECT_FALSE(silent.waitFor([&] { return pending.ended(); }, 100ms));
  cancelled->cancel(1000, "");
  EXPECT_EQ(pending.failure(2s).code(), code(TransportError::cancelled));
}

} // namespace
} // namespace tolvera::test
