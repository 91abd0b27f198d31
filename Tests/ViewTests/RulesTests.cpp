#include "Platform/Linux/Desktop/IcuLocale.h"
#include "Tolvera/Views/CaptionView.h"
#include "Tolvera/Views/LanguageNames.h"
#include "Tolvera/Views/MainView.h"

#include <gtest/gtest.h>

namespace tolvera {
namespace {

const Strings chinese{.zh = true};
const Strings english{.zh = false};

QVariantMap pack(double hours, qlonglong cents, qlonglong fen) {
  return {{"hours", hours}, {"cents", cents}, {"fen", fen}};
}

TEST(PackLabel, DropsFractionsOfHoursAndYuanAndKeepsCents) {
  EXPECT_EQ(MainViewRules::packLabel(chinese, pack(1.5, 1999, 1999)), "1 小时 · ¥19");
  EXPECT_EQ(MainViewRules::packLabel(english, pack(1.5, 1999, 1999)), "1h · $19.99");
  EXPECT_EQ(MainViewRules::packLabel(english, pack(100, 9900, 0)), "100h · $99.00");
  EXPECT_EQ(MainViewRules::packLabel(english, pack(10, 5, 0)), "10h · $0.05");
}

TEST(StartButton, NeedsABalanceAboveZero) {
  EXPECT_TRUE(MainViewRules::hasTime(0.1));
  EXPECT_FALSE(MainViewRules::hasTime(0));
  EXPECT_FALSE(MainViewRules::hasTime(-3));
  EXPECT_EQ(MainViewRules::buttonTitle(english, 0), "Out of time");
  EXPECT_EQ(MainViewRules::buttonTitle(chinese, 0), "时长已用完");
  EXPECT_EQ(MainViewRules::buttonTitle(english, 1), "Start translating");
}

TEST(BalanceInTheMainWindow, WarnsBelowFiveMinutes) {
  EXPECT_FALSE(MainViewRules::runsLow(300));
  EXPECT_TRUE(MainViewRules::runsLow(299));
}

TEST(StatusText, NamesEveryPhaseAndGivesAFailureUnchanged) {
  const auto text = [](Phase phase) { return MainViewRules::statusText(english, phase); };
  EXPECT_EQ(text(Phase(Phase::Kind::idle)), "Not running");
  EXPECT_EQ(text(Phase(Phase::Kind::starting)), "Starting…");
  EXPECT_EQ(text(Phase(Phase::Kind::connecting)), "Connecting…");
  EXPECT_EQ(text(Phase(Phase::Kind::live)), "Translating");
  EXPECT_EQ(text(Phase(Phase::Kind::reconnecting)), "Reconnecting…");
  EXPECT_EQ(text(Phase::failed("Oh <b>no</b>")), "Oh <b>no</b>");
  EXPECT_EQ(MainViewRules::statusText(chinese, Phase(Phase::Kind::starting)), "正在启动…");
}

TEST(SystemSettings, AreOfferedForWhatTheMessageSaysOfTheMicrophone) {
  EXPECT_TRUE(MainViewRules::offersSystemSettings("没有麦克风权限。"));
  EXPECT_TRUE(MainViewRules::offersSystemSettings("No Microphone permission"));
  EXPECT_FALSE(MainViewRules::offersSystemSettings("No permission to record system audio"));
}

TEST(DirectionText, NamesBothLanguagesAndLeavesAnUnknownCodeBare) {
  const adapters::IcuLocale locale("en_US");
  const LanguageNames names(locale);
  EXPECT_EQ(names.directionText("auto", "es", english), "Detect automatically → Spanish");
  EXPECT_EQ(names.directionText("auto", "es", chinese), "自动识别 → 西班牙语");
  EXPECT_EQ(names.directionText("tlh", "en", english), "tlh → English");
}

TEST(LanguageLists, FollowTheInterfaceLanguageAndPutTheAutomaticSourceFirst) {
  const adapters::IcuLocale locale("en_US");
  const LanguageNames names(locale);
  EXPECT_EQ(names.sorted(english).size(), 60);
  const auto sources = names.sources(chinese);
  EXPECT_EQ(sources.size(), 61);
  EXPECT_EQ(sources.first().toMap().value("value"), "auto");
  EXPECT_EQ(sources.first().toMap().value("text"), "自动识别");
  EXPECT_EQ(names.voices(english).size(), 8);
  EXPECT_NE(names.voices(english), names.voices(chinese));
}

TEST(CaptionBalance, ChangesItsColourAndWeightAtTheLimits) {
  const auto white = QColor::fromRgbF(1, 1, 1, 0.7F);
  const auto amber = QColor::fromRgbF(1, 0.75F, 0.47F);
  const auto red = QColor::fromRgbF(1, 0.7F, 0.66F);
  EXPECT_FALSE(CaptionViewRules::showsBalance(1800));
  EXPECT_TRUE(CaptionViewRules::showsBalance(1799));
  EXPECT_EQ(CaptionViewRules::balanceColor(1799), white);
  EXPECT_EQ(CaptionViewRules::balanceColor(600), white);
  EXPECT_EQ(CaptionViewRules::balanceColor(599), amber);
  EXPECT_EQ(CaptionViewRules::balanceColor(120), amber);
  EXPECT_EQ(CaptionViewRules::balanceColor(119), red);
  EXPECT_FALSE(CaptionViewRules::emphasizesBalance(120));
  EXPECT_TRUE(CaptionViewRules::emphasizesBalance(119));
}

TEST(CaptionFontSize, StepsWithinItsLimitsAndComesBackIntoThem) {
  EXPECT_EQ(CaptionViewRules::adjustedFontSize(47, 2), 48);
  EXPECT_EQ(CaptionViewRules::adjustedFontSize(48, 2), 48);
  EXPECT_EQ(CaptionViewRules::adjustedFontSize(15, -2), 14);
  EXPECT_EQ(CaptionViewRules::adjustedFontSize(14, -2), 14);
  EXPECT_EQ(CaptionViewRules::adjustedFontSize(90, 2), 48);
  EXPECT_EQ(CaptionViewRules::adjustedFontSize(3, -2), 14);
}

} // namespace
} // namespace tolvera
