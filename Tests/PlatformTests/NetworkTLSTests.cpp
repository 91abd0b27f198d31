#include "Harness/TemporaryDirectory.h"
#include "Harness/TemporaryEnvironment.h"
#include "PlatformTests/NetworkFixture.h"

#include <gmock/gmock.h>

#include <cstdlib>

namespace tolvera::test {
namespace {

class NetworkTLS : public NetworkTest {
 protected:
  // Set before any thread begins, since a session reads the variable when it first speaks TLS.
  static void SetUpTestSuite() {
    directory = std::make_unique<TemporaryDirectory>();
    environment.set("SSL_CERT_FILE", *directory / "trusted.pem");
  }
  static void TearDownTestSuite() { directory.reset(); }
  static inline std::unique_ptr<TemporaryDirectory> directory;
  static inline TemporaryEnvironment environment;

  // Options of a server whose certificate, an authority of its own, names `alternatives`, such as
  // "DNS:a.test,IP:127.0.0.1". It is valid for 30 days, or has expired. How one asks for that depends on
  // the version of openssl.
  static LoopbackServer::Options serverFor(const std::string& alternatives, bool trusted = true,
                                           bool expired = false) {
    constexpr const char* past = "$(openssl x509 -help 2>&1 | grep -q not_after && "
                                 "echo -not_before 20200101000000Z -not_after 20200102000000Z || "
                                 "echo -days -1)";
    static int issued = 0;
    const std::string file = *directory / std::to_string(++issued);
    const std::string commands =
        "openssl req -new -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj /CN=${f##*/} -keyout "
        "$f.key"
        " -out $f.csr -addext subjectAltName=" +
        alternatives + " && openssl x509 -req -in $f.csr -copy_extensions copy -signkey $f.key -out $f.pem " +
        (expired ? past : "-days 30") + (trusted ? " && cat $f.pem >>$SSL_CERT_FILE" : "");
    if (std::system(("f=" + file + "; { " + commands + "; } 2>$f.log").c_str()) != 0)
      throw std::runtime_error("openssl failed: " + commands);
    LoopbackServer::Options options;
    options.certificateChainFile = file + ".pem";
    options.privateKeyFile = file + ".key";
    return options;
  }
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
  LoopbackServer server(serverFor("DNS:service.test,IP:127.0.0.1"));
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
  const struct {
    std::string host;
    LoopbackServer::Options options;
    std::string text;
  } cases[] = {
      {"127.0.0.1", serverFor("DNS:service.test,DNS:*.test"), "is not valid for 127.0.0.1"},
      {"example.test", serverFor("DNS:service.test"), "is not valid for example.test"},
      {"127.0.0.1", serverFor("IP:127.0.0.1", false), "comes from an authority that is not trusted here"},
      {"127.0.0.1", serverFor("IP:127.0.0.1", true, true), "has expired"},
  };
  for (const auto& [host, options, text] : cases)
    EXPECT_THAT(refusal(host, LoopbackServer(options)), testing::HasSubstr(text));
}

TEST_F(NetworkTLS, RefusesPeerWithoutTLS) {
  EXPECT_THAT(refusal("127.0.0.1", server_), testing::HasSubstr("127.0.0.1"));
}

} // namespace
} // namespace tolvera::test
