#include "TolveraCore/API.h"

#include "Fakes/ScriptedURLSession.h"
#include "Harness/TestLoop.h"
#include "Platform/PlatformError.h"

#include <boost/json/parse.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>

namespace tolvera {
namespace {

class APIClient : public testing::Test {
 protected:
  test::TestLoop loop_;
  test::ScriptedURLSession network_;
  API api_{platform::URL("http://h:1/base"), network_};
};

using Headers = std::vector<std::pair<std::string, std::string>>;

constexpr const char* account = R"({"secondsLeft":90.5,"secondsUsed":3,"dubMultiplier":2,"voices":["a","b"],
  "paymentMethods":["alipay"],"loginMethods":[],"signedIn":true,"extra":{"x":1},"packs":[
    {"id":"p1","hours":5,"cents":199,"fen":1400.0,"popular":true},
    {"id":"p2","hours":1.5,"cents":-1,"fen":0,"popular":null}]})";

TEST_F(APIClient, CutsTrailingSlashesOfBase) {
  const std::pair<const char*, const char*> addresses[] = {
      {"https://h/a///", "https://h/a"}, {"https://h/", "https://h"}, {"https://h/a//b", "https://h/a//b"}};
  for (const auto& [given, kept] : addresses)
    EXPECT_EQ(API(platform::URL(given), network_).baseURL().buffer(), kept);
}

TEST_F(APIClient, SendsEachRequest) {
  const API::Me me{90.5,       3,  2,    {"a", "b"},
                   {"alipay"}, {}, true, {{"p1", 5, 199, 1400, true}, {"p2", 1.5, -1, 0, std::nullopt}}};
  const Headers bearer{{"Authorization", "Bearer secret"}};
  const Headers json{{"Authorization", "Bearer secret"}, {"Content-Type", "application/json"}};
  const auto is = [this](auto task, auto reply) { return loop_.run(std::move(task)) == reply; };
  const struct {
    std::string reply, method, path;
    Headers headers;
    std::string body;
    std::function<bool()> call;
  } rows[] = {
      {R"({"token":"abc","secondsLeft":600})",
       "POST",
       "/api/signup",
       {},
       "",
       [&] { return is(api_.signup(), API::Signup{"abc", 600}); }},
      {account, "GET", "/api/me", bearer, "", [&] { return is(api_.me("secret"), me); }},
      {R"({"url":"u"})", "POST", "/api/checkout", json, R"({"pack":"p\"1","method":"alipay","lang":"zh"})",
       [&] { return is(api_.checkout("secret", "p\"1", "alipay", "zh"), API::Checkout{"u", {}, {}}); }},
      {R"({"url":"u","orderId":"o","signIn":false})", "POST", "/api/checkout", json,
       R"({"pack":"p","method":"m","lang":"en"})",
       [&] { return is(api_.checkout("secret", "p", "m", "en"), API::Checkout{"u", "o", false}); }},
      {R"({"url":"u"})", "GET", "/api/auth/alipay/url?lang=en", bearer, "",
       [&] { return is(api_.alipayAuthURL("secret", {}, "en"), API::AuthURL{"u"}); }},
      {R"({"url":"u"})", "GET", "/api/auth/alipay/url?lang=zh&pack=p1", bearer, "",
       [&] { return is(api_.alipayAuthURL("secret", "p1", "zh"), API::AuthURL{"u"}); }},
      {R"({"signedIn":false,"secondsLeft":0})", "POST", "/api/auth/unbind", bearer, "",
       [&] { return is(api_.signOut("secret"), API::SignOut{false, 0}); }}};
  for (const auto& row : rows) {
    network_.reply(row.path.substr(0, row.path.find('?')), 299, row.reply);
    EXPECT_TRUE(row.call()) << row.path;
    const auto request = network_.requests().back();
    EXPECT_EQ(request.method, row.method);
    EXPECT_EQ(request.url.buffer(), "http://h:1/base" + row.path);
    EXPECT_EQ(request.headers, row.headers);
    EXPECT_EQ(request.timeout, std::chrono::seconds(60));
    EXPECT_EQ(request.body.empty(), row.body.empty());
    if (!row.body.empty()) EXPECT_EQ(boost::json::parse(request.body), boost::json::parse(row.body));
  }
}

TEST_F(APIClient, NamesRefusalByStatus) {
  const std::tuple<std::optional<int>, const char*, const char*> refusals[] = {
      {401, R"({"error":"令牌无效"})", "令牌无效"},
      {500, "<html>", "请求失败 (500)"},
      {402, R"({"error":"钱不够","code":7})", "请求失败 (402)"},
      {300, R"({"message":"moved"})", "请求失败 (300)"},
      {404, R"(["error"])", "请求失败 (404)"},
      {std::nullopt, account, "请求失败 (0)"}};
  for (const auto& [status, body, message] : refusals) {
    network_.reply("/api/me", status, body);
    try {
      loop_.run(api_.me("secret"));
      ADD_FAILURE() << "no refusal";
    } catch (const API::ServerError& error) {
      EXPECT_EQ(error.status(), status.value_or(0));
      EXPECT_EQ(error.message(), message);
      EXPECT_EQ(error.isUnauthorized(), status == 401);
    }
  }
}

TEST_F(APIClient, RefusesRepliesOfWrongForm) {
  const auto decodes = [&](const std::string& body) {
    network_.reply("/api/me", 200, body);
    try {
      loop_.run(api_.me("secret"));
    } catch (const API::DecodingError& error) {
      EXPECT_THAT(error.what(), testing::Not(testing::HasSubstr("secret")));
      return false;
    }
    return true;
  };
  const auto with = [](std::string_view from, std::string_view to) {
    std::string changed = account;
    changed.replace(changed.find(from), from.size(), to);
    return changed;
  };
  EXPECT_TRUE(decodes(account));
  for (const std::string& bad :
       {std::string(), std::string("[]"), with("packs", "bags"), with("90.5", "\"90.5\""),
        with("90.5", "1e999"), with("\"b\"", "7"), with("\"signedIn\":true", "\"signedIn\":1"),
        with("199", "1.5"), with("199", "1e30"), with("\"popular\":true", "\"popular\":1"),
        with("\"id\":\"p1\",", "")}) {
    EXPECT_FALSE(decodes(bad)) << bad;
  }
}

TEST_F(APIClient, PassesTransportErrorsOn) {
  try {
    loop_.run(api_.me("t")); // no reply is scripted
    ADD_FAILURE() << "no error";
  } catch (const platform::PlatformError& error) {
    EXPECT_EQ(error.code(), ECONNREFUSED);
  }
}

} // namespace
} // namespace tolvera
