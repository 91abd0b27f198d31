#include "ServiceTests/Browser.h"
#include "ServiceTests/RunningServer.h"

#include <gtest/gtest.h>

namespace tolvera::test {
namespace {

// The service's pages in a real browser, as wide as the parameter says.
class BrowserTest : public testing::TestWithParam<int> {
 protected:
  void SetUp() override {
    browser_ = Browser::start(GetParam());
    if (!browser_) GTEST_SKIP() << "chromium-driver is not installed";
  }
  // Waits for the page with the heading, and looks whether it fits.
  bool shows(const std::string& heading) {
    return browser_->waitForText("h1", heading) &&
           browser_->run("return document.scrollingElement.scrollWidth").as_int64() <= GetParam();
  }

  RunningServer server_{0};
  HTTPClient client_{server_->port()};
  std::unique_ptr<Browser> browser_;
};

TEST_P(BrowserTest, SignsInBuysTimeAndComesBackToAPageThatIsUsed) {
  const std::string token = client_.signUp();
  const auto me = [&] { return client_.get("/livetranslate/api/me", token).json(); };
  const std::string order = R"({"pack":"hours-5","method":"alipay","lang":"zh"})";
  const auto reply = client_.post("/livetranslate/api/checkout", token, order).json();
  const std::string url(reply.at("url").as_string());

  browser_->open(url);
  ASSERT_TRUE(shows("登录本地账户"));
  // The style sheet is allowed and there: the button is not the browser's own grey.
  EXPECT_NE(browser_->run("return getComputedStyle(document.querySelector('button')).borderRadius"), "0px");
  browser_->click("header a"); // the other language
  ASSERT_TRUE(shows("Sign in to the local account"));
  browser_->click("button");
  ASSERT_TRUE(shows("Signed in"));
  EXPECT_TRUE(me().at("signedIn").as_bool());

  browser_->click("a.button");
  ASSERT_TRUE(shows("Add translation time"));
  browser_->click("button");
  ASSERT_TRUE(shows("Time added"));
  EXPECT_EQ(me().at("secondsLeft").to_number<double>(), 3600 + 5 * 3600);

  browser_->open(url);
  ASSERT_TRUE(shows("这个页面已经用过了"));
}

INSTANTIATE_TEST_SUITE_P(OnAPhoneAndOnADesk, BrowserTest, testing::Values(380, 1400));

} // namespace
} // namespace tolvera::test
