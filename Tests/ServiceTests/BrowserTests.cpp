#include "ServiceTests/RunningServer.h"
#include "ServiceTests/StreamClient.h"
#include "Support/ChildProcess.h"

#include <gtest/gtest.h>

#include <fstream>

namespace tolvera::test {
namespace {

namespace json = boost::json;

// The service's pages in a real browser without a window, as wide as the parameter says.
class BrowserTest : public testing::TestWithParam<int> {
 protected:
  void SetUp() override {
    const auto log = directory_ / "log";
    driver_.emplace(std::vector<std::string>{"chromedriver", "--port=0"}, log.string());
    std::uint16_t port = 0;
    for (int look = 0; port == 0; ++look) {
      ASSERT_LT(look, 1000);
      if (!driver_->running()) GTEST_SKIP() << "chromium-driver is not installed";
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      std::ifstream lines(log);
      for (std::string line; std::getline(lines, line);)
        std::sscanf(line.c_str(), "ChromeDriver was started successfully on port %hu", &port);
    }
    browser_.emplace(port);
    const json::object options{
        {"args",
         {"--headless=new", "--no-sandbox", "--disable-gpu",
          "--user-data-dir=" + directory_.path().string()}},
        {"mobileEmulation",
         {{"deviceMetrics", {{"width", GetParam()}, {"height", 900}, {"pixelRatio", 1.0}}}}}};
    const json::object capabilities{{"browserName", "chrome"}, {"goog:chromeOptions", options}};
    session_ = command("", {{"capabilities", {{"alwaysMatch", capabilities}}}}).at("sessionId").as_string();
  }

  void TearDown() override {
    if (!session_.empty()) EXPECT_EQ(browser_->request("DELETE", "/session/" + session_).status, 200U);
  }

  json::value command(const std::string& path, const json::object& body) {
    const HTTPReply reply = browser_->post("/session" + path, {}, json::serialize(body));
    EXPECT_EQ(reply.status, 200U) << reply.body;
    return reply.json().at("value");
  }
  void open(const std::string& url) { command("/" + session_ + "/url", {{"url", url}}); }
  json::value run(const std::string& script) {
    return command("/" + session_ + "/execute/sync", {{"script", script}, {"args", json::array{}}});
  }
  void click(const std::string& selector) { run("document.querySelector('" + selector + "').click()"); }
  // Waits for the page with the heading, and looks whether it fits.
  bool shows(const std::string& heading) {
    bool shown = false;
    for (int look = 0; look < 500 && !shown; ++look) {
      shown = run("return document.querySelector('h1')?.innerText") == json::value(heading);
      if (!shown) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return shown && run("return document.scrollingElement.scrollWidth").as_int64() <= GetParam();
  }

  TemporaryDirectory directory_;
  RunningServer server_{0};
  HTTPClient client_{server_->port()};
  std::optional<ChildProcess> driver_;
  std::optional<HTTPClient> browser_;
  std::string session_;
};

TEST_P(BrowserTest, SignsInBuysTimeAndComesBackToAPageThatIsUsed) {
  const std::string token = client_.signUp();
  const auto me = [&] { return client_.get("/livetranslate/api/me", token).json(); };
  const std::string order = R"({"pack":"hours-5","method":"alipay","lang":"zh"})";
  const auto reply = client_.post("/livetranslate/api/checkout", token, order).json();
  const std::string url(reply.at("url").as_string());

  open(url);
  ASSERT_TRUE(shows("登录本地账户"));
  // The style sheet is allowed and there: the button is not the browser's own grey.
  EXPECT_NE(run("return getComputedStyle(document.querySelector('button')).borderRadius"), "0px");
  click("header a"); // the other language
  ASSERT_TRUE(shows("Sign in to the local account"));
  click("button");
  ASSERT_TRUE(shows("Signed in"));
  EXPECT_TRUE(me().at("signedIn").as_bool());

  click("a.button");
  ASSERT_TRUE(shows("Add translation time"));
  click("button");
  ASSERT_TRUE(shows("Time added"));
  EXPECT_EQ(me().at("secondsLeft").to_number<double>(), 3600 + 5 * 3600);

  open(url);
  ASSERT_TRUE(shows("这个页面已经用过了"));
}

INSTANTIATE_TEST_SUITE_P(OnAPhoneAndOnADesk, BrowserTest, testing::Values(380, 1400));

} // namespace
} // namespace tolvera::test
