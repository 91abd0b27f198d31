#include "TolveraService/Http/Routes.h"

#include "Harness/TemporaryDirectory.h"

#include <boost/json.hpp>
#include <gtest/gtest.h>

#include <functional>

namespace tolvera::service {
namespace {

class Requests : public testing::Test {
 protected:
  static Request request(const std::string& method, const std::string& path, const std::string& token = {},
                         const std::string& body = {}) {
    return {method, "/livetranslate" + path, "127.0.0.1:18790", "Bearer " + token, {}, {}, {}, body};
  }
  boost::json::object json(const Request& request) {
    return boost::json::parse(routes_.answer(request).body).as_object();
  }
  std::string signUp() { return std::string(json(request("POST", "/api/signup")).at("token").as_string()); }
  // The path of a new page for the sign-in.
  std::string signInPage(const std::string& token) {
    const std::string url(json(request("GET", "/api/auth/alipay/url?lang=en", token)).at("url").as_string());
    return url.substr(url.find("/sign-in"));
  }
  // What a browser does when the button of a page is pressed, after `change` of the form.
  Response press(const std::string& path, const std::function<void(Request&)>& change = [](Request&) {}) {
    const Response page = routes_.answer(request("GET", path));
    const auto value = [&page](const std::string& name) {
      const std::string mark = "name=\"" + name + "\" value=\"";
      const std::size_t at = page.body.find(mark) + mark.size();
      return name + "=" + page.body.substr(at, page.body.find('"', at) - at);
    };
    Request form = request("POST", path, {}, value("code") + "&" + value("proof"));
    for (const auto& [name, text] : page.headers)
      if (name == "Set-Cookie") form.cookie = "other=1; " + text.substr(0, text.find(';'));
    change(form);
    return routes_.answer(form);
  }

  test::TemporaryDirectory directory_;
  AccountStore accounts_{directory_.path() / "state"};
  Routes routes_{accounts_, {}};
};

TEST_F(Requests, FormFromElsewhereDoesNothing) {
  const std::string token = signUp();
  const std::string path = signInPage(token);
  const std::string other = signInPage(signUp());
  const std::vector<std::function<void(Request&)>> attempts = {
      [](Request& form) { form.cookie.clear(); },
      [](Request& form) { form.cookie = "tolvera-form=" + std::string(43, 'A'); },
      [](Request& form) { form.body = form.body.substr(0, form.body.find('&')); },
      [](Request& form) { form.body += "x"; },
      [&](Request& form) { // a proof for another link
        form.body = "code=" + other.substr(other.find('=') + 1, 43) + form.body.substr(form.body.find('&'));
      }};
  const auto signedIn = [&] { return json(request("GET", "/api/me", token)).at("signedIn").as_bool(); };
  for (const auto& attempt : attempts) {
    EXPECT_NE(press(path, attempt).body.find("out of date"), std::string::npos);
    EXPECT_FALSE(signedIn());
  }
  EXPECT_EQ(press(path).status, 200U) << "the link still works";
  EXPECT_TRUE(signedIn());
}

TEST_F(Requests, RefusalsAreTextsInTheCallersLanguage) {
  const std::string token = signUp();
  const auto order = [&](const char* body) { return request("POST", "/api/checkout", token, body); };
  Request french = request("GET", "/api/me", "unknown");
  french.acceptLanguage = "fr, zh-CN;q=0.8, en;q=0.5";
  const std::tuple<Request, unsigned, std::string_view> cases[] = {
      {request("GET", "/api/me?lang=zh", "unknown"), 401, "不认识这个账户"},
      {french, 401, "账户"},
      {request("POST", "/api/auth/unbind", "unknown"), 401, "does not know this account"},
      {request("GET", "/api/signup"), 405, ""},
      {request("GET", "/api/nothing"), 404, ""},
      {request("GET", "/api/auth/alipay/url?lang=zh&pack=none", token), 400, "没有这个时长包"},
      {order("{"), 400, "JSON"},
      {order("[]"), 400, "JSON"},
      {order(R"({"pack":1,"method":"alipay"})"), 400, ""},
      {order(R"({"pack":"hours-5","method":"card","lang":"zh"})"), 400, "没有这种付款方式"},
      {order(R"({"pack":"' OR 1=1 --","method":"alipay"})"), 400, "no such pack"}};
  for (const auto& [bad, status, words] : cases) {
    EXPECT_EQ(routes_.answer(bad).status, status) << bad.target << bad.body;
    const auto object = json(bad);
    EXPECT_NE(object.at("error").as_string().find(words), std::string::npos) << object;
    EXPECT_EQ(object.size(), 1U);
  }
}

TEST_F(Requests, PagesRepeatNoMarkup) {
  const Response page =
      routes_.answer(request("GET", "/sign-in?code=%22%3E%3Cscript%3Ealert(1)%3C/script%3E&lang=en"));
  EXPECT_EQ(page.status, 404U);
  EXPECT_EQ(page.body.find("<script"), std::string::npos);
}

} // namespace
} // namespace tolvera::service
