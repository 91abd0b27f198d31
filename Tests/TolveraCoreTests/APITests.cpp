#include "TolveraCore/API.h"

#include "Fakes/ScriptedURLSession.h"
#include "Harness/TestLoop.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>

namespace tolvera {
namespace {

class APIClient : public testing::Test {
 protected:
  test::TestLoop loop_;
  test::ScriptedURLSession network_;
  API api_{platform::URL("http://h:1/base//"), network_};
};

constexpr const char* account = R"({"secondsLeft":90.5,"secondsUsed":3,"dubMultiplier":2,"voices":["a","b"],
  "paymentMethods":["alipay"],"loginMethods":[],"signedIn":true,"extra":{"x":1},"packs":[
    {"id":"p1","hours":5,"cents":199,"fen":1400.0,"popular":true},
    {"id":"p2","hours":1.5,"cents":-1,"fen":0,"popular":null}]})";

TEST_F(APIClient, SendsEachRequest) {
  const API::Me me{90.5,       3,  2,    {"a", "b"},
                   {"alipay"}, {}, true, {{"p1", 5, 199, 1400, true}, {"p2", 1.5, -1, 0, std::nullopt}}};
  const auto is = [this](auto task, auto reply) { return loop_.run(std::move(task)) == reply; };
  const struct {
    const char *reply, *method, *path, *body;
    std::function<bool()> call;
  } rows[] = {
      {R"({"token":"abc","secondsLeft":600})", "POST", "/api/signup", "",
       [&] { return is(api_.signup(), API::Signup{"abc", 600}); }},
      {account, "GET", "/api/me", "", [&] { return is(api_.me("secret"), me); }},
      {R"({"url":"u"})", "POST", "/api/checkout", R"({"lang":"zh","method":"alipay","pack":"p\"1"})",
       [&] { return is(api_.checkout("secret", "p\"1", "alipay", "zh"), API::Checkout{"u", {}, {}}); }},
      {R"({"url":"u","orderId":"o","signIn":false})", "POST", "/api/checkout",
       R"({"lang":"en","method":"m","pack":"p"})",
       [&] { return is(api_.checkout("secret", "p", "m", "en"), API::Checkout{"u", "o", false}); }},
      {R"({"url":"u"})", "GET", "/api/auth/alipay/url?lang=en", "",
       [&] { return is(api_.alipayAuthURL("secret", {}, "en"), API::AuthURL{"u"}); }},
      {R"({"url":"u"})", "GET", "/api/auth/alipay/url?lang=zh&pack=p1", "",
       [&] { return is(api_.alipayAuthURL("secret", "p1", "zh"), API::AuthURL{"u"}); }},
      {R"({"signedIn":false,"secondsLeft":0})", "POST", "/api/auth/unbind", "",
       [&] { return is(api_.signOut("secret"), API::SignOut{false, 0}); }}};
  for (const auto& row : rows) {
    const std::string path = row.path;
    network_.reply(path.substr(0, path.find('?')), 299, row.reply);
    EXPECT_TRUE(row.call()) << path;
    const auto& request = network_.requests.back();
    EXPECT_EQ(request.method, row.method);
    EXPECT_EQ(request.url.buffer(), "http://h:1/base" + path);
    std::vector<std::pair<std::string, std::string>> headers;
    if (path != "/api/signup") headers.emplace_back("Authorization", "Bearer secret");
    if (*row.body) headers.emplace_back("Content-Type", "application/json");
    EXPECT_EQ(request.headers, headers);
    EXPECT_EQ(request.timeout, std::chrono::seconds(60));
    EXPECT_EQ(request.body, row.body);
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
  const std::pair<const char*, const char*> changes[] = {
      {account, ""},         {account, "[]"},
      {"packs", "bags"},     {"90.5", "\"90.5\""},
      {"90.5", "1e999"},     {"\"b\"", "7"},
      {"199", "1.5"},        {"\"signedIn\":true", "\"signedIn\":1"},
      {"199", "1e30"},       {"\"popular\":true", "\"popular\":1"},
      {"\"id\":\"p1\",", ""}};
  for (const auto& [from, to] : changes) {
    std::string changed = account;
    changed.replace(changed.find(from), std::strlen(from), to);
    network_.reply("/api/me", 200, changed);
    EXPECT_THROW(loop_.run(api_.me("secret")), API::DecodingError) << changed;
  }
}

TEST(ParseURL, ReadsWhatBrowsersOpen) {
  const std::pair<std::string_view, std::string_view> rows[] = {
      {"http://h:1/base//", "http://h:1/base//"},
      {" HTTPS://Host/Path%2f?a=%C3%A4&b#c \n", "https://Host/Path%2f?a=%C3%A4&b#c"},
      {R"(http://h/{a}|[b]"c d"?q={x y}|"\"#a"#b)",
       "http://h/%7Ba%7D%7C%5Bb%5D%22c%20d%22?q=%7Bx%20y%7D%7C%22%5C%22#a%22%23b"},
      {"http://h/100%/%4", "http://h/100%25/%254"},
      {"http://user:p@bücher.例え:81/ä?ö#ü",
       "http://user:p@xn--bcher-kva.xn--r8jz45g:81/%C3%A4?%C3%B6#%C3%BC"},
      {"http://[::1]:8/ä", "http://[::1]:8/%C3%A4"},
      {"http://h:99999/x", "http://h:99999/x"},
      {"relative/ä", "relative/%C3%A4"},
      {"", ""}};
  for (const auto& [text, address] : rows) {
    const auto url = platform::parseURL(text);
    EXPECT_EQ(url ? url->buffer() : "(none)", address) << text;
  }
  for (const auto* text :
       {"http://a b/", "http://\xff/", "http://h:port/ä", "http://[::1/ä", "http://ä\xe2\x80\x8f.x/"})
    EXPECT_FALSE(platform::parseURL(text)) << text;
}

TEST_F(APIClient, TakesTokensOfVisibleCharacters) {
  const std::pair<std::string, bool> tokens[] = {{std::string(4096, '~'), true},
                                                 {"", false},
                                                 {std::string(4097, '~'), false},
                                                 {"a b", false},
                                                 {"é", false},
                                                 {"a\\u0000", false},
                                                 {"a\\r\\nX-Other: 1", false}};
  for (const auto& [token, fits] : tokens) {
    network_.reply("/api/signup", 200, "{\"token\":\"" + token + "\",\"secondsLeft\":1}");
    if (fits)
      EXPECT_EQ(loop_.run(api_.signup()).token, token);
    else
      EXPECT_THROW(loop_.run(api_.signup()), API::DecodingError) << token;
  }
}

} // namespace
} // namespace tolvera
