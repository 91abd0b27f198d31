#include "TolveraCore/API.h"

#include "Platform/PlatformError.h"
#include "Support/ScriptedURLSession.h"
#include "Support/TestLoop.h"

#include <boost/json/parse.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tolvera {
namespace {

class APITest : public testing::Test {
 protected:
  test::TestLoop loop_;
  test::ScriptedURLSession network_{loop_.clock()};
  API api_{platform::URL("http://h:1/base"), network_};

  platform::HTTPRequest lastRequest() { return network_.requests().back(); }
  std::string lastAddress() { return std::string(lastRequest().url.buffer()); }
};

using Headers = std::vector<std::pair<std::string, std::string>>;

constexpr const char* account = R"({"secondsLeft":90.5,"secondsUsed":3,"dubMultiplier":2,"voices":["a","b"],
  "paymentMethods":["alipay"],"loginMethods":[],"signedIn":true,"extra":{"x":1},"packs":[
    {"id":"p1","hours":5,"cents":199,"fen":1400.0,"popular":true},
    {"id":"p2","hours":1.5,"cents":-1,"fen":0,"popular":null}]})";

TEST(APIAddress, LosesItsTrailingSlashesAndNothingElse) {
  test::TestLoop loop;
  test::ScriptedURLSession network(loop.clock());
  const auto base = [&](const char* text) {
    return std::string(API(platform::URL(text), network).baseURL().buffer());
  };
  EXPECT_EQ(base("https://h/a///"), "https://h/a");
  EXPECT_EQ(base("https://h/"), "https://h");
  EXPECT_EQ(base("https://h/a//b"), "https://h/a//b");
  EXPECT_EQ(API::defaultBaseURL().encoded_path(), "/livetranslate");
}

TEST_F(APITest, SignsUpWithoutATokenOrABody) {
  network_.reply("/api/signup", 200, R"({"token":"abc","secondsLeft":600})");
  EXPECT_EQ(loop_.run(api_.signup()), (API::Signup{"abc", 600}));
  EXPECT_EQ(lastRequest().method, "POST");
  EXPECT_EQ(lastAddress(), "http://h:1/base/api/signup");
  EXPECT_TRUE(lastRequest().headers.empty());
  EXPECT_TRUE(lastRequest().body.empty());
  EXPECT_EQ(lastRequest().timeout, std::chrono::seconds(60));
}

TEST_F(APITest, ReadsTheAccount) {
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

TEST_F(APITest, BuysWithAJSONBody) {
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

TEST_F(APITest, AsksForTheSignInAddressAndSignsOut) {
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

TEST_F(APITest, TellsARefusalByItsStatusAndTheServicesWords) {
  const auto refusal = [&](std::optional<int> status, const std::string& body) {
    auto reply = [](platform::HTTPResponse response) -> Task<platform::HTTPResponse> { co_return response; };
    platform::HTTPResponse response{status, body};
    network_.answer("/api/me", [reply, response](const platform::HTTPRequest&) { return reply(response); });
    try {
      loop_.run(api_.me("secret"));
    } catch (const API::ServerError& error) {
      return std::tuple(error.status(), error.message(), error.isUnauthorized());
    }
    return std::tuple(-1, std::string("no refusal"), false);
  };
  EXPECT_EQ(refusal(401, R"({"error":"令牌无效"})"), std::tuple(401, "令牌无效", true));
  EXPECT_EQ(refusal(500, "<html>"), std::tuple(500, "请求失败 (500)", false));
  EXPECT_EQ(refusal(402, R"({"error":"钱不够","code":7})"), std::tuple(402, "请求失败 (402)", false));
  EXPECT_EQ(refusal(300, R"({"message":"moved"})"), std::tuple(300, "请求失败 (300)", false));
  EXPECT_EQ(refusal(404, R"(["error"])"), std::tuple(404, "请求失败 (404)", false));
  EXPECT_EQ(refusal(std::nullopt, account), std::tuple(0, "请求失败 (0)", false));
}

TEST_F(APITest, RefusesAReplyThatDoesNotFitTheRecord) {
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
  const std::string good(account);
  const auto with = [&](std::string_view from, std::string_view to) {
    auto changed = good;
    changed.replace(changed.find(from), from.size(), to);
    return changed;
  };
  EXPECT_TRUE(decodes(good));
  EXPECT_FALSE(decodes(""));
  EXPECT_FALSE(decodes("[]"));
  EXPECT_FALSE(decodes(with("packs", "bags")));
  EXPECT_FALSE(decodes(with("90.5", "\"90.5\"")));
  EXPECT_FALSE(decodes(with("90.5", "1e999")));
  EXPECT_FALSE(decodes(with("\"b\"", "7")));
  EXPECT_FALSE(decodes(with("\"signedIn\":true", "\"signedIn\":1")));
  EXPECT_FALSE(decodes(with("199", "1.5")));
  EXPECT_FALSE(decodes(with("199", "1e30")));
  EXPECT_FALSE(decodes(with("\"popular\":true", "\"popular\":1")));
  EXPECT_FALSE(decodes(with("\"id\":\"p1\",", "")));

  network_.reply("/api/signup", 204, "");
  EXPECT_THROW(loop_.run(api_.signup()), API::DecodingError);
}

TEST_F(APITest, PassesTheTransportsErrorOnUnchanged) {
  auto broken = [](const platform::HTTPRequest&) -> Task<platform::HTTPResponse> {
    throw platform::PlatformError("Transport", 110, "请求超时");
    co_return platform::HTTPResponse{};
  };
  network_.answer("/api/me", broken);
  try {
    loop_.run(api_.me("t"));
    ADD_FAILURE() << "no error";
  } catch (const platform::PlatformError& error) {
    EXPECT_EQ(error.domain(), "Transport");
    EXPECT_EQ(error.code(), 110);
    EXPECT_EQ(error.localizedDescription(), "请求超时");
  }
}

} // namespace
} // namespace tolvera
