#include "Support/InMemoryModel.h"
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
