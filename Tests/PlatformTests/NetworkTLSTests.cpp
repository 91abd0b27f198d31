#include "Harness/TemporaryDirectory.h"
#include "Harness/TemporaryEnvironment.h"
#include "Harness/TestCertificates.h"
#include "PlatformTests/NetworkFixture.h"
#include "PlatformTests/NetworkHosts.h"

#include <gmock/gmock.h>

#include <fstream>

namespace tolvera::test {
namespace {

// In the place where a session looks for whom to trust when it first speaks TLS. Before any thread.
struct TrustedAuthority {
  TrustedAuthority() {
    std::ofstream(directory / "authority.pem") << authority.certificate();
    environment.set("SSL_CERT_FILE", directory / "authority.pem");
  }

  TemporaryDirectory directory;
  TemporaryEnvironment environment;
  TestAuthority authority{"Trusted Test Authority"};
};

class NetworkTLS : public NetworkTest {
 protected:
  static void SetUpTestSuite() { trusted = std::make_unique<TrustedAuthority>(); }
  static void TearDownTestSuite() { trusted.reset(); }
  static inline std::unique_ptr<TrustedAuthority> trusted;

  static LoopbackServer::Options secure(const TestAuthority& authority, const std::vector<std::string>& names,
                                        int days = 30) {
    const TestIdentity identity = authority.issue(names, days);
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
    EXPECT_EQ(failureOf(get(at("https", host, server))).localizedDescription(),
              failure.localizedDescription());
    EXPECT_EQ(failure.localizedDescription().find("secret"), std::string::npos);
    return failure;
  }
};

TEST_F(NetworkTLS, AServerWithTheRightNameFromATrustedAuthorityIsSpokenTo) {
  hosts::define("service.test", {"127.0.0.1"});
  LoopbackServer server(secure(trusted->authority, {"service.test", "127.0.0.1"}));
  server.onRequest([](const auto&) { return Reply::http(200, "secretly"); });
  for (const std::string host : {"service.test", "127.0.0.1"}) {
    EXPECT_EQ(run(session_.data(get(at("https", host, server)))).body, "secretly");
  }
  server.onFrame([](Connection& connection, const Frame& frame) { connection.sendBinary(frame.payload); });
  auto socket = open(at("wss", "service.test", server));
  auto received = start(socket->receive());
  run(socket->send(bytes(100'000)));
  EXPECT_EQ(received.result(), Message(bytes(100'000)));
  socket->cancel(1000, "");
  EXPECT_TRUE(server.waitFor([&] { return server.liveCount() == 0; }));
  EXPECT_EQ(server.connection(0)->closeCode(), 1000);
}

TEST_F(NetworkTLS, ACertificateIsRefusedForAnotherNameFromAnUnknownAuthorityOrAfterItsTime) {
  hosts::define("example.test", {"127.0.0.1"});
  const TestAuthority unknown("Unknown Test Authority");
  const struct {
    std::string host;
    LoopbackServer::Options options;
    std::string text;
  } cases[] = {
      {"127.0.0.1", secure(trusted->authority, {"service.test", "*.test"}), "is not valid for 127.0.0.1"},
      {"example.test", secure(trusted->authority, {"service.test"}), "is not valid for example.test"},
      {"127.0.0.1", secure(unknown, {"127.0.0.1"}), "comes from an authority that is not trusted here"},
      {"127.0.0.1", secure(trusted->authority, {"127.0.0.1"}, 1), "has expired"},
  };
  for (const auto& [host, options, text] : cases) {
    const auto failure = refusal(host, LoopbackServer(options));
    EXPECT_EQ(failure.code(), code(TransportError::notTrusted));
    EXPECT_THAT(failure.localizedDescription(), testing::HasSubstr(text));
  }
}

TEST_F(NetworkTLS, APeerThatDoesNotSpeakTLSIsNoSecureConnection) {
  const auto failure = refusal("127.0.0.1", server_);
  EXPECT_TRUE(failure.code() == code(TransportError::secureConnection) ||
              failure.code() == code(TransportError::connectionLost))
      << failure.localizedDescription();
}

} // namespace
} // namespace tolvera::test
