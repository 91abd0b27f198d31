#include "Fakes/InMemoryModel.h"
#include "Tolvera/App/AppDelegate.h"
#include "Tolvera/App/QuickCaptionWindow.h"
#include "Tolvera/Views/LanguageNames.h"
#include "Tolvera/Views/Views.h"

#include <QCoreApplication>
#include <QQmlEngine>
#include <QQuickItem>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

#include <functional>

namespace tolvera::test {

namespace {

using namespace std::chrono_literals;

// The program's life between its event loop's start and end, in virtual time.
class AppDelegateRun : public testing::Test {
 protected:
  AppDelegateRun() { Views::prepareEngine(engine_); }

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

TEST_F(AppDelegateRun, EndsARunPolitely) {
  model_.live();
  const auto terminate = [&] {
    delegate_.terminate();
    model_.settle();
    EXPECT_FALSE(model_.in().audio.capturing()) << "capture stops at once";
  };
  EXPECT_EQ(run(terminate), 0);
  EXPECT_TRUE(model_.app().phase().is(Phase::Kind::idle));
  EXPECT_GE(elapsed_, 4s) << "the service has its time for last words";
  EXPECT_LE(elapsed_, 6s) << "the program waits for nothing after it";
}

TEST_F(AppDelegateRun, SkipsTheGoodbyeWhenAskedTwice) {
  model_.live();
  const auto twice = [this] {
    delegate_.terminate();
    delegate_.terminate();
  };
  EXPECT_EQ(run(twice), 0);
  EXPECT_LE(elapsed_, 200ms);
}

TEST_F(AppDelegateRun, OpensNoWindowOnceItQuits) {
  delegate_.openMainWindow();
  ASSERT_TRUE(delegate_.mainWindow()->isVisible());
  const auto quit = [this] {
    QCoreApplication::quit();
    delegate_.openMainWindow();
  };
  EXPECT_EQ(run(quit), 0);
  EXPECT_LE(elapsed_, 200ms) << "the program waits for nothing without a run";
  EXPECT_FALSE(delegate_.mainWindow()->isVisible());
}

TEST_F(AppDelegateRun, EndsALaunchFromATemporaryPlace) {
  auto& workspace = model_.in().workspace;
  auto& locale = model_.in().locale;
  auto& platform = model_.in().platform;
  std::vector<Alert> alerts;
  const auto launchAt = [&](const char* path, bool first) {
    delegate_.applicationDidFinishLaunching(path, platform, [&](const Alert& alert) {
      alerts.push_back(alert);
      return first;
    });
  };
  const char* const temporary = "/private/AppTranslocation/3F/d/Tolvera.app";
  launchAt(temporary, true);
  platform.desktopFamily = platform::DesktopFamily::macOS;
  launchAt("/Applications/Tolvera.app", true);
  EXPECT_TRUE(alerts.empty());
  EXPECT_EQ(run([&] { launchAt(temporary, false); }), 0);
  EXPECT_TRUE(workspace.opened.empty());
  launchAt(temporary, true);
  EXPECT_EQ(workspace.opened, std::vector<std::string>{"/Applications"});

  // The language is the system's; the setting does not count.
  model_.settings().setUILanguage(UILanguage::english);
  locale = adapters::IcuLocale("zh_Hans_CN");
  launchAt(temporary, false);
  locale = adapters::IcuLocale("zh_TW");
  launchAt(temporary, false);
  ASSERT_EQ(alerts.size(), 4u);
  EXPECT_EQ(alerts[1].secondButton, "Quit");
  EXPECT_EQ(alerts[2].secondButton, "退出");
  EXPECT_EQ(alerts[3].secondButton, "退出");
}

TEST_F(AppDelegateRun, ReopensAWindowAtItsFormerSize) {
  delegate_.openMainWindow();
  EXPECT_EQ(delegate_.mainWindow()->size(), QSize(660, 620));
  delegate_.mainWindow()->resize(700, 660);
  QCoreApplication::processEvents();
  delegate_.mainWindow()->close();
  EXPECT_EQ(delegate_.mainWindow(), nullptr);
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  delegate_.openMainWindow();
  EXPECT_EQ(delegate_.mainWindow()->size(), QSize(700, 660));
}

TEST_F(AppDelegateRun, PanelKnowsThePointerAtItsEdges) {
  QuickCaptionPanel panel(engine_, model_.app(), model_.in().userDefaults);
  panel.setPosition(200, 200);
  panel.show();
  for (const QPoint at :
       {QPoint(2, 60), QPoint(400, 3), QPoint(777, 129), QPoint(400, 60), QPoint(400, 129)}) {
    QTest::mouseMove(&panel, at);
    QCoreApplication::processEvents();
    EXPECT_TRUE(panel.rootObject()->property("hovering").toBool()) << at.x() << ", " << at.y();
  }
}

} // namespace
} // namespace tolvera::test
