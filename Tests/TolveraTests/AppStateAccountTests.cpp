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
};

TEST_F(Account, FirstUseSignsUp) {
  launch();
  EXPECT_EQ(stored(), "secret-token");
  launch(); // the token outlives the program
  EXPECT_EQ(app_->secondsLeft(), 3600);
  EXPECT_EQ(in_.network.requestCount("/api/signup"), 1U);
}

TEST_F(Account, UnknownTokenIsDropped) {
  TokenStore::save(in_.fileManager, "forgotten", API::defaultBaseURL().buffer());
  in_.network.reply("/api/me", 401, R"({"error":"who?"})");
  auto& model = launch();
  EXPECT_FALSE(model.me());
  EXPECT_EQ(stored(), "secret-token") << "before the first reply it is replaced at once";
  EXPECT_EQ(model.secondsLeft(), 3600) << "as the signup granted";
  account(1000);
  loseToken();
  EXPECT_EQ(stored(), "absent");
  EXPECT_EQ(model.secondsLeft(), 1000);
}

TEST_F(Account, RefusalsChangeNothing) {
  auto& model = launch();
  for (const auto& [status, body] : {std::pair{500, "oops"}, {200, "{}"}}) {
    in_.network.reply("/api/me", status, body);
    in_.loop.run(model.refreshAccount());
    EXPECT_EQ(stored(), "secret-token");
    EXPECT_EQ(model.secondsLeft(), 3600);
  }
  for (const auto& [status, body] :
       {std::pair{200, R"({"url":"not an address"})"}, {200, R"({"url":7})"}, {402, "{}"}}) {
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
      {true, test::accountReply(3600, true), 12s},
      {false, test::accountReply(9000, true), 12s},
      {false, test::accountReply(9000, true), 120s}}; // no change: 40 looks
  for (const auto& [signIn, reply, duration] : changes) {
    auto watching = begin(signIn ? model.signIn() : model.openTopUp("p1"));
    const auto before = in_.network.requestCount("/api/me");
    in_.loop.advance(9s);
    in_.network.reply("/api/me", 200, reply);
    in_.loop.advance(duration - 10s);
    EXPECT_FALSE(watching.finished());
    in_.loop.advance(60s);
    EXPECT_TRUE(watching.finished());
    EXPECT_EQ(in_.network.requestCount("/api/me"), before + static_cast<std::size_t>(duration / 3s));
  }
  EXPECT_TRUE(model.isSignedIn());
  EXPECT_EQ(in_.workspace.opened[0], "http://127.0.0.1:1/page?code=once");
  EXPECT_EQ(in_.workspace.opened[1], "http://127.0.0.1:1/buy");
  EXPECT_TRUE(std::ranges::any_of(in_.network.requests, [](const auto& request) {
    return request.body == R"({"lang":"zh","method":"alipay","pack":"p1"})";
  }));

  in_.network.reply("/api/auth/unbind", 200, R"({"signedIn":false,"secondsLeft":0})");
  in_.network.reply("/api/me", 200, test::accountReply(12));
  in_.loop.run(model.signOut());
  EXPECT_FALSE(model.isSignedIn());
  EXPECT_EQ(stored(), "secret-token");

  for (const auto* base : {"http://127.0.0.1:1", "HTTP://127.0.0.1:1/ "}) {
    settings().setServerURL(base);
    model.openPrivacy();
    EXPECT_EQ(in_.workspace.opened.back(), "http://127.0.0.1:1/privacy");
  }
}

TEST_F(Account, BalanceReadsAsText) {
  const std::tuple<double, QString, QString> cases[] = {{-5, "under a minute", "不到 1 分钟"},
                                                        {59.4, "under a minute", "不到 1 分钟"},
                                                        {59.5, "1m", "1 分钟"},
                                                        {3599.4, "59m", "59 分钟"},
                                                        {3599.5, "1h 0m", "1 小时 0 分"},
                                                        {7500, "2h 5m", "2 小时 5 分"},
                                                        {std::nan(""), "under a minute", "不到 1 分钟"},
                                                        {1e300, "under a minute", "不到 1 分钟"}};
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

TEST_F(Account, StartedServiceIsAskedAgain) {
  in_.network.answers["/api/me"] = []() -> Task<platform::HTTPResponse> {
    throw std::runtime_error("does not answer");
    co_return platform::HTTPResponse{};
  };
  in_.loop.run(app_->bootstrap());
  EXPECT_FALSE(app_->knowsAccount());
  in_.network.reply("/api/me", 200, test::accountReply(3600));
  for (int start = 0; start < 2; ++start) {
    in_.notificationCenter.post(platform::localServiceDidStart);
    settle();
  }
  EXPECT_TRUE(app_->knowsAccount());
  EXPECT_EQ(in_.network.requestCount("/api/me"), 2U) << "a known account is not asked for";
}

} // namespace
} // namespace tolvera
