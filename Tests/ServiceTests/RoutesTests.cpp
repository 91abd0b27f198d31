#include "TolveraService/Http/Routes.h"

#include "Harness/TemporaryDirectory.h"

#include <boost/json.hpp>
#include <gtest/gtest.h>

#include <functional>

namespace tolvera::service {
namespace {

class RoutesTest : public testing::Test {
 protected:
  static Request request(const std::string& method, const std::string& path, const std::string& token = {},
                         const std::string& body = {}) {
    Request request;
    request.method = method;
    request.target = "/livetranslate" + path;
    request.host = "127.0.0.1:18790";
    if (!token.empty()) request.authorization = "Bearer " + token;
    request.body = body;
    return request;
  }
  Response ask(const Request& request) { return routes_.answer(request); }
  boost::json::object json(const Request& request) {
    const Response response = ask(request);
    EXPECT_EQ(response.status, 200U) << response.body;
    return boost::json::parse(response.body).as_object();
  }
  std::string signUp() { return std::string(json(request("POST", "/api/signup")).at("token").as_string()); }
  boost::json::object me(const std::string& token) { return json(request("GET", "/api/me", token)); }

  // Path and query below the base of an address for the browser.
  static std::string pathOf(const boost::json::object& reply) {
    constexpr std::string_view start = "http://127.0.0.1:18790/livetranslate";
    const std::string url(reply.at("url").as_string());
    EXPECT_TRUE(url.starts_with(start)) << url;
    return url.substr(start.size());
  }
  std::string openSignIn(const std::string& token, const std::string& query = "?lang=en") {
    return pathOf(json(request("GET", "/api/auth/alipay/url" + query, token)));
  }

  // What a browser does when the button of a page is pressed.
  Response press(const std::string& path, const std::function<void(Request&)>& meddle = {}) {
    const Response page = ask(request("GET", path));
    Request form = request("POST", path);
    form.contentType = "application/x-www-form-urlencoded";
    for (const auto& [name, value] : page.headers)
      if (name == "Set-Cookie") form.cookie = "other=1; " + value.substr(0, value.find(';'));
    form.body = "code=" + between(page.body, R"(name="code" value=")") +
                "&proof=" + between(page.body, R"(name="proof" value=")");
    if (meddle) meddle(form);
    return ask(form);
  }
  // What follows the mark, up to the next quotation mark.
  static std::string between(const std::string& html, const std::string& mark) {
    const std::size_t at = html.find(mark);
    if (at == std::string::npos) return {};
    return html.substr(at + mark.size(), html.find('"', at + mark.size()) - at - mark.size());
  }

  test::TemporaryDirectory directory_;
  AccountStore accounts_{directory_.path() / "state"};
  Routes routes_{accounts_, {}};
};

TEST_F(RoutesTest, FromSignInToPurchaseToSignOutAndEachPageOnce) {
  const std::string token = signUp();
  const auto order = [&] {
    return json(
        request("POST", "/api/checkout", token, R"({"pack":"hours-5","method":"alipay","lang":"zh"})"));
  };
  const auto first = order();
  EXPECT_TRUE(first.at("signIn").as_bool());
  const std::string signIn = pathOf(first);
  EXPECT_EQ(signIn.find(token), std::string::npos);
  const Response done = press(signIn);
  EXPECT_EQ(done.status, 200U);
  EXPECT_TRUE(me(token).at("signedIn").as_bool());
  EXPECT_EQ(me(token).at("secondsLeft").to_number<double>(), 3600);

  // The page leads on to the purchase.
  std::string next = between(done.body, "href=\"http://127.0.0.1:18790/livetranslate");
  next.replace(next.find("&amp;"), 5, "&");
  EXPECT_EQ(press(next).status, 200U);
  EXPECT_EQ(me(token).at("secondsLeft").to_number<double>(), 3600 + 5 * 3600);
  for (const std::string& used : {signIn, next}) {
    EXPECT_EQ(ask(request("GET", used)).status, 410U);
    EXPECT_NE(ask(request("GET", used)).body.find("用过了"), std::string::npos);
  }
  EXPECT_EQ(ask(request("GET", "/sign-in?code=invented&lang=zh")).status, 404U);

  const auto second = order();
  EXPECT_FALSE(second.at("signIn").as_bool());
  const Response page = ask(request("GET", pathOf(second)));
  for (const std::string_view part : {std::string_view("5 小时"), std::string_view("不会发生任何付款"),
                                      std::string_view(second.at("orderId").as_string())})
    EXPECT_NE(page.body.find(part), std::string::npos) << part;

  const auto after = json(request("POST", "/api/auth/unbind", token));
  EXPECT_FALSE(after.at("signedIn").as_bool());
  EXPECT_EQ(after.at("secondsLeft").to_number<double>(), 0);
}

TEST_F(RoutesTest, AFormFromElsewhereDoesNothing) {
  const std::string token = signUp();
  const std::string path = openSignIn(token);
  const std::string other = openSignIn(signUp());
  const std::vector<std::function<void(Request&)>> attempts = {
      [](Request& form) { form.cookie.clear(); },
      [](Request& form) { form.cookie = "tolvera-form=" + std::string(43, 'A'); },
      [](Request& form) { form.body = form.body.substr(0, form.body.find('&')); },
      [](Request& form) { form.body += "x"; },
      [&](Request& form) { // a proof for another link
        form.body = "code=" + other.substr(other.find('=') + 1, 43) + form.body.substr(form.body.find('&'));
      }};
  for (const auto& attempt : attempts) {
    EXPECT_NE(press(path, attempt).body.find("out of date"), std::string::npos);
    EXPECT_FALSE(me(token).at("signedIn").as_bool());
  }
  EXPECT_EQ(press(path).status, 200U); // the link still works
}

TEST_F(RoutesTest, RefusalsAreTextsInTheLanguageAskedFor) {
  const std::string token = signUp();
  Request unknown = request("GET", "/api/me", "nobody");
  unknown.acceptLanguage = "fr, zh-CN;q=0.8, en;q=0.5";
  Response response = ask(unknown);
  EXPECT_EQ(response.status, 401U);
  EXPECT_EQ(boost::json::parse(response.body).as_object().at("error").as_string(),
            "本地服务不认识这个账户。");

  const std::pair<Request, unsigned> cases[] = {
      {request("GET", "/api/signup"), 405},
      {request("GET", "/api/nothing"), 404},
      {request("POST", "/api/auth/unbind", "nobody"), 401},
      {request("GET", "/api/auth/alipay/url?lang=en&pack=none", token), 400},
      {request("POST", "/api/checkout", token, "{"), 400},
      {request("POST", "/api/checkout", token, "[]"), 400},
      {request("POST", "/api/checkout", token, R"({"pack":1,"method":"alipay"})"), 400},
      {request("POST", "/api/checkout", token, R"({"pack":"hours-5","method":"card"})"), 400},
      {request("POST", "/api/checkout", token, R"({"pack":"' OR 1=1 --","method":"alipay"})"), 400}};
  for (const auto& [bad, status] : cases) {
    response = ask(bad);
    EXPECT_EQ(response.status, status) << bad.target << bad.body;
    const auto object = boost::json::parse(response.body).as_object();
    EXPECT_TRUE(object.contains("error"));
    for (const auto& [key, value] : object) EXPECT_TRUE(value.is_string());
  }
  response = ask(request("POST", "/api/checkout", token, R"({"pack":"x","method":"alipay","lang":"zh"})"));
  EXPECT_NE(response.body.find("没有这个时长包"), std::string::npos);
}

TEST_F(RoutesTest, PagesRepeatNothingThatTheyAreGivenAsMarkup) {
  const Response page = ask(request("GET", "/sign-in?code=%22%3E%3Cscript%3Ealert(1)%3C/script%3E&lang=en"));
  EXPECT_EQ(page.status, 404U);
  EXPECT_EQ(page.body.find("<script"), std::string::npos);
  EXPECT_NE(ask(request("GET", "/privacy?lang=zh")).body.find("支付宝"), std::string::npos);
}

TEST_F(RoutesTest, TooManyLinksAreRefusedForAWhile) {
  const std::string token = signUp();
  unsigned last = 200;
  for (int i = 0; i < 400 && last == 200; ++i)
    last = ask(request("GET", "/api/auth/alipay/url?lang=en", token)).status;
  EXPECT_EQ(last, 429U);
}

} // namespace
} // namespace tolvera::service
