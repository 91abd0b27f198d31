#include "PlatformTests/NetworkFixture.h"
#include "PlatformTests/NetworkHosts.h"

#include "Async/Spawn.h"

namespace tolvera::test {
namespace {

class NetworkHTTP : public NetworkTest {
 protected:
  LoopbackServer server_;

  PlatformError failureOf(HTTPRequest request) { return start(session_.data(std::move(request))).failure(); }
};

TEST_F(NetworkHTTP, OneExchangeCarriesMethodPathHeadersAndBodyBothWays) {
  hosts::define("service.test", {"127.0.0.1"});
  server_.onRequest([](const auto&) { return LoopbackServer::Reply::http(200, R"({"url":"x"})"); });
  HTTPRequest request;
  request.method = "POST";
  const auto address = "service.test:" + std::to_string(server_.port());
  request.url = platform::URL("http://" + address + "/livetranslate/api/checkout?lang=zh#part");
  request.headers = {{"Authorization", "Bearer secret"}, {"Content-Type", "application/json"}};
  request.body = R"({"pack":"p1"})";
  const auto response = run(session_.data(request));
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.body, R"({"url":"x"})");
  const auto seen = server_.requests().at(0);
  EXPECT_EQ(seen.method, "POST");
  EXPECT_EQ(seen.target, "/livetranslate/api/checkout?lang=zh");
  EXPECT_EQ(seen.headers.at("host"), address);
  EXPECT_EQ(seen.headers.at("authorization"), "Bearer secret");
  EXPECT_EQ(seen.headers.at("content-length"), "13");
  EXPECT_FALSE(seen.headers.at("user-agent").empty());
  EXPECT_EQ(seen.body, request.body);
}

TEST_F(NetworkHTTP, EveryStatusIsAResultAndNoneIsFollowed) {
  for (const int status : {204, 302, 401, 404, 500}) {
    server_.onRequest([this, status](const auto&) {
      auto reply = LoopbackServer::Reply::http(status, status == 204 ? "" : "said");
      reply.headers.emplace_back("Location", server_.url("http", "/elsewhere"));
      return reply;
    });
    const auto response = run(session_.data(get(server_.url("http", "/api/me"))));
    EXPECT_EQ(response.status, status);
    EXPECT_EQ(response.body, status == 204 ? "" : "said");
  }
  EXPECT_EQ(server_.requests().size(), 5U);
}

TEST_F(NetworkHTTP, AReplyMayBeChunkedInformedAheadOrEndedByTheConnection) {
  const std::vector<std::string> replies = {
      "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2\r\nsa\r\n2\r\nid\r\n0\r\n\r\n",
      "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nsaid",
      "HTTP/1.0 200 OK\r\n\r\nsaid",
  };
  for (const auto& reply : replies) {
    server_.onRequest([reply](const auto&) { return LoopbackServer::Reply::raw(reply); });
    EXPECT_EQ(run(session_.data(get(server_.url("http")))).body, "said");
  }
}

TEST_F(NetworkHTTP, WhatIsNotAWholeReplyOfBoundedSizeFails) {
  const std::vector<std::pair<std::string, TransportError>> cases = {
      {"\x01\x02 garbage \xff\r\n\r\n", TransportError::notHTTP},
      {"HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nshort", TransportError::connectionLost},
      {"HTTP/1.1 200 OK\r\nContent-Length: 99999999\r\n\r\n", TransportError::tooLarge},
      {"HTTP/1.1 200 OK\r\nA: " + std::string(70'000, 'a'), TransportError::tooLarge},
      {"", TransportError::connectionLost},
  };
  for (const auto& [bytes, expected] : cases) {
    server_.onRequest([bytes](const auto&) { return LoopbackServer::Reply::raw(bytes); });
    EXPECT_EQ(failureOf(get(server_.url("http"))).code(), code(expected)) << bytes.substr(0, 40);
  }
}

TEST_F(NetworkHTTP, AnExchangeEndsAfterItsTimeoutAndWithItsCaller) {
  server_.onRequest([](const auto&) { return LoopbackServer::Reply::silence(); });
  auto request = get(server_.url("http", "/?token=secret"));
  request.timeout = 200ms;
  const auto failure = failureOf(request);
  EXPECT_EQ(failure.code(), code(TransportError::timedOut));
  EXPECT_EQ(failure.localizedDescription(),
            "No answer from 127.0.0.1:" + std::to_string(server_.port()) + " within 0.2 s");

  std::atomic<bool> failed = false;
  auto caller = [](BeastURLSession& session, HTTPRequest what, std::atomic<bool>& sawFailure) -> Task<void> {
    try {
      co_await session.data(std::move(what));
    } catch (const PlatformError&) {
      sawFailure = true;
    }
  };
  const auto waiting =
      spawn(main_.get_executor(), "caller", caller(session_, get(server_.url("http")), failed));
  const auto ended = [&] {
    main_.restart();
    main_.poll();
    return waiting.finished();
  };
  ASSERT_FALSE(ended());
  ASSERT_TRUE(server_.waitFor([&] { return ended() || server_.requests().size() == 2; }));
  waiting.cancel();
  EXPECT_TRUE(server_.waitFor(ended));
  EXPECT_TRUE(failed);
  EXPECT_TRUE(server_.waitFor([this] { return server_.liveCount() == 0; }));
}

TEST_F(NetworkHTTP, ARequestThatCannotBeSentSafelyIsRefused) {
  auto split = get(server_.url("http"));
  split.headers = {{"Authorization", "Bearer secret\r\nX-Other: 1"}};
  const auto failure = failureOf(split);
  EXPECT_EQ(failure.code(), code(TransportError::badRequest));
  EXPECT_EQ(failure.localizedDescription().find("secret"), std::string::npos);
  EXPECT_EQ(failureOf(get("ftp://127.0.0.1/")).code(), code(TransportError::badRequest));
  EXPECT_EQ(failureOf(get("http:///path")).code(), code(TransportError::badRequest));
  EXPECT_EQ(server_.acceptedCount(), 0U);
}

} // namespace
} // namespace tolvera::test
