#include "TolveraCore/API.h"

#include "Fakes/ScriptedURLSession.h"
#include "Harness/TestLoop.h"
#include "Platform/PlatformError.h"

#include <boost/json/parse.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

namespace tolvera {
namespace {

class APIClient : public testing::Test {
 protected:
  test::TestLoop loop_;
  test::ScriptedURLSession network_;
  API api_{platform::URL("http://h:1/base"), network_};

  platform::HTTPRequest lastRequest() { return network_.requests().back(); }
  std::string lastAddress() { return std::string(lastRequest().url.buffer()); }
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

TEST_F(APIClient, SignsUpWithoutToken) {
  network_.reply("/api/signup", 200, R"({"token":"abc","secondsLeft":600})");
  EXPECT_EQ(loop_.run(api_.signup()), (API::Signup{"abc", 600}));
  EXPECT_EQ(lastRequest().method, "POST");
  EXPECT_EQ(lastAddress(), "http://h:1/base/api/signup");
  EXPECT_TRUE(lastRequest().headers.empty());
  EXPECT_TRUE(lastRequest().body.empty());
  EXPECT_EQ(lastRequest().timeout, std::chrono::seconds(60));
}

TEST_F(APIClient, ReadsTheAccount) {
  network_.reply("/api/me", 299, account);
  const auto me = loop_.run(api_.me("secret"));
  EXPECT_EQ(me, (API::Me{.secondsLeft = 90.5,
                         .secondsUsed = 3,
                         .dubMultiplier = 2,
                         .voices = {"a", "b"},
                         .paymentMethods = {"alipay"},
                         .loginMethods = {},
                         .signedIn = true,
                         .packs = {{"p1", 5, 199, 1400, true}, {"p2", 1.5, -1, 0, std::nullopt}}}));
  EXPECT_EQ(lastRequest().method, "GET");
  EXPECT_EQ(lastRequest().headers, (Headers{{"Authorization", "Bearer secret"}}));
}

TEST_F(APIClient, BuysWithJSONBody) {
  network_.reply("/api/checkout", 200, R"({"url":"http://pay"})");
  EXPECT_EQ(loop_.run(api_.checkout("secret", "p\"1", "alipay", "zh")),
            (API::Checkout{"http://pay", {}, {}}));
  EXPECT_EQ(lastRequest().headers,
            (Headers{{"Authorization", "Bearer secret"}, {"Content-Type", "application/json"}}));
  EXPECT_EQ(boost::json::parse(lastRequest().body),
            boost::json::parse(R"({"pack":"p\"1","method":"alipay","lang":"zh"})"));

  network_.reply("/api/checkout", 200, R"({"url":"u","orderId":"o","signIn":false})");
  EXPECT_EQ(loop_.run(api_.checkout("s", "p", "m", "en")), (API::Checkout{"u", "o", false}));
}

TEST_F(APIClient, AsksForSignInAddress) {
  network_.reply("/api/auth/alipay/url", 200, R"({"url":"http://sign-in"})");
  EXPECT_EQ(loop_.run(api_.alipayAuthURL("t", {}, "en")).url, "http://sign-in");
  EXPECT_EQ(lastAddress(), "http://h:1/base/api/auth/alipay/url?lang=en");
  loop_.run(api_.alipayAuthURL("t", "p1", "zh"));
  EXPECT_EQ(lastAddress(), "http://h:1/base/api/auth/alipay/url?lang=zh&pack=p1");
  EXPECT_EQ(lastRequest().headers, (Headers{{"Authorization", "Bearer t"}}));

  network_.reply("/api/auth/unbind", 200, R"({"signedIn":false,"secondsLeft":0})");
  EXPECT_EQ(loop_.run(api_.signOut("t")), (API::SignOut{false, 0}));
  EXPECT_EQ(lastRequest().method, "POST");
  EXPECT_TRUE(lastRequest().body.empty());
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
