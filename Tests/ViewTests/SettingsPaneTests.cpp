#include "ViewTests/ViewFixture.h"

namespace tolvera {
namespace {

using test::ViewHost;

constexpr auto button = QAccessible::Button;
constexpr auto check = QAccessible::CheckBox;
constexpr auto radio = QAccessible::RadioButton;

class SettingsPaneTest : public test::ViewFixture {
 protected:
  ViewHost& open() {
    model_.app().setTab(AppState::Tab::settings);
    return ViewFixture::open(ViewHost::Kind::main);
  }
};

TEST_F(SettingsPaneTest, WithoutAnAccountReplyOffersTheSignIn) {
  model_.in().network.reply("/api/me", 500, "");
  auto& view = open();
  EXPECT_NE(view.find(button, "Sign in with Alipay"), nullptr);
  EXPECT_EQ(view.find(button, "Sign out"), nullptr);
  EXPECT_TRUE(view.shows("Your hours live in your Alipay account and are shared with the browser extension. "
                         "Anything you bought there works here."));
}

TEST_F(SettingsPaneTest, ShowsASignedInAccountAndFollowsIt) {
  model_.account(0, true);
  auto& view = open();
  EXPECT_TRUE(view.shows("under a minute"));
  EXPECT_TRUE(view.shows("Signed in"));
  EXPECT_EQ(view.find(button, "Sign in with Alipay"), nullptr);
  model_.account(7200, false);
  view.settle();
  EXPECT_TRUE(view.shows("2h 0m"));
  EXPECT_NE(view.find(button, "Sign in with Alipay"), nullptr);
}

TEST_F(SettingsPaneTest, SignsOutOnlyByTheActionOfTheQuestion) {
  model_.account(600, true);
  model_.in().network.reply("/api/auth/unbind", 200, R"({"signedIn":false,"secondsLeft":600})");
  auto& view = open();
  const auto requests = [this] { return model_.in().network.requestCount("/api/auth/unbind"); };

  view.click(button, "Sign out");
  EXPECT_TRUE(view.shows("Sign out?"));
  EXPECT_EQ(requests(), 0U);
  view.click(button, "Cancel");
  EXPECT_FALSE(view.shows("Sign out?"));
  view.click(button, "Sign out");
  view.press(Qt::Key_Escape);
  EXPECT_FALSE(view.shows("Sign out?"));
  EXPECT_EQ(requests(), 0U);

  view.click(button, "Sign out");
  model_.settings().setUILanguage(UILanguage::chinese);
  view.settle();
  EXPECT_TRUE(view.shows("退出登录？")) << "the question follows the language";
  const auto actions = view.names(button);
  EXPECT_EQ(actions.count("退出登录"), 2) << "the row's and the question's";
  view.press(Qt::Key_Tab); // from the way out to the action
  view.press(Qt::Key_Return);
  EXPECT_FALSE(view.shows("退出登录？"));
  EXPECT_EQ(requests(), 1U);
}

TEST_F(SettingsPaneTest, ChangesTheLanguageAndTheSwitchesAtOnce) {
  model_.in().locale = adapters::IcuLocale("zh_TW");
  auto& view = open();
  EXPECT_EQ(view.valueOf(radio, "English"), "on");
  view.click(radio, "Follow system");
  EXPECT_EQ(model_.settings().uiLanguage(), UILanguage::system);
  EXPECT_EQ(view.valueOf(radio, "跟随系统"), "on");
  view.click(check, "在菜单栏显示");
  EXPECT_FALSE(model_.settings().menuBarEnabled());
  view.click(check, "在其它 App 上方显示悬浮字幕");
  EXPECT_FALSE(model_.settings().overlayEnabled());
}

TEST_F(SettingsPaneTest, OpensThePrivacyPage) {
  auto& view = open();
  view.click(button, "Privacy policy");
  ASSERT_EQ(model_.in().workspace.opened.size(), 1U);
  EXPECT_TRUE(model_.in().workspace.opened.front().ends_with("/privacy"));
}

} // namespace
} // namespace tolvera
