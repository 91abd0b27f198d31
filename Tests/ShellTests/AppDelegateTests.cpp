#include "Fakes/InMemoryModel.h"
#include "Tolvera/App/AppDelegate.h"
#include "Tolvera/Views/LanguageNames.h"
#include "Tolvera/Views/Views.h"

#include <QCoreApplication>
#include <QQmlEngine>
#include <QTimer>

#include <gtest/gtest.h>

#include <functional>

namespace tolvera::test {

namespace {

using namespace std::chrono_literals;

// The program's life between its event loop's start and end, in virtual time.
class AppDelegateTests : public testing::Test {
 protected:
  AppDelegateTests() { Views::prepareEngine(engine_); }

  // Runs the event loop until the program ends, doing `act` first. Its status, and the time that went by.
  int run(const std::function<void()>& act) {
    QTimer::singleShot(0, act);
    QTimer steps;
    QObject::connect(&steps, &QTimer::timeout, [this] {
      model_.in().loop.advance(100ms);
      elapsed_ += 100ms;
      if (elapsed_ > 60s) QCoreApplication::exit(99);
    });
    steps.start(0);
    return QCoreApplication::exec();
  }

  InMemoryModel model_;
  QQmlEngine engine_;
  LanguageNames names_{model_.in().locale};
  AppDelegate delegate_{engine_, model_.app(), names_, model_.in().loop.executor()};
  std::chrono::milliseconds elapsed_ = 0ms;
};

TEST_F(AppDelegateTests, quitsAtOnceWithoutARun) {
  EXPECT_EQ(run([] { QCoreApplication::quit(); }), 0);
  EXPECT_LE(elapsed_, 200ms);
}

TEST_F(AppDelegateTests, QuitsAfterAFailedStart) {
  model_.app().beginStart(); // without a balance, so there is no session
  model_.settle();
  ASSERT_TRUE(model_.app().phase().is(Phase::Kind::failed));
  EXPECT_EQ(run([this] { delegate_.terminate(); }), 0);
  EXPECT_LE(elapsed_, 200ms);
}

TEST_F(AppDelegateTests, endsARunPolitelyBeforeItQuits) {
  model_.live();
  bool capturing = true;
  EXPECT_EQ(run([&] {
              delegate_.terminate();
              model_.settle();
              capturing = model_.in().audio.capturing();
            }),
            0);
  EXPECT_FALSE(capturing) << "capture stops at once";
  EXPECT_TRUE(model_.app().phase().is(Phase::Kind::idle));
  EXPECT_GE(elapsed_, 4s) << "the service has its time for last words";
  EXPECT_LE(elapsed_, 6s) << "and nothing is waited for after it";
}

TEST_F(AppDelegateTests, quitsWithoutAGoodbyeWhenAskedTwice) {
  model_.live();
  EXPECT_EQ(run([this] {
              delegate_.terminate();
              delegate_.terminate();
            }),
            0);
  EXPECT_LE(elapsed_, 200ms);
}

TEST_F(AppDelegateTests, keepsTheWindowToItselfOnceItQuits) {
  delegate_.openMainWindow();
  ASSERT_TRUE(delegate_.mainWindow()->isVisible());
  EXPECT_EQ(run([this] {
              QCoreApplication::quit();
              delegate_.openMainWindow();
            }),
            0);
  EXPECT_FALSE(delegate_.mainWindow()->isVisible());
}

TEST_F(AppDelegateTests, endsWhereItWasStartedFromATemporaryPlace) {
  auto& workspace = model_.in().workspace;
  auto& locale = model_.in().locale;
  std::vector<Alert> alerts;
  const auto launchAt = [&](const char* path, bool first) {
    delegate_.applicationDidFinishLaunching(path, locale, workspace, [&](const Alert& alert) {
      alerts.push_back(alert);
      return first;
    });
  };
  const char* const temporary = "/private/AppTranslocation/3F/d/Tolvera.app";
  launchAt("/usr/bin/tolvera", true);
  EXPECT_TRUE(alerts.empty());
  EXPECT_FALSE(delegate_.isTerminating());

  EXPECT_EQ(run([&] { launchAt(temporary, false); }), 0);
  EXPECT_TRUE(delegate_.isTerminating());
  EXPECT_TRUE(workspace.opened.empty());
  launchAt(temporary, true);
  EXPECT_EQ(workspace.opened, std::vector<std::string>{"/Applications"});

  // The language is the system's, whatever the setting says.
  model_.settings().setUILanguage(UILanguage::english);
  locale.languages = {"zh-Hans-CN", "en"};
  launchAt(temporary, false);
  locale.languages = {"fr"};
  locale.identifier = "zh_TW";
  launchAt(temporary, false);
  std::vector<QString> quit;
  for (const auto& alert : alerts) quit.push_back(alert.secondButton);
  EXPECT_EQ(quit, (std::vector<QString>{"Quit", "Quit", "退出", "退出"}));
  EXPECT_EQ(
      alerts[2].detail,
      "macOS "
      "正在只读的临时位置运行托维拉，这种状态下窗口无法显示。\n\n打开下载到的磁盘映像，把托维拉拖到旁边的"
      "「应用程序」文件夹，再从那里打开即可。");
}

TEST_F(AppDelegateTests, makesAClosedWindowAnewAtTheSizeThatItHad) {
  delegate_.openMainWindow();
  EXPECT_EQ(delegate_.mainWindow()->size(), QSize(660, 620));
  delegate_.mainWindow()->resize(900, 700);
  QCoreApplication::processEvents();
  delegate_.mainWindow()->close();
  EXPECT_EQ(delegate_.mainWindow(), nullptr);
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  delegate_.openMainWindow();
  EXPECT_EQ(delegate_.mainWindow()->size(), QSize(900, 700));
}

} // namespace
} // namespace tolvera::test
