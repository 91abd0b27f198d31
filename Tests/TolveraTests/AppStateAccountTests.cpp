#include "TolveraTests/ModelFixture.h"

#include "Tolvera/Model/TokenStore.h"

namespace tolvera {
namespace {

using namespace std::chrono_literals;

class Account : public test::ModelFixture {
 protected:
  std::string stored() {
    return TokenStore::load(in_.fileManager, API::defaultBaseURL().buffer()).value_or("absent");
  }
  std::size_t reads() { return in_.network.requestCount("/api/me"); }
};

TEST_F(Account, FirstUseSignsUp) {
  auto& model = launch();
  EXPECT_EQ(stored(), "secret token");
  EXPECT_EQ(model.secondsLeft(), 3600);
  EXPECT_FALSE(model.isSignedIn());
  launch(); // the token outlives the program
  EXPECT_EQ(in_.network.requestCount("/api/signup"), 1U);
}

TEST_F(Account, UnknownTokenIsDropped) {
  TokenStore::save(in_.fileManager, "forgotten", API::defaultBaseURL().buffer());
  in_.network.reply("/api/me", 401, R"({"error":"who?"})");
  auto& model = launch();
  EXPECT_FALSE(model.me());
  EXPECT_EQ(stored(), "secret token") << "before the first reply it is replaced at once";
  EXPECT_EQ(model.secondsLeft(), 3600) << "as the signup granted";
  account(1000);
  in_.network.reply("/api/me", 401, R"({"error":"who?"})");
  in_.loop.run(model.refreshAccount());
  EXPECT_EQ(stored(), "absent");
  EXPECT_EQ(model.secondsLeft(), 1000);
  EXPECT_EQ(in_.network.requestCount("/api/signup"), 1U);
}

TEST_F(Account, RefusalsChangeNothing) {
  in_.network.reply("/api/signup", 500, "oops");
  auto& model = launch();
  EXPECT_FALSE(model.me());
  EXPECT_EQ(stored(), "absent");
  in_.network.reply("/api/signup", 200, R"({"token":"t","secondsLeft":3600})");
  for (const auto& [status, body] : {std::pair{500, "oops"}, {200, "{}"}}) {
    in_.network.reply("/api/me", status, body);
    in_.loop.run(model.refreshAccount());
    EXPECT_EQ(stored(), "t");
    EXPECT_EQ(model.secondsLeft(), 3600);
  }
  for (const auto& [status, body] :
       {std::pair{200, R"({"url":"not an address"})"}, {200, R"({"url":7})"}, {200, "gone"}, {402, "{}"}}) {
    in_.network.reply("/api/checkout", status, body);
    EXPECT_TRUE(begin(model.openTopUp("p1")).finished()) << body;
  }
  EXPECT_TRUE(in_.workspace.opened.empty());
}

TEST_F(Account, PagesAreWatchedUntilAChange) {
  auto& model = launch();
  settings().setUILanguage(UILanguage::chinese);
  in_.network.reply("/api/auth/alipay/url", 200, R"({"url":"http://127.0.0.1:1/page?code=once"})");
  in_.network.reply("/api/checkout", 200, R"({"url":"http://127.0.0.1:1/buy"})");
  const std::tuple<bool, std::string, Duration> changes[] = {
      {true, test::accountReply(3600, true), 3s},
      {false, test::accountReply(9000, true), 3s},
      {false, test::accountReply(9000, true), 111s}}; // no change: 40 looks
  for (const auto& [signIn, reply, rest] : changes) {
    auto watching = begin(signIn ? model.signIn() : model.openTopUp("p1"));
    const auto before = reads();
    in_.loop.advance(9s);
    EXPECT_EQ(reads(), before + 3);
    in_.network.reply("/api/me", 200, reply);
    in_.loop.advance(rest - 1s);
    EXPECT_FALSE(watching.finished());
    in_.loop.advance(60s);
    EXPECT_TRUE(watching.finished());
    EXPECT_EQ(reads(), before + 3 + static_cast<std::size_t>(rest / 3s));
  }
  EXPECT_TRUE(model.isSignedIn());
  EXPECT_EQ(in_.workspace.opened[0] + in_.workspace.opened[1],
            "http://127.0.0.1:1/page?code=oncehttp://127.0.0.1:1/buy");
  const auto requests = in_.network.requests();
  EXPECT_TRUE(std::ranges::any_of(requests, [](const auto& request) {
    return request.body == R"({"lang":"zh","method":"alipay","pack":"p1"})";
  }));
}

TEST_F(Account, SigningOutKeepsTheToken) {
  in_.network.reply("/api/me", 200, test::accountReply(3600, true));
  auto& model = launch();
  in_.network.reply("/api/auth/unbind", 200, R"({"signedIn":false,"secondsLeft":0})");
  in_.network.reply("/api/me", 200, test::accountReply(12));
  in_.loop.run(model.signOut());
  EXPECT_FALSE(model.isSignedIn());
  EXPECT_EQ(model.secondsLeft(), 12);
  EXPECT_EQ(stored(), "secret token");
  model.openPrivacy();
  EXPECT_EQ(in_.workspace.opened[0], std::string(API::defaultBaseURL().buffer()) + "/privacy");
}

TEST_F(Account, BalanceReadsAsText) {
  const std::tuple<double, QString, QString> cases[] = {
      {0, "under a minute", "不到 1 分钟"},
      {-5, "under a minute", "不到 1 分钟"},
      {59.4, "under a minute", "不到 1 分钟"},
      {59.5, "1m", "1 分钟"},
      {3599.4, "59m", "59 分钟"},
      {3599.5, "1h 0m", "1 小时 0 分"},
      {7500, "2h 5m", "2 小时 5 分"},
      {std::nan(""), "under a minute", "不到 1 分钟"},
      {1e300, "under a minute", "不到 1 分钟"},
  };
  for (const auto& [seconds, english, chinese] : cases) {
    settings().setUILanguage(UILanguage::english);
    EXPECT_EQ(app_->formatTime(seconds), english);
    settings().setUILanguage(UILanguage::chinese);
    EXPECT_EQ(app_->formatTime(seconds), chinese);
  }
}

TEST_F(Account, TwoCallersShareOneSignup) {
  in_.userDefaults.setObject("TolveraAutoStart", true); // asks for the account beside the window
  make();
  app_->beginBootstrap();
  app_->retryBootstrap();
  settle();
  EXPECT_EQ(in_.network.requestCount("/api/signup"), 1U);
  EXPECT_EQ(phase(), "connecting");
}

} // namespace
} // namespace tolvera
