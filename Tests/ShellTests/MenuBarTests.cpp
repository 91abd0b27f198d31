#include "Fakes/InMemoryModel.h"
#include "Tolvera/App/MenuBarExtra.h"
#include "Tolvera/App/MenuBarView.h"

#include <QStringList>

#include <gtest/gtest.h>

#include <tuple>

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
  MenuBarView menu{model.app(), [] {}};

  QAction& item(int index) {
    int seen = 0;
    for (auto* action : menu.actions()) {
      if (!action->isSeparator() && seen++ == index) return *action;
    }
    throw std::out_of_range("no such item");
  }
};

TEST(MenuBarView, TellsThePhase) {
  using Kind = Phase::Kind;
  const std::tuple<Phase, QString, QString> table[] = {
      {Phase(), "Tolvera · Time left 42", "托维拉 · 剩余时长 42"},
      {Phase(Kind::starting), "Connecting…", "正在连接…"},
      {Phase(Kind::connecting), "Connecting…", "正在连接…"},
      {Phase(Kind::live), "Translating · 42", "正在翻译 · 42"},
      {Phase(Kind::reconnecting), "Reconnecting…", "网络波动，重新连接中…"},
      {Phase::failed("No luck"), "No luck", "No luck"},
  };
  for (const auto& [phase, english, chinese] : table) {
    EXPECT_EQ(MenuBarRules::statusLine(Strings{.zh = false}, phase, "42"), english);
    EXPECT_EQ(MenuBarRules::statusLine(Strings{.zh = true}, phase, "42"), chinese);
  }
}

TEST(MenuBarView, OffersStartWhereItCanBeDone) {
  using Kind = Phase::Kind;
  const std::tuple<Phase, double, bool, QString> table[] = {
      {Phase(), 1, true, "Start translating"},
      {Phase(), 0, false, "Start translating"},
      {Phase(Kind::starting), 100, false, "Stop"},
      {Phase(Kind::live), 0, true, "Stop"}, // a run that has used up its balance
      {Phase(Kind::reconnecting), 0, true, "Stop"},
      {Phase::failed("Ampersand"), 5, true, "Start translating"},
  };
  for (const auto& [phase, seconds, enabled, title] : table) {
    EXPECT_EQ(MenuBarRules::startEnabled(phase, seconds), enabled) << title.toStdString() << seconds;
    EXPECT_EQ(MenuBarRules::startTitle({}, phase), title);
  }
}

TEST(MenuBarView, FollowsTheModel) {
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

TEST(MenuBarView, TogglesTheRun) {
  OpenMenu open;
  open.model.account(3600);
  open.item(1).trigger();
  open.model.settle();
  EXPECT_TRUE(open.model.app().phase().isActive());
  open.item(1).trigger();
  open.model.in().loop.advance(std::chrono::seconds(10));
  EXPECT_TRUE(open.model.app().phase().is(Phase::Kind::idle));
}

TEST(MenuBarView, ShowsAFailureLetterByLetter) {
  OpenMenu open;
  open.model.live();
  open.model.fail("R&D & more");
  EXPECT_EQ(open.item(0).text(), "R&&D && more") << "an ampersand alone would mark a key";
}

TEST(MenuBarView, StatusIsRead) {
  // The faintest grey that is read well is #767676 on white and #747474 on black.
  EXPECT_LE(MenuBarRules::faintText(Qt::black, Qt::white).lightness(), 0x76);
  EXPECT_GE(MenuBarRules::faintText(Qt::white, Qt::black).lightness(), 0x74);
  OpenMenu open;
  const auto colors = open.menu.palette();
  EXPECT_EQ(colors.color(QPalette::Disabled, QPalette::Text),
            MenuBarRules::faintText(colors.color(QPalette::WindowText), colors.color(QPalette::Window)));
}

TEST(MenuBarExtra, DrawsAHoleWithoutARun) {
  const auto ink = [](bool running, MenuBarExtra::Colors colors, QPointF point) {
    const auto image = MenuBarExtra::icon(running, colors).pixmap(36, 36).toImage();
    // The figure is 18 by 16 points from the lower left, in the middle of a square of 18 points.
    return image.pixelColor(static_cast<int>(point.x() * 2), static_cast<int>((17 - point.y()) * 2));
  };
  const QPointF hole(11.9, 8.3);
  const QPointF body(9, 5);
  EXPECT_EQ(ink(false, {Qt::black, {}}, hole).alpha(), 0);
  EXPECT_EQ(ink(true, {Qt::black, {}}, hole), QColor(Qt::black));
  EXPECT_EQ(ink(false, {Qt::white, {}}, body), QColor(Qt::white));
  EXPECT_EQ(ink(false, {Qt::black, Qt::white}, hole), QColor(Qt::white));
  const QPointF beside(11, 2.1); // below the figure, in its outline
  EXPECT_EQ(ink(false, {Qt::black, {}}, beside).alpha(), 0);
  EXPECT_GT(ink(false, {Qt::black, Qt::white}, beside).lightness(), 200);
}

} // namespace
} // namespace tolvera::test
