#include "ServiceTests/Clients.h"
#include "ServiceTests/RunningServer.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <random>

namespace tolvera::test {
namespace {

// The service without decoders.
class HTTP : public testing::Test {
 protected:
  RunningServer server_{0};
  HTTPClient client_{server_->port()};

  // All that the database holds about accounts.
  std::string rows() {
    service::Database database(server_.stateDirectory() / "accounts.sqlite");
    service::Database::Statement all(
        database, "SELECT group_concat(quote(id) || quote(granted_ms) || quote(used_ms) || hex(token_hash)"
                  " || quote(signed_in_account)) FROM accounts JOIN installations ON id = own_account");
    return all.first([](const auto& row) { return row.text(0); }).value();
  }
};

// Only the superuser can stand in for another user.
TEST(HTTPUsers, StrangersAreServedOnPurposeOnly) {
  constexpr uid_t stranger = 65534;
  const auto connected = [](std::uint16_t port) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in to{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
    if (::fchown(socket, stranger, stranger) != 0) return -1;
    EXPECT_EQ(::connect(socket, reinterpret_cast<const sockaddr*>(&to), sizeof to), 0);
    return socket;
  };
  const auto isAnswered = [](int socket) {
    const std::string request = "GET / HTTP/1.1\r\n\r\n";
    char answer = 0;
    return ::send(socket, request.data(), request.size(), MSG_NOSIGNAL) > 0 &&
           ::recv(socket, &answer, 1, 0) == 1;
  };
  for (const bool all : {false, true}) {
    RunningServer server(0, {"pocketsphinx"}, all);
    std::vector<int> sockets;
    for (int i = 0; i < 65; ++i) sockets.push_back(connected(server->port()));
    if (sockets.front() < 0) GTEST_SKIP() << "not the superuser";
    EXPECT_FALSE(isAnswered(sockets.back())) << "one more than a user may have";
    EXPECT_EQ(isAnswered(sockets.front()), all);
    EXPECT_EQ(HTTPClient(server->port()).get("/livetranslate/api/about", "").status, 200U);
    for (const int socket : sockets) ::close(socket);
  }
}

TEST_F(HTTP, AnswersItsOwnNamesOnly) {
  const std::string port = ":" + std::to_string(server_->port());
  for (const std::string name : {"127.0.0.1", "localhost", "LOCALHOST", "[::1]"}) {
    const HTTPClient::Headers headers = {{"Host", name + port}, {"Origin", "http://" + name + port}};
    EXPECT_EQ(client_.request("POST", "/livetranslate/api/signup", headers).status, 200U) << name;
  }
  const std::vector<HTTPClient::Headers> strangers = {
      {{"Host", "attacker.example" + port}},
      {{"Host", "127.0.0.1"}},
      {{"Host", "127.0.0.1:1"}},
      {{"Host", ""}},
      {{"Host", "127.0.0.1" + port}, {"Host", "attacker.example" + port}},
      {{"Origin", "https://attacker.example"}}};
  for (HTTPClient::Headers headers : strangers) {
    EXPECT_EQ(client_.request("POST", "/livetranslate/api/signup", headers).status, 421U);
    headers.emplace_back("Upgrade", "websocket");
    headers.emplace_back("Sec-WebSocket-Version", "13");
    headers.emplace_back("Sec-WebSocket-Key", "dGhlIHNhbXBsZSBub25jZQ==");
    EXPECT_EQ(client_.request("GET", "/livetranslate/ws", headers).status, 421U);
  }
  const std::tuple<const char*, const char*, const char*, unsigned> pages[] = {
      {"none", "navigate", "document", 200},       {"same-origin", "no-cors", "style", 200},
      {"cross-site", "navigate", "document", 200}, {"cross-site", "navigate", "iframe", 0},
      {"cross-site", "no-cors", "style", 0},       {"same-site", "cors", "empty", 0}};
  for (const auto& [site, mode, destination, status] : pages) {
    const HTTPClient::Headers headers = {
        {"Sec-Fetch-Site", site}, {"Sec-Fetch-Mode", mode}, {"Sec-Fetch-Dest", destination}};
    EXPECT_EQ(client_.request("GET", "/livetranslate/style.css", headers).status, status) << site << mode;
  }
  EXPECT_EQ(client_.raw("GET /livetranslate/privacy HTTP/1.0\r\n\r\n").status, 421U);
  EXPECT_EQ(client_.get("/livetranslate/ws").status, 404U) << "no upgrade";
  EXPECT_EQ(client_.get("/livetranslate/api/about").json().at("engine"), "PocketSphinx");
}

TEST_F(HTTP, RequestsAreBounded) {
  const std::string path = "/livetranslate/api/me";
  EXPECT_EQ(client_.request("GET", path, {{"X", std::string(9000, 'a')}}).status, 431U);
  EXPECT_EQ(client_.request("POST", path, {}, std::string(20000, 'a')).status, 413U);
  EXPECT_EQ(client_.request("GET", path + "?" + std::string(9000, 'a'), {}).status, 431U);
  EXPECT_EQ(client_.raw("nonsense\r\n\r\n").status, 400U);
  EXPECT_EQ(client_.raw(std::string("GET \0 HTTP/1.1\r\n\r\n", 18)).status, 400U);
  for (const char* elsewhere : {"/livetranslate/../etc/passwd", "/livetranslate/%2e%2e/api/me", "/",
                                "/livetranslate/api/me/", "//livetranslate/api/me", "/livetranslatex/api/me"})
    EXPECT_EQ(client_.get(elsewhere).status, 404U) << elsewhere;
}

// Each run sends the same ten thousand requests.
TEST_F(HTTP, MutatedRequestsChangeNothing) {
  const std::string token = client_.signUp();
  const std::string start = " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server_->port()) + "\r\n";
  const auto seed = [&](const std::string& method, const std::string& path, const std::string& headers,
                        const std::string& body = {}) {
    return method + " /livetranslate" + path + start + headers +
           "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
  };
  const std::string right = "Authorization: Bearer " + token + "\r\n";
  const std::string wrong = "Authorization: Bearer ' OR 1=1 --\r\n";
  const std::vector<std::string> seeds = {
      seed("GET", "/api/me", right),
      seed("GET", "/api/me", wrong),
      seed("GET", "/api/signup", {}),
      seed("POST", "/api/checkout", right,
           R"({"pack":"'; DROP TABLE accounts; --","method":"alipay","lang":"zh"})"),
      seed("POST", "/api/auth/unbind", wrong, "{}"),
      seed("GET", "/api/auth/alipay/url?lang=en&pack=%27;--", wrong),
      seed("POST", "/sign-in?code=a", "Cookie: tolvera-form=" + std::string(43, 'x') + "\r\n",
           "code=%27%3B--&proof=%00"),
      seed("GET", "/purchase?code=%ff%fe&lang=zh", {}),
      seed("GET", "/ws?token=x&target=es",
           "Connection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
           "Sec-WebSocket-Key: AAAA\r\n")};
  const std::string before = rows();
  std::mt19937 random(4711);
  for (int i = 0; i < 10000; ++i) {
    std::string bytes = seeds[random() % seeds.size()];
    for (std::size_t edits = 1 + random() % 4; edits > 0; --edits) {
      const std::size_t at = random() % bytes.size();
      if (random() % 2 == 0)
        bytes[at] = static_cast<char>(random());
      else
        bytes.replace(at, random() % 9, bytes.substr(random() % bytes.size(), random() % 30));
      if (bytes.empty()) bytes = "x";
    }
    const unsigned status = client_.raw(bytes).status;
    ASSERT_NE(status, 500U) << bytes;
    ASSERT_NE(status, 503U) << bytes;
  }
  EXPECT_EQ(rows(), before);
  EXPECT_EQ(client_.get("/livetranslate/api/me", token).status, 200U);
}

} // namespace
} // namespace tolvera::test
