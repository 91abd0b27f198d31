#include "ServiceTests/Browser.h"
#include "ServiceTests/RunningServer.h"

#include <gtest/gtest.h>

namespace tolvera::test {
namespace {

class BrowserTest : public testing::TestWithParam<int> {
 protected:
  void SetUp() override {
    browser_ = Browser::start(GetParam());
    if (!browser_) GTEST_SKIP() << "chromium-driver is not installed";
  }
  bool fits() {
    return browser_->run("return document.scrollingElement.scrollWidth <= innerWidth").as_bool();
  }

  RunningServer server_{0};
  HTTPClient client_{server_->port()};
  std::unique_ptr<Browser> browser_;
};

TEST_P(BrowserTest, SignsInBuysTimeAndComesBackToAPageThatIsUsed) {
  const std::string token = client_.signUp();
  const auto me = [&] { return client_.get("/livetranslate/api/me", token).json(); };
  const auto order =
      client_
          .post("/livetranslate/api/checkout", token, R"({"pack":"hours-5","method":"alipay","lang":"zh"})")
          .json();
  const std::string url(order.at("url").as_string());

  browser_->open(url);
  ASSERT_TRUE(browser_->waitForText("h1", "登录本地账户"));
  EXPECT_NE(browser_->text("article").find("不会发生任何付款"), std::string::npos);
  EXPECT_TRUE(fits());
  // The style sheet is allowed and there: the button is not the browser's own grey.
  EXPECT_NE(
      browser_->run("return getComputedStyle(document.querySelector('button')).borderRadius").as_string(),
      "0px");
  browser_->click("header a"); // the other language
  ASSERT_TRUE(browser_->waitForText("h1", "Sign in to the local account"));
  browser_->click("button");
  ASSERT_TRUE(browser_->waitForText("h1", "Signed in"));
  EXPECT_TRUE(me().at("signedIn").as_bool());

  browser_->click("a.button");
  ASSERT_TRUE(browser_->waitForText("h1", "Add translation time"));
  EXPECT_TRUE(fits());
  browser_->click("button");
  ASSERT_TRUE(browser_->waitForText("h1", "Time added"));
  EXPECT_EQ(me().at("secondsLeft").to_number<double>(), 3600 + 5 * 3600);

  browser_->open(url);
  ASSERT_TRUE(browser_->waitForText("h1", "这个页面已经用过了"));
  EXPECT_TRUE(fits());
}

INSTANTIATE_TEST_SUITE_P(OnAPhoneAndOnADesk, BrowserTest, testing::Values(380, 1400));

} // namespace
} // namespace tolvera::test
