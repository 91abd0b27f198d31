#include "ServiceTests/Clients.h"
#include "ServiceTests/RunningServer.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace tolvera::test {
namespace {

// The service without decoders.
class HTTP : public testing::Test {
 protected:
  RunningServer server_{0};
  HTTPClient client_{server_->port()};
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

} // namespace
} // namespace tolvera::test
