#include "Fakes/InMemoryModel.h"
#include "Tolvera/App/MenuBarExtra.h"
#include "Tolvera/App/MenuBarView.h"

#include <QStringList>

#include <gtest/gtest.h>

namespace tolvera::test {

namespace {

// The items that are not dividers, as a reader sees them; one that cannot be chosen is in parentheses.
QStringList items(const QMenu& menu) {
  QStringList texts;
  for (const auto* action : menu.actions()) {
    if (action->isSeparator()) continue;
    texts.append(action->isEnabled() ? action->text() : QStringLiteral("(%1)").arg(action->text()));
  }
  return texts;
}

struct OpenMenu {
  InMemoryModel model;
  int opened = 0;
  MenuBarView menu{model.app(), [this] { ++opened; }};

  QAction& item(int index) {
    int seen = 0;
    for (auto* action : menu.actions()) {
      if (!action->isSeparator() && seen++ == index) return *action;
    }
    throw std::out_of_range("no such item");
  }
};

TEST(MenuBarView, saysWhatIsGoingOnInEveryPhase) {
  const auto line = [](bool zh, Phase phase) {
    return MenuBarRules::statusLine(Strings{.zh = zh}, phase, QStringLiteral("42"));
  };
  using Kind = Phase::Kind;
  EXPECT_EQ(line(false, Phase()), "Tolvera · Time left 42");
  EXPECT_EQ(line(true, Phase()), "托维拉 · 剩余时长 42");
  EXPECT_EQ(line(false, Phase(Kind::starting)), "Connecting…");
  EXPECT_EQ(line(false, Phase(Kind::connecting)), "Connecting…");
  EXPECT_EQ(line(true, Phase(Kind::connecting)), "正在连接…");
  EXPECT_EQ(line(false, Phase(Kind::live)), "Translating · 42");
  EXPECT_EQ(line(true, Phase(Kind::live)), "正在翻译 · 42");
  EXPECT_EQ(line(false, Phase(Kind::reconnecting)), "Reconnecting…");
  EXPECT_EQ(line(true, Phase(Kind::reconnecting)), "网络波动，重新连接中…");
  EXPECT_EQ(line(false, Phase::failed("No luck")), "No luck");
}

TEST(MenuBarView, offersStartOrStopWhereItCanBeDone) {
  using Kind = Phase::Kind;
  EXPECT_TRUE(MenuBarRules::startEnabled(Phase(), 1));
  EXPECT_FALSE(MenuBarRules::startEnabled(Phase(), 0));
  EXPECT_FALSE(MenuBarRules::startEnabled(Phase(Kind::starting), 100));
  EXPECT_TRUE(MenuBarRules::startEnabled(Phase(Kind::live), 0)) << "a run that has used up its balance";
  EXPECT_TRUE(MenuBarRules::startEnabled(Phase(Kind::reconnecting), 0));
  EXPECT_TRUE(MenuBarRules::startEnabled(Phase::failed("Ampersand"), 5));
  EXPECT_EQ(MenuBarRules::startTitle({}, Phase(Kind::starting)), "Stop");
  EXPECT_EQ(MenuBarRules::startTitle({}, Phase::failed("Ampersand")), "Start translating");
}

TEST(MenuBarView, followsTheRunTheBalanceAndTheLanguage) {
  OpenMenu open;
  EXPECT_EQ(items(open.menu), QStringList({"(Tolvera · Time left under a minute)", "(Start translating)",
                                           "Open Tolvera", "Settings", "Quit Tolvera"}));
  open.model.live();
  open.model.balance(0);
  EXPECT_EQ(items(open.menu), QStringList({"(Translating · under a minute)", "Stop", "Open Tolvera",
                                           "Settings", "Quit Tolvera"}));
  open.model.settings().setUILanguage(UILanguage::chinese);
  EXPECT_EQ(items(open.menu),
            QStringList({"(正在翻译 · 不到 1 分钟)", "停止", "打开托维拉", "设置", "退出托维拉"}));
}

TEST(MenuBarView, startsAndStopsTheRunAsItIsAtTheClick) {
  OpenMenu open;
  open.model.account(3600);
  open.item(1).trigger();
  open.model.settle();
  EXPECT_TRUE(open.model.app().phase().isActive());
  open.item(1).trigger();
  open.model.in().loop.advance(std::chrono::seconds(10));
  EXPECT_TRUE(open.model.app().phase().is(Phase::Kind::idle));
}

TEST(MenuBarView, opensTheWindowOnTheTabThatWasAskedFor) {
  OpenMenu open;
  open.item(3).trigger();
  EXPECT_EQ(open.model.app().tab(), AppState::Tab::settings);
  open.item(2).trigger();
  EXPECT_EQ(open.model.app().tab(), AppState::Tab::translate);
  EXPECT_EQ(open.opened, 2);
}

TEST(MenuBarView, showsAFailureLetterByLetter) {
  OpenMenu open;
  open.model.live();
  open.model.fail("R&D & more");
  EXPECT_EQ(open.item(0).text(), "R&&D && more") << "an ampersand alone would mark a key";
}

TEST(MenuBarExtra, drawsTheHoleOfTheBubbleOnlyWhileNoRunIsOn) {
  const auto ink = [](bool running, const QColor& color, QPointF point) {
    const auto image = MenuBarExtra::icon(running, color).pixmap(36, 36).toImage();
    // The figure is 18 by 16 points from the lower left, in the middle of a square of 18 points.
    return image.pixelColor(static_cast<int>(point.x() * 2), static_cast<int>((17 - point.y()) * 2));
  };
  const QPointF hole(11.9, 8.3);
  const QPointF body(9, 5);
  EXPECT_EQ(ink(false, Qt::black, hole).alpha(), 0);
  EXPECT_EQ(ink(true, Qt::black, hole), QColor(Qt::black));
  EXPECT_EQ(ink(false, Qt::white, body), QColor(Qt::white));
}

} // namespace
} // namespace tolvera::test
