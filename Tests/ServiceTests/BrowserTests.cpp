#include "ServiceTests/Browser.h"
#include "ServiceTests/RunningServer.h"

#include <gtest/gtest.h>

namespace tolvera::test {
namespace {

// The service's pages in a real browser that is as wide as a phone.
TEST(Pages, LeadFromSignInToTimeOnce) {
  constexpr int width = 380;
  const auto browser = Browser::start(width);
  if (!browser) GTEST_SKIP() << "chromium-driver is not installed";
  RunningServer server(0);
  const HTTPClient client(server->port());
  const std::string token = client.signUp();
  const auto secondsLeft = [&] {
    return client.get("/livetranslate/api/me", token).json().at("secondsLeft").to_number<double>();
  };
  const auto shows = [&](const char* heading) {
    return browser->waitForText("h1", heading) &&
           browser->run("return document.scrollingElement.scrollWidth").as_int64() <= width;
  };
  const std::string order = R"({"pack":"hours-5","method":"alipay","lang":"zh"})";
  const auto reply = client.post("/livetranslate/api/checkout", token, order).json();
  EXPECT_TRUE(reply.at("signIn").as_bool());
  const std::string url(reply.at("url").as_string());
  EXPECT_EQ(url.find(token), std::string::npos);

  browser->open(url);
  ASSERT_TRUE(shows("登录本地账户"));
  // The page may load its style sheet: the button is not the browser's own grey.
  EXPECT_NE(browser->run("return getComputedStyle(document.querySelector('button')).borderRadius"), "0px");
  browser->click("header a"); // the other language
  ASSERT_TRUE(shows("Sign in to the local account"));
  browser->click("button");
  ASSERT_TRUE(shows("Signed in"));
  EXPECT_EQ(secondsLeft(), 3600);
  browser->click("a.button");
  ASSERT_TRUE(shows("Add translation time"));
  browser->click("button");
  ASSERT_TRUE(shows("Time added"));
  EXPECT_EQ(secondsLeft(), 3600 + 5 * 3600);
  browser->open(url);
  ASSERT_TRUE(shows("这个页面已经用过了"));
  EXPECT_FALSE(client.post("/livetranslate/api/auth/unbind", token).json().at("signedIn").as_bool());
  EXPECT_EQ(secondsLeft(), 0) << "the hours stay with the account";
}

} // namespace
} // namespace tolvera::test
