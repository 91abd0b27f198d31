#include "TolveraTests/ModelFixture.h"

#include "Tolvera/Model/TokenStore.h"

namespace tolvera {
namespace {

using namespace std::chrono_literals;

class Account : public test::ModelFixture {
 protected:
  static std::string server() { return std::string(API::defaultBaseURL().buffer()); }
  std::optional<std::string> stored() { return TokenStore::load(in_.fileManager, server()); }
};

TEST_F(Account, TheFirstUseSignsUpOnceAndTheTokenOutlivesTheProgram) {
  auto& model = launch();
  EXPECT_EQ(stored(), "secret token");
  EXPECT_EQ(model.secondsLeft(), 3600);
  EXPECT_FALSE(model.isSignedIn());
  launch();
  in_.loop.run(model_->refreshAccount());
  EXPECT_EQ(in_.network.requestCount("/api/signup"), 1u);
}

TEST_F(Account, ATokenTheServiceForgotIsReplacedAtOnceOnlyBeforeTheFirstReply) {
  TokenStore::save(in_.fileManager, "forgotten", server());
  in_.network.reply("/api/me", 401, R"({"error":"who?"})");
  auto& model = launch();
  EXPECT_FALSE(model.me());
  EXPECT_EQ(stored(), "secret token");
  EXPECT_EQ(model.secondsLeft(), 3600) << "what the signup granted";

  in_.network.reply("/api/me", 200, test::accountReply(1000));
  in_.loop.run(model.refreshAccount());
  EXPECT_EQ(model.secondsLeft(), 1000);

  in_.network.reply("/api/me", 401, R"({"error":"who?"})");
  in_.loop.run(model.refreshAccount());
  EXPECT_FALSE(stored());
  EXPECT_EQ(model.secondsLeft(), 1000);
  EXPECT_EQ(in_.network.requestCount("/api/signup"), 1u);
}

TEST_F(Account, AnyOtherRefusalLeavesEverythingAsItWas) {
  in_.network.reply("/api/signup", 500, "oops");
  auto& model = launch();
  EXPECT_FALSE(model.me() || stored());
  EXPECT_EQ(model.secondsLeft(), 0);
  in_.network.reply("/api/signup", 200, R"({"token":"t","secondsLeft":3600})");
  for (const auto& [status, body] : {std::pair{200, test::accountReply(3600)}, {500, "oops"}, {200, "{}"}}) {
    in_.network.reply("/api/me", status, body);
    in_.loop.run(model.refreshAccount());
    EXPECT_EQ(stored(), "t");
    EXPECT_EQ(model.secondsLeft(), 3600);
  }
}

TEST_F(Account, SigningInOpensThePageAndWatchesUntilTheAccountChanges) {
  auto& model = launch();
  in_.network.reply("/api/auth/alipay/url", 200, R"({"url":"http://127.0.0.1:1/page?code=once"})");
  auto signingIn = begin(model.signIn());
  EXPECT_EQ(in_.workspace.opened, std::vector<std::string>{"http://127.0.0.1:1/page?code=once"});
  const auto reads = in_.network.requestCount("/api/me");
  in_.loop.advance(9s);
  EXPECT_EQ(in_.network.requestCount("/api/me"), reads + 3);
  EXPECT_FALSE(signingIn.finished());
  in_.network.reply("/api/me", 200, test::accountReply(3600, true));
  in_.loop.advance(3s);
  EXPECT_TRUE(signingIn.finished());
  EXPECT_TRUE(model.isSignedIn());
}

TEST_F(Account, TheWatchEndsWithTheFirstNewBalanceOrAfterFortyLooks) {
  auto& model = launch();
  model.settings()->setUILanguage(UILanguage::chinese);
  in_.network.reply("/api/checkout", 200, R"({"url":"http://127.0.0.1:1/buy"})");
  auto buying = begin(model.openTopUp("p1"));
  EXPECT_EQ(in_.network.requests().back().body, R"({"lang":"zh","method":"alipay","pack":"p1"})");
  in_.network.reply("/api/me", 200, test::accountReply(9000));
  in_.loop.advance(3s);
  EXPECT_TRUE(buying.finished());
  EXPECT_EQ(model.secondsLeft(), 9000);

  auto again = begin(model.openTopUp("p1"));
  const auto reads = in_.network.requestCount("/api/me");
  in_.loop.advance(119s);
  EXPECT_FALSE(again.finished());
  in_.loop.advance(60s);
  EXPECT_TRUE(again.finished());
  EXPECT_EQ(in_.network.requestCount("/api/me"), reads + 40);
}

TEST_F(Account, APressThatLeadsNowhereChangesNothing) {
  auto& model = launch();
  const std::pair<int, const char*> replies[] = {
      {200, R"({"url":"not an address"})"}, {200, R"({"url":7})"}, {200, "gone"}, {402, R"({"error":"no"})"}};
  for (const auto& [status, body] : replies) {
    in_.network.reply("/api/checkout", status, body);
    EXPECT_TRUE(begin(model.openTopUp("p1")).finished()) << body;
  }
  EXPECT_TRUE(in_.workspace.opened.empty());
  EXPECT_EQ(phase(), "idle");
}

TEST_F(Account, SigningOutKeepsTheTokenAndAsksWhatRemainsAndThePrivacyPageNeedsNone) {
  in_.network.reply("/api/me", 200, test::accountReply(3600, true));
  auto& model = launch();
  in_.network.reply("/api/auth/unbind", 200, R"({"signedIn":false,"secondsLeft":0})");
  in_.network.reply("/api/me", 200, test::accountReply(12));
  in_.loop.run(model.signOut());
  EXPECT_FALSE(model.isSignedIn());
  EXPECT_EQ(model.secondsLeft(), 12);
  EXPECT_EQ(stored(), "secret token");
  model.openPrivacy();
  EXPECT_EQ(in_.workspace.opened, std::vector<std::string>{server() + "/privacy"});
}

TEST_F(Account, ABalanceReadsAsTextInTheLanguageOfTheMoment) {
  auto& model = launch();
  const std::tuple<double, QString, QString> cases[] = {
      {0, "under a minute", "不到 1 分钟"},
      {29.4, "under a minute", "不到 1 分钟"},
      {-5, "under a minute", "不到 1 分钟"},
      {59.5, "1m", "1 分钟"},
      {3599.4, "59m", "59 分钟"},
      {3599.5, "1h 0m", "1 小时 0 分"},
      {7500, "2h 5m", "2 小时 5 分"},
      {std::nan(""), "under a minute", "不到 1 分钟"},
      {1e300, "under a minute", "不到 1 分钟"},
  };
  for (const auto& [seconds, english, chinese] : cases) {
    model.settings()->setUILanguage(UILanguage::english);
    EXPECT_EQ(model.formatTime(seconds), english) << seconds;
    model.settings()->setUILanguage(UILanguage::chinese);
    EXPECT_EQ(model.formatTime(seconds), chinese) << seconds;
  }
}

} // namespace
} // namespace tolvera
