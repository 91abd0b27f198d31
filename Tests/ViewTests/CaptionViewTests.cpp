#include "Tolvera/Views/CaptionView.h"
#include "Tolvera/Views/MainView.h"
#include "Tolvera/Views/Parts/SelectableText.h"
#include "Tolvera/Views/Views.h"
#include "ViewTests/ViewHost.h"

#include <QClipboard>
#include <QRegularExpression>
#include <QTest>

#include <gtest/gtest.h>

namespace tolvera {
namespace {

class CaptionView : public testing::Test {
 protected:
  test::ViewHost& open(QSize size = {780, 132}, const char* view = Views::captionView) {
    model_.live();
    return host_.emplace(model_, locale_, view, size);
  }
  SelectableText& line(const QString& text) {
    SelectableText* found = nullptr;
    host_->forEachItem([&](QQuickItem& item) {
      auto* const line = qobject_cast<SelectableText*>(&item);
      if (line && line->text() + line->tail() == text) found = line;
    });
    if (!found) throw std::runtime_error("no line reads " + text.toStdString());
    return *found;
  }
  QPointF place(const QString& text) { return line(text).mapToScene(QPointF(0, 0)); }
  // Presses at one end of a stretch of a line and lets go at the other.
  void drag(const SelectableText& text, double from, double to) {
    const auto at = [&text](double x) { return text.mapToScene(QPointF(x, text.height() / 2)).toPoint(); };
    QTest::mousePress(&host_->window(), Qt::LeftButton, {}, at(from));
    QTest::mouseMove(&host_->window(), at(to));
    QTest::mouseRelease(&host_->window(), Qt::LeftButton, {}, at(to));
  }

  const adapters::IcuLocale locale_{"en_US"};
  test::InMemoryModel model_;
  std::optional<test::ViewHost> host_;
};

const QString longText = "the first words are lost " + QString("and more words ").repeated(30) + "end";

TEST_F(CaptionView, EarlierLinesLoseTheirHead) {
  open();
  model_.source(longText.toStdString());
  model_.finish(longText.toStdString());
  model_.translation(longText.toStdString(), " and a tail");
  host_->grab();
  QStringList shown;
  host_->forEachItem([&](QQuickItem& item) {
    const auto* const text = qobject_cast<SelectableText*>(&item);
    if (text && text->text() == longText)
      shown << QString::number(text->lineCount()) + text->shownText().left(6) + text->shownText().right(3);
  });
  EXPECT_EQ(shown.filter(QRegularExpression("^1….*end$")).size(), 2) << shown.join('|').toStdString();
  EXPECT_EQ(shown.filter(QRegularExpression("^2the fi.*…$")).size(), 1) << shown.join('|').toStdString();
}

TEST_F(CaptionView, ShowsWholeLinesWithRoom) {
  const auto show = [this](int height, double size) {
    open({780, height});
    model_.settings().setProperty("overlayFontSize", size);
    model_.source("spoken");
    model_.finish("Earlier.");
    model_.translation(longText.toStdString());
    host_->grab();
  };
  // The height of the panel, and what is seen of the source, the earlier sentence and the one under way: its
  // lines, or the part of one line in percent.
  const std::tuple<int, double, int, int, int> rows[] = {
      {153, 22, 1, 1, 2}, {152, 22, 1, 0, 2}, {120, 22, 0, 0, 2}, {98, 22, 0, 0, 1}, {72, 48, 0, 0, 44}};
  for (const auto& [height, size, source, earlier, current] : rows) {
    show(height, size);
    const double top = 34;
    const auto isSeen = [this, top](const QString& text) { return place(text).y() >= top ? 1 : 0; };
    const auto& newest = line(longText);
    const double y = place(longText).y();
    const double lineHeight = newest.height() / 2;
    const double shown = std::min(y + newest.height(), height - 12.0) - std::max(y, top);
    const int part = static_cast<int>(std::round(shown / lineHeight * 100));
    EXPECT_EQ(std::tuple(height, size, isSeen("spoken"), isSeen("Earlier."), part >= 100 ? part / 100 : part),
              std::tuple(height, size, source, earlier, current));
    EXPECT_LE(y + newest.lastBaseline(), height - 12) << "the letters of the last line are seen";
  }
  show(72, 22);
  model_.finish("Earlier.");
  host_->grab();
  EXPECT_EQ(place("Earlier.").y(), 34) << "it takes the place of a sentence that is not there";
}

TEST_F(CaptionView, StatusWrapsWithoutCaptions) {
  model_.settings().captureEverything();
  auto& view = open({360, 132});
  model_.beSilent();
  view.grab();
  const auto status = model_.app().overlayStatus();
  EXPECT_EQ(line(status).lineCount(), 2);
  EXPECT_EQ(line(status).shownText(), status);
  model_.app().previewOverlay();
  model_.beSilent();
  view.grab();
  EXPECT_EQ(line(status).lineCount(), 1) << "beside captions";
}

TEST_F(CaptionView, ControlsMoveNoCaptions) {
  auto& view = open();
  model_.finish("Hola.");
  view.grab();
  const auto earlier = place("Hola.");
  view.root().setProperty("hovering", true);
  view.grab();
  EXPECT_EQ(place("Hola."), earlier);
}

TEST_F(CaptionView, PointerSelectsText) {
  auto& view = open();
  model_.translation("select me", " <b>please</b>");
  view.grab();
  auto& text = line("select me <b>please</b>");
  drag(text, 1, text.implicitWidth());
  text.copy();
  EXPECT_EQ(QGuiApplication::clipboard()->text(), "select me <b>please</b>");
  // What is added behind a selection leaves it; a change inside takes it away.
  model_.translation("select me <b>please</b>", " now");
  view.grab();
  EXPECT_EQ(text.selectedText(), "select me <b>please</b>");
  model_.translation("something else");
  view.grab();
  EXPECT_EQ(text.selectedText(), "");
}

TEST_F(CaptionView, ArabicRunsFromTheRight) {
  auto& view = open();
  model_.finish("قال لي.");
  view.grab();
  drag(line("قال لي."), 1, 5);
  EXPECT_EQ(line("قال لي.").selectedText(), ".") << "the full stop is left of the first word";
}

TEST_F(CaptionView, EndlessTextIsLaidOutAsSeen) {
  for (const auto* view : {Views::captionView, Views::mainView}) {
    auto& host = open({660, 520}, view);
    for (const auto& text : {QString("endless words ").repeated(75000), QString(1000000, 'x'),
                             QString(10000, QChar(QChar::LineSeparator))}) {
      model_.finish(text.toStdString());
      model_.translation("short ", text.toStdString());
      host.grab();
      int lines = 0;
      double tallest = 0;
      host.forEachItem([&](QQuickItem& item) {
        if (const auto* shown = qobject_cast<SelectableText*>(&item)) lines += shown->lineCount();
        if (item.inherits("QQuickPaintedItem")) tallest = std::max(tallest, item.height());
      });
      EXPECT_LE(lines, 300);
      EXPECT_LE(tallest, 1000);
      if (view == Views::captionView) continue;
      line("short " + text).selectAll();
      EXPECT_EQ(line("short " + text).selectedText().replace('\n', QChar(QChar::LineSeparator)),
                "short " + text);
    }
  }
  open();
  model_.source("one\u2028two\u2029\u0085\v\f\rthree\nfour");
  host_->grab();
  EXPECT_EQ(line("one\u2028two\u2029\u0085\v\f\rthree\nfour").shownText(), "one two     three four");
}

TEST(BalanceRules, ChangeAtLimits) {
  const auto white = QColor::fromRgbF(1, 1, 1, 0.7F);
  const auto amber = QColor::fromRgbF(1, 0.75F, 0.47F);
  const auto red = QColor::fromRgbF(1, 0.7F, 0.66F);
  const std::tuple<double, QColor, bool, bool, bool> rows[] = {
      // seconds, then the panel's colour, shown, emphasized; warned of in the window
      {1800, white, false, false, false}, {1799, white, true, false, false}, {600, white, true, false, false},
      {599, amber, true, false, false},   {300, amber, true, false, false},  {299, amber, true, false, true},
      {120, amber, true, false, true},    {119, red, true, true, true}};
  for (const auto& row : rows) {
    const double left = std::get<0>(row);
    EXPECT_EQ(row,
              std::tuple(left, CaptionViewRules::balanceColor(left), CaptionViewRules::showsBalance(left),
                         CaptionViewRules::emphasizesBalance(left), MainViewRules::runsLow(left)))
        << left;
  }
}

} // namespace
} // namespace tolvera
