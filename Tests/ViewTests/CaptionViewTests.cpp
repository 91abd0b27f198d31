#include "ViewTests/ViewFixture.h"

#include "Tolvera/Views/Parts/SelectableText.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QTest>

namespace tolvera {
namespace {

using test::ViewHost;

constexpr auto button = QAccessible::Button;

class CaptionViewTest : public test::ViewFixture {
 protected:
  ViewHost& open(QSize size = {780, 132}) { return ViewFixture::open(ViewHost::Kind::caption, size); }

  SelectableText& line(const QString& text) {
    auto* const found = qobject_cast<SelectableText*>(host_->find(QAccessible::StaticText, text));
    if (!found) throw std::runtime_error("no line reads " + text.toStdString());
    return *found;
  }
  void point(bool over) {
    host_->root().setProperty("hovering", over);
    host_->grab();
  }
};

const QString longText =
    "the first words are lost " + QString("and more and more words ").repeated(20) + "end";

TEST_F(CaptionViewTest, ShowsAnEmptyCardBetweenRuns) {
  model_.account(7200);
  auto& view = open();
  EXPECT_EQ(view.names(QAccessible::StaticText), QStringList{""}) << "the sentence under way is always there";
}

TEST_F(CaptionViewTest, ShowsStatusCaptionsAndWhatIsLeft) {
  model_.live();
  auto& view = open();
  EXPECT_TRUE(view.shows("Listening…"));
  model_.source("hello");
  model_.finish("Hola.");
  model_.translation("Buenos", " días");
  model_.balance(1799);
  view.settle();
  EXPECT_EQ(view.names(QAccessible::StaticText), (QStringList{"29m", "hello", "Hola.", "Buenos días"}));
  model_.balance(1800);
  model_.settings().setShowSource(false);
  view.settle();
  EXPECT_EQ(view.names(QAccessible::StaticText), (QStringList{"Hola.", "Buenos días"}));
}

TEST_F(CaptionViewTest, CutsEarlierTextAtItsHeadAndTheSentenceUnderWayAtItsEnd) {
  model_.live();
  open();
  model_.source(longText.toStdString());
  model_.finish(longText.toStdString());
  model_.translation(longText.toStdString(), " and a tail");
  host_->grab();
  int cutAtHead = 0;
  host_->forEachItem([&](QQuickItem& item) {
    auto* const text = qobject_cast<SelectableText*>(&item);
    if (!text || text->text() != longText) return;
    if (text->elidesHead()) {
      ++cutAtHead;
      EXPECT_EQ(text->lineCount(), 1);
      EXPECT_TRUE(text->shownText().startsWith("…")) << text->shownText().toStdString();
      EXPECT_TRUE(text->shownText().endsWith("end"));
    } else {
      EXPECT_EQ(text->lineCount(), 2);
      EXPECT_TRUE(text->shownText().startsWith("the first"));
      EXPECT_TRUE(text->shownText().endsWith("…"));
    }
  });
  EXPECT_EQ(cutAtHead, 2);
}

TEST_F(CaptionViewTest, AChangeOfTheSentenceUnderWayCostsOneLayoutAndMovesNothing) {
  model_.live();
  open();
  model_.finish("Hola.");
  model_.translation("Buenos", " días");
  host_->grab();
  auto& earlier = line("Hola.");
  auto& current = line("Buenos días");
  const auto earlierLayouts = earlier.layouts();
  const auto currentLayouts = current.layouts();
  const auto place = earlier.mapToScene(QPointF(0, 0));
  model_.translation("Buenos días a", " todos ustedes");
  host_->grab();
  EXPECT_EQ(current.layouts(), currentLayouts + 1);
  EXPECT_EQ(earlier.layouts(), earlierLayouts);
  EXPECT_EQ(earlier.mapToScene(QPointF(0, 0)), place);
  point(true);
  EXPECT_EQ(earlier.mapToScene(QPointF(0, 0)), place) << "the controls do not push the captions down";
}

TEST_F(CaptionViewTest, APanelTooLowForAllLosesTheOldestWords) {
  model_.live();
  for (const auto size : {QSize(780, 132), QSize(360, 72)}) {
    open(size);
    model_.source("spoken");
    model_.finish("Earlier.");
    model_.translation(longText.toStdString());
    host_->grab();
    const auto& current = line(longText);
    EXPECT_EQ(current.mapRectToScene(current.boundingRect()).bottom(), size.height() - 12);
    EXPECT_EQ(line("spoken").color().alpha(), 0) << "no half of it is seen";
    EXPECT_EQ(line("Earlier.").color().alpha() > 0, size.height() > 100);
  }
}

TEST_F(CaptionViewTest, ShowsItsControlsOnlyUnderThePointer) {
  model_.live();
  model_.balance(700);
  auto& view = open();
  const double atTheEdge = line("11m").mapToScene(QPointF(0, 0)).x();
  EXPECT_EQ(view.names(button), QStringList{});
  point(true);
  EXPECT_EQ(view.names(button), (QStringList{"Smaller text", "Larger text", "Stop translating"}));
  EXPECT_LT(line("11m").mapToScene(QPointF(0, 0)).x(), atTheEdge);
  model_.settings().setUILanguage(UILanguage::chinese);
  view.settle();
  EXPECT_EQ(view.names(button), (QStringList{"缩小字号", "放大字号", "停止翻译"}));
}

TEST_F(CaptionViewTest, ChangesTheFontSizeInStepsAndStops) {
  model_.live();
  auto& view = open();
  point(true);
  view.click(button, "Larger text");
  EXPECT_EQ(model_.settings().overlayFontSize(), 24);
  view.click(button, "Smaller text");
  view.click(button, "Smaller text");
  EXPECT_EQ(model_.settings().overlayFontSize(), 20);
  model_.translation("Hola");
  view.grab();
  EXPECT_EQ(line("Hola").font().pixelSize(), 20);
  view.click(button, "Stop translating");
  model_.in().loop.advance(std::chrono::seconds(10));
  EXPECT_EQ(model_.app().phase().kind(), Phase::Kind::idle);
}

TEST_F(CaptionViewTest, TextIsSelectedByThePointerAndCopied) {
  model_.live();
  auto& view = open();
  model_.translation("select me", " <b>please</b>");
  view.grab();
  auto& text = line("select me <b>please</b>");
  const auto left = text.mapToScene(QPointF(0, text.height() / 2)).toPoint();
  const auto right = text.mapToScene(QPointF(text.implicitWidth(), text.height() / 2)).toPoint();
  QTest::mousePress(&view.window(), Qt::LeftButton, {}, left + QPoint(1, 0));
  QTest::mouseMove(&view.window(), right);
  QTest::mouseRelease(&view.window(), Qt::LeftButton, {}, right);
  EXPECT_EQ(text.selectedText(), "select me <b>please</b>");
  text.copy();
  EXPECT_EQ(QGuiApplication::clipboard()->text(), "select me <b>please</b>");

  // What is said after the selection leaves it; what changes it takes it away.
  model_.translation("select me <b>please</b>", " now");
  view.grab();
  EXPECT_EQ(text.selectedText(), "select me <b>please</b>");
  model_.translation("something else");
  view.grab();
  EXPECT_EQ(text.selectedText(), "");
}

TEST_F(CaptionViewTest, APressBesideTheTextIsLeftToTheWindow) {
  model_.live();
  auto& view = open();
  model_.translation("short");
  view.grab();
  auto& text = line("short");
  const auto beside = text.mapToScene(QPointF(text.width() - 5, text.height() / 2)).toPoint();
  QMouseEvent press(QEvent::MouseButtonPress, beside, view.window().mapToGlobal(beside), Qt::LeftButton,
                    Qt::LeftButton, {});
  QCoreApplication::sendEvent(&view.window(), &press);
  EXPECT_FALSE(press.isAccepted());
  QTest::mouseRelease(&view.window(), Qt::LeftButton, {}, beside);
}

} // namespace
} // namespace tolvera
