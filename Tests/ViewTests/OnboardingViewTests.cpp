#include "ViewTests/ViewFixture.h"

#include "Tolvera/Views/AppLogo.h"
#include "Tolvera/Views/MenuBarIcon.h"

#include <QPainter>
#include <QTimer>

namespace tolvera {
namespace {

using test::ViewHost;

class OnboardingViewTest : public test::ViewFixture {
 protected:
  ViewHost& open() {
    model_.settings().setSeenOnboarding(false);
    auto& view = ViewFixture::open(ViewHost::Kind::onboarding);
    QObject::connect(&view.root(), SIGNAL(done()), &counter_, SLOT(start()));
    return view;
  }
  QTimer counter_; // runs once the view has said that it is done
};

TEST_F(OnboardingViewTest, SaysItAllInTheLanguageOfItsToggle) {
  auto& view = open();
  EXPECT_EQ(view.window().width(), 470);
  EXPECT_NE(view.find(QAccessible::Heading, "Tolvera is ready"), nullptr);
  EXPECT_TRUE(view.shows("2. Pick the language to translate into, then press start"));
  view.click(QAccessible::RadioButton, "中文");
  EXPECT_EQ(model_.settings().uiLanguage(), UILanguage::chinese);
  EXPECT_NE(view.find(QAccessible::Heading, "托维拉已经装好了"), nullptr);
  EXPECT_TRUE(view.shows("托维拉只在你按下开始之后才采集声音，不录制、不保存。"));
  EXPECT_EQ(view.faults(), QStringList{});
}

TEST_F(OnboardingViewTest, MarksNoLanguageWhileTheSystemDecides) {
  model_.settings().setUILanguage(UILanguage::system);
  auto& view = open();
  EXPECT_EQ(view.valueOf(QAccessible::RadioButton, "中文"), "off");
  EXPECT_EQ(view.valueOf(QAccessible::RadioButton, "EN"), "off");
}

TEST_F(OnboardingViewTest, TheButtonAndTheReturnKeyFinish) {
  for (const bool byKey : {false, true}) {
    auto& view = open();
    counter_.stop();
    if (byKey) {
      view.press(Qt::Key_Return);
    } else {
      view.click(QAccessible::Button, "Got it");
    }
    EXPECT_TRUE(model_.settings().seenOnboarding());
    EXPECT_TRUE(counter_.isActive());
  }
}

TEST(MenuBarIconTest, HasAHoleOnlyWhileNoRunIsActive) {
  const auto alpha = [](bool running, QPoint point) {
    QImage image(MenuBarIcon::size * 4, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.scale(4, 4);
    MenuBarIcon::draw(painter, running);
    return qAlpha(image.pixel(point));
  };
  // The hole's middle is at (11.9, 8.3) from the lower left.
  const QPoint hole(48, 31);
  EXPECT_EQ(alpha(true, hole), 255);
  EXPECT_EQ(alpha(false, hole), 0);
  EXPECT_EQ(alpha(false, {40, 44}), 255) << "the bubble";
  EXPECT_EQ(alpha(false, {2, 2}), 0) << "the ground";
}

TEST(AppIconTest, FillsItsSquareAndLeavesItsCorners) {
  const auto icon = AppIcon::image(256);
  EXPECT_EQ(icon.size(), QSize(256, 256));
  EXPECT_EQ(qAlpha(icon.pixel(0, 0)), 0);
  EXPECT_EQ(qAlpha(icon.pixel(128, 12)), 255);
}

} // namespace
} // namespace tolvera
