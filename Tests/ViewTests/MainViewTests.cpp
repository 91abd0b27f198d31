#include "ViewTests/Offscreen.h"
#include "ViewTests/ViewFixture.h"

#include <QColor>
#include <QQmlComponent>
#include <QQmlEngine>

#include <algorithm>
#include <cmath>

namespace tolvera {
namespace {

using test::ViewHost;
using testing::ElementsAre;

constexpr auto button = QAccessible::Button;
constexpr auto picker = QAccessible::ComboBox;
constexpr auto check = QAccessible::CheckBox;
constexpr auto radio = QAccessible::RadioButton;

class MainViewTest : public test::ViewFixture {
 protected:
  ViewHost& open(QSize size = {660, 620}) { return ViewFixture::open(ViewHost::Kind::main, size); }
};

TEST_F(MainViewTest, AsksForTheAccountWhenItFirstAppears) {
  auto& view = open();
  EXPECT_EQ(model_.in().network.requestCount("/api/me"), 1U);
  EXPECT_TRUE(view.shows("1h 0m"));
}

TEST_F(MainViewTest, ShowsTheFormOfTheMicrophone) {
  auto& view = open({660, 900});
  EXPECT_EQ(view.names(picker), (QStringList{"From", "To"}));
  EXPECT_EQ(view.valueOf(picker, "From"), "Detect automatically");
  EXPECT_EQ(view.valueOf(picker, "To"), "Spanish");
  EXPECT_EQ(view.valueOf(radio, "Ambient sound"), "on");
  EXPECT_EQ(view.valueOf(radio, "System audio"), "off");
  EXPECT_TRUE(view.shows("Microphone, for talking face to face. Wear headphones"));
  EXPECT_FALSE(view.isEnabled(button, "Swap direction")) << "an automatic source has no other direction";
  EXPECT_TRUE(view.isEnabled(button, "Start translating"));
}

TEST_F(MainViewTest, ComingBackFromTheMicrophoneLandsOnAllSound) {
  model_.settings().captureApp("org.example.player", "Player");
  auto& view = open();
  EXPECT_EQ(view.valueOf(picker, "Choose an app"), "") << "the chosen application is not there";
  EXPECT_EQ(view.find(button, "Swap direction"), nullptr);
  view.click(radio, "Ambient sound");
  EXPECT_EQ(model_.settings().captureMode(), CaptureMode::microphone());
  view.click(radio, "System audio");
  EXPECT_EQ(model_.settings().captureMode(), CaptureMode::systemEverything());
  EXPECT_EQ(view.valueOf(picker, "Choose an app"), "Everything");
}

TEST_F(MainViewTest, OffersTheApplicationsThatMakeSoundAndMarksThoseThatPlay) {
  model_.settings().captureEverything();
  model_.addApp("org.example.browser", "Browser");
  model_.addApp("org.example.player", "Player", true);
  auto& view = open();
  view.click(picker, "Choose an app");
  view.grab(); // a list makes what it shows
  auto offered = view.names(QAccessible::ListItem);
  offered.sort();
  EXPECT_EQ(offered, (QStringList{"Browser", "Everything", "♪ Player"}));
  view.click(QAccessible::ListItem, "♪ Player");
  EXPECT_EQ(model_.settings().captureMode(), CaptureMode::systemApp("org.example.player", "Player"));
  EXPECT_EQ(view.valueOf(picker, "Choose an app"), "♪ Player");

  model_.addApp("org.example.game", "Game");
  view.click(button, "Refresh");
  view.click(picker, "Choose an app");
  view.grab(); // a list makes what it shows
  EXPECT_EQ(view.names(QAccessible::ListItem).size(), 4);
  view.type("e"); // the next that begins with it
  view.press(Qt::Key_Return);
  EXPECT_EQ(model_.settings().captureMode(), CaptureMode::systemEverything());
}

TEST_F(MainViewTest, SpeakingFromTheMicrophoneTellsWhatTheOutputMeans) {
  model_.settings().setDub(true);
  model_.playThroughSpeaker(true);
  auto& view = open({660, 1000});
  const auto speaker =
      "No headphones detected. The microphone pauses while the translation is spoken, so it "
      "doesn't pick up its own output. Speech during that moment is missed. With headphones it "
      "never pauses.";
  const auto headphones = "Headphones detected, so the microphone keeps listening while speaking.";
  EXPECT_TRUE(view.shows(speaker));
  model_.playThroughSpeaker(false);
  view.settle();
  EXPECT_TRUE(view.shows(headphones));
  model_.settings().captureEverything();
  view.settle();
  EXPECT_FALSE(view.shows(headphones));
  model_.settings().captureMicrophone();
  model_.settings().setDub(false);
  view.settle();
  EXPECT_FALSE(view.shows(headphones));
}

TEST_F(MainViewTest, SwapsTheDirectionOfTheMicrophone) {
  model_.settings().setSource("en");
  auto& view = open();
  view.click(button, "Swap direction");
  EXPECT_EQ(view.valueOf(picker, "From"), "Spanish");
  EXPECT_EQ(view.valueOf(picker, "To"), "English");
}

TEST_F(MainViewTest, ATargetWithoutSpokenOutputTurnsSpeakingOffForGood) {
  model_.settings().setDub(true);
  auto& view = open({660, 900});
  EXPECT_EQ(view.valueOf(picker, "Voice"), "Tina (female)");
  EXPECT_TRUE(view.shows("Uses credit 4× faster"));
  view.click(picker, "To");
  view.type("cantonese");
  view.press(Qt::Key_Return);
  EXPECT_EQ(model_.settings().target(), "yue");
  EXPECT_FALSE(model_.settings().dub());
  EXPECT_FALSE(view.isEnabled(check, "Speak the translation"));
  EXPECT_TRUE(view.shows("This language has no spoken output"));
  EXPECT_EQ(view.find(picker, "Voice"), nullptr);
  model_.settings().setTarget("es");
  view.settle();
  EXPECT_TRUE(view.isEnabled(check, "Speak the translation"));
  EXPECT_EQ(view.valueOf(check, "Speak the translation"), "off");
}

TEST_F(MainViewTest, SpeakingShowsTheOriginalAsWell) {
  model_.settings().setShowSource(false);
  auto& view = open({660, 900});
  view.click(check, "Speak the translation");
  EXPECT_EQ(view.valueOf(check, "Speak the translation"), "on");
  EXPECT_EQ(view.valueOf(check, "Show the original too"), "on");
  view.click(check, "Show the original too");
  EXPECT_EQ(view.valueOf(check, "Show the original too"), "off");
}

TEST_F(MainViewTest, WithoutABalanceTheFormIsUsableAndTheButtonIsNot) {
  model_.account(0);
  auto& view = open();
  EXPECT_FALSE(view.isEnabled(button, "Out of time"));
  EXPECT_TRUE(view.isEnabled(picker, "To"));
  EXPECT_TRUE(view.isEnabled(button, "Buy more"));
}

TEST_F(MainViewTest, StartTurnsTheTabToTheRunAtOnce) {
  auto& view = open();
  view.click(button, "Start translating");
  EXPECT_EQ(view.find(picker, "To"), nullptr);
  EXPECT_TRUE(view.shows("Listening. Captions appear here once there is speech."));
  EXPECT_TRUE(view.shows("Detect automatically → Spanish"));
  view.click(button, "Stop");
  model_.in().loop.advance(std::chrono::seconds(10));
  view.settle();
  EXPECT_NE(view.find(picker, "To"), nullptr);
}

TEST_F(MainViewTest, AFailureWithoutCaptionsIsToldAboveTheButton) {
  model_.live();
  auto& view = open();
  model_.fail("The microphone is broken");
  view.settle();
  EXPECT_NE(view.find(QAccessible::AlertMessage, "The microphone is broken"), nullptr);
  view.click(button, "Open System Settings");
  EXPECT_THAT(model_.in().workspace.opened, ElementsAre("microphone settings"));
  EXPECT_TRUE(view.isEnabled(button, "Start translating"));
}

TEST_F(MainViewTest, AFailureWithCaptionsKeepsThemUntilStop) {
  model_.live();
  auto& view = open();
  model_.translation("Hola", " a todos");
  model_.fail("<b>broken</b>");
  view.settle();
  EXPECT_TRUE(view.shows("Hola a todos"));
  EXPECT_NE(view.find(QAccessible::StatusBar, "<b>broken</b>"), nullptr) << "markup is plain text";
  view.click(button, "Stop");
  model_.in().loop.advance(std::chrono::seconds(10));
  view.settle();
  EXPECT_NE(view.find(button, "Start translating"), nullptr);
}

TEST_F(MainViewTest, TheTranscriptFollowsTheCaptions) {
  model_.live();
  auto& view = open();
  model_.source("hello");
  model_.finish("Hola.");
  model_.translation("Buenos", " días");
  view.settle();
  EXPECT_TRUE(view.shows("hello"));
  EXPECT_TRUE(view.shows("Hola."));
  EXPECT_TRUE(view.shows("Buenos días"));
  model_.settings().setShowSource(false);
  view.settle();
  EXPECT_FALSE(view.shows("hello"));
}

TEST_F(MainViewTest, TheBuyMenuListsThePacksAndTheSignInOfWhoHasNotSignedIn) {
  auto& view = open();
  model_.in().network.reply("/api/checkout", 200,
                            R"({"url":"https://pay.example/1","orderId":"o","signIn":false})");
  view.click(button, "Buy more");
  EXPECT_EQ(view.names(QAccessible::MenuItem),
            (QStringList{"1h · $1.99", "10h · $12.99", "100h · $99.00", "Sign in with Alipay"}));
  view.click(QAccessible::MenuItem, "10h · $12.99");
  EXPECT_THAT(model_.in().workspace.opened, ElementsAre("https://pay.example/1"));

  model_.account(3600, true, "[]");
  view.click(button, "Buy more");
  EXPECT_EQ(view.names(QAccessible::MenuItem), QStringList{});
}

TEST_F(MainViewTest, EveryTextFollowsTheInterfaceLanguage) {
  auto& view = open({660, 900});
  model_.settings().setUILanguage(UILanguage::chinese);
  view.settle();
  EXPECT_TRUE(view.isEnabled(button, "开始翻译"));
  EXPECT_TRUE(view.shows("1 小时 0 分"));
  EXPECT_EQ(view.names(picker), (QStringList{"源语言", "译成"}));
  EXPECT_EQ(view.names(check), (QStringList{"同时显示原文", "朗读译文"}));
  view.forEachItem([](QQuickItem& item) {
    const auto text = item.property("text").toString();
    EXPECT_FALSE(text.contains("Translate") || text.contains("Time left")) << text.toStdString();
  });
}

TEST_F(MainViewTest, TheSettingsAreReachableDuringARun) {
  model_.live();
  auto& view = open();
  view.click(radio, "Settings");
  EXPECT_EQ(model_.app().tab(), AppState::Tab::settings);
  EXPECT_NE(view.find(check, "Show in menu bar"), nullptr);
  view.click(radio, "Translate");
  EXPECT_NE(view.find(button, "Stop"), nullptr);
}

TEST_F(MainViewTest, EveryControlIsReachedByTheKeyboardInReadingOrder) {
  model_.settings().setSource("en");
  auto& view = open({660, 900});
  QStringList order;
  for (int step = 0; step < 11; ++step) {
    view.press(Qt::Key_Tab);
    if (order.contains(view.focused())) break;
    order.append(view.focused());
  }
  EXPECT_EQ(order,
            (QStringList{"Translate", "Ambient sound", "From", "To", "Swap direction",
                         "Show the original too", "Speak the translation", "Start translating", "Buy more"}));
}

TEST_F(MainViewTest, TheKeyboardAloneChoosesAndStarts) {
  auto& view = open({660, 900});
  view.press(Qt::Key_Tab); // the tabs
  view.press(Qt::Key_Tab); // the source of sound
  view.press(Qt::Key_Left);
  EXPECT_EQ(model_.settings().captureMode(), CaptureMode::systemEverything());
  view.press(Qt::Key_Right);
  EXPECT_EQ(model_.settings().captureMode(), CaptureMode::microphone());
  view.press(Qt::Key_Tab);
  view.press(Qt::Key_Tab); // the target
  EXPECT_EQ(view.focused(), "To");
  view.press(Qt::Key_Space);
  view.type("japan");
  view.press(Qt::Key_Return);
  EXPECT_EQ(model_.settings().target(), "ja");
  EXPECT_EQ(view.focused(), "To") << "the picker has the focus back";
  view.press(Qt::Key_Tab);
  view.press(Qt::Key_Space);
  EXPECT_EQ(view.valueOf(check, "Show the original too"), "off");
  view.press(Qt::Key_Tab);
  view.press(Qt::Key_Tab);
  view.press(Qt::Key_Return);
  EXPECT_TRUE(model_.app().phase().isActive());
}

// As the web's accessibility guidelines define it, from 1 to 21.
double contrast(const QColor& one, const QColor& other) {
  const auto luminance = [](const QColor& color) {
    const auto linear = [](double part) {
      return part <= 0.04045 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) + 0.0722 * linear(color.blueF());
  };
  const auto [darker, lighter] = std::minmax(luminance(one), luminance(other));
  return (lighter + 0.05) / (darker + 0.05);
}

TEST_F(MainViewTest, TextIsReadableOnItsGroundInBothSchemes) {
  auto& view = open();
  QQmlComponent component(view.window().engine());
  component.setData("import QtQml\nimport Tolvera.Views\nQtObject { property QtObject theme: Theme }", {});
  const std::unique_ptr<QObject> holder(component.create());
  ASSERT_NE(holder, nullptr);
  const auto* const theme = holder->property("theme").value<QObject*>();
  ASSERT_NE(theme, nullptr);
  for (const bool dark : {false, true}) {
    test::Offscreen::setDark(dark);
    view.settle();
    ASSERT_EQ(theme->property("dark").toBool(), dark) << "the scheme is followed live";
    const auto color = [theme](const char* name) { return theme->property(name).value<QColor>(); };
    for (const char* text : {"primary", "secondary", "tertiary", "failure"}) {
      for (const char* ground : {"window", "card", "bar", "popup"}) {
        EXPECT_GE(contrast(color(text), color(ground)), 4.5)
            << text << " on " << ground << ", dark: " << dark;
      }
    }
    EXPECT_GE(contrast(Qt::white, color("accent")), 4.5);
    EXPECT_GE(contrast(color("primary"), color("knob")), 4.5);
  }
  test::Offscreen::setDark(false);
}

TEST_F(MainViewTest, NothingIsCutOffInTheSmallestWindow) {
  model_.settings().setDub(true);
  model_.account(7500);
  auto& view = open({520, 568});
  for (const auto language : {UILanguage::english, UILanguage::chinese}) {
    model_.settings().setUILanguage(language);
    for (const auto tab : {AppState::Tab::translate, AppState::Tab::settings}) {
      model_.app().setTab(tab);
      view.settle();
      EXPECT_EQ(view.faults(), QStringList{});
    }
  }
  model_.live();
  view.settle();
  EXPECT_EQ(view.faults(), QStringList{});
}

} // namespace
} // namespace tolvera
