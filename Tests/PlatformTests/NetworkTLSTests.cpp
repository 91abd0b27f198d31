#include "Harness/TemporaryEnvironment.h"
#include "Harness/TestCertificates.h"
#include "PlatformTests/NetworkFixture.h"

#include <gmock/gmock.h>

namespace tolvera::test {
namespace {

class NetworkTLS : public NetworkTest {
 protected:
  // Set before any thread begins, since a session reads the variable when it first speaks TLS.
  static void SetUpTestSuite() {
    trusted = std::make_unique<TestAuthority>("Trusted Test Authority");
    environment.set("SSL_CERT_FILE", trusted->certificate());
  }
  static void TearDownTestSuite() { trusted.reset(); }
  static inline std::unique_ptr<TestAuthority> trusted;
  static inline TemporaryEnvironment environment;

  static std::string at(const std::string& scheme, const std::string& host, const LoopbackServer& server) {
    return scheme + "://" + host + ":" + std::to_string(server.port()) + "/?token=secret";
  }
  // Both kinds of connection are refused in the same words.
  std::string refusal(const std::string& host, const LoopbackServer& server) {
    auto socket = open(at("wss", host, server));
    const auto text = run(socket->receive());
    EXPECT_EQ(run(session_.data(get(at("https", host, server)))), text);
    return text;
  }
};

TEST_F(NetworkTLS, TrustsRightNameFromTrustedAuthority) {
  LoopbackServer server(trusted->serverFor("DNS:service.test,IP:127.0.0.1"));
  server.onRequest([](const auto&) { return Reply::http(200, "fine"); });
  for (const std::string host : {"service.test", "127.0.0.1"}) {
    EXPECT_EQ(run(session_.data(get(at("https", host, server)))), "200 fine");
  }
  server.onFrame([](Connection& connection, const Frame& frame) { connection.sendBinary(frame.payload); });
  auto socket = open(at("wss", "service.test", server));
  run(socket->send(bytes(100'000)));
  EXPECT_EQ(run(socket->receive()), std::string(100'000, '*'));
  socket->cancel(1000, "");
  EXPECT_TRUE(eventually([&] { return server.connection(0)->closeCode() == 1000; }));
}

TEST_F(NetworkTLS, RefusesWrongNameAuthorityOrTime) {
  TestAuthority unknown("Unknown Test Authority");
  const struct {
    std::string host;
    LoopbackServer::Options options;
    std::string text;
  } cases[] = {
      {"127.0.0.1", trusted->serverFor("DNS:service.test,DNS:*.test"), "is not valid for 127.0.0.1"},
      {"example.test", trusted->serverFor("DNS:service.test"), "is not valid for example.test"},
      {"127.0.0.1", unknown.serverFor("IP:127.0.0.1"), "comes from an authority that is not trusted here"},
      {"127.0.0.1", trusted->serverFor("IP:127.0.0.1", -1), "has expired"},
  };
  for (const auto& [host, options, text] : cases)
    EXPECT_THAT(refusal(host, LoopbackServer(options)), testing::HasSubstr(text));
}

TEST_F(NetworkTLS, RefusesPeerWithoutTLS) {
  EXPECT_THAT(refusal("127.0.0.1", server_), testing::HasSubstr("127.0.0.1"));
}

} // namespace
} // namespace tolvera::test
