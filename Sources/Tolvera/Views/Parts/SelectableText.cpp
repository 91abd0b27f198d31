#include "Tolvera/Views/Parts/SelectableText.h"

#include <QClipboard>
#include <QCursor>
#include <QFontMetricsF>
#include <QGlyphRun>
#include <QGuiApplication>
#include <QPainter>
#include <QRawFont>
#include <QTextBoundaryFinder>

#include <algorithm>
#include <cmath>

namespace tolvera {

namespace {

// The distance of baselines as a share of the font's size. Fonts that cover many scripts ask for far more
// than one script needs; lines whose ink needs more than this get it.
constexpr double lineSpacing = 1.2;

struct Extent {
  double above = 0; // of the baseline
  double below = 0;
};

Extent inkOf(const QTextLine& line) {
  Extent ink;
  for (const auto& run : line.glyphRuns()) {
    const auto font = run.rawFont();
    for (const auto glyph : run.glyphIndexes()) {
      const auto box = font.boundingRect(glyph);
      ink.above = std::max(ink.above, -box.top());
      ink.below = std::max(ink.below, box.bottom());
    }
  }
  return ink;
}

QTextOption wrapping() {
  QTextOption option(Qt::AlignLeft | Qt::AlignAbsolute);
  option.setTextDirection(Qt::LayoutDirectionAuto); // of each paragraph, by its first letter
  option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
  return option;
}

} // namespace

SelectableText::SelectableText(QQuickItem* parent) : QQuickPaintedItem(parent) {
  setAcceptedMouseButtons(Qt::LeftButton | Qt::RightButton);
  setAcceptHoverEvents(true);
  layout_.setTextOption(wrapping());
  layout_.setCacheEnabled(true);
  polish();
}

void SelectableText::setColor(const QColor& color) {
  if (color_ == color) return;
  color_ = color;
  Q_EMIT colorChanged();
  update();
}

void SelectableText::setSelectionColor(const QColor& color) {
  if (selectionColor_ == color) return;
  selectionColor_ = color;
  Q_EMIT selectionColorChanged();
  update();
}

void SelectableText::setSelectable(bool selectable) {
  if (selectable_ == selectable) return;
  selectable_ = selectable;
  setAcceptedMouseButtons(selectable ? Qt::LeftButton | Qt::RightButton : Qt::NoButton);
  setAcceptHoverEvents(selectable);
  Q_EMIT selectableChanged();
}

void SelectableText::geometryChange(const QRectF& newGeometry, const QRectF& oldGeometry) {
  QQuickPaintedItem::geometryChange(newGeometry, oldGeometry);
  if (newGeometry.width() != oldGeometry.width()) polish();
}

void SelectableText::updatePolish() { layOut(); }

void SelectableText::layOut() {
  auto full = text_ + tail_;
  full.replace('\n', elidesHead_ ? QChar(' ') : QChar(QChar::LineSeparator));
  const auto before = layout_.text();
  layout_.setFont(font_);
  breakLines(full);
  const double height = placeLines();

  // A selection stands as long as the text under it does.
  const int end = std::max(anchor_, cursor_);
  if (QStringView(layout_.text()).left(end) != QStringView(before).left(end)) select(0, 0);

  // The implicit size is that of the whole text, also where it was cut.
  const bool cut = layout_.text() != full;
  setImplicitSize(std::ceil(cut ? QFontMetricsF(font_).horizontalAdvance(full) : layout_.maximumWidth()),
                  std::ceil(height));
  Q_EMIT laidOut();
  update();
}

void SelectableText::breakLines(const QString& full) {
  const double room = width();
  if (elidesHead_) {
    fill(room > 0 ? QFontMetricsF(font_).elidedText(full, Qt::ElideLeft, room) : full);
    return;
  }
  fill(full);
  if (maximumLineCount_ == 0 || layout_.lineCount() <= maximumLineCount_) return;

  // Too long: the last line that may be shown takes what is left, cut at its end.
  const int start = layout_.lineAt(maximumLineCount_ - 1).textStart();
  fill(full.left(start) + QFontMetricsF(font_).elidedText(full.mid(start), Qt::ElideRight, room));
}

void SelectableText::fill(const QString& shown) {
  const double room = width();
  layout_.setText(shown);
  layout_.setFormats(formats(shown));
  layout_.beginLayout();
  for (auto line = layout_.createLine(); line.isValid(); line = layout_.createLine()) {
    line.setLineWidth(room > 0 ? room : 1e6);
    if (maximumLineCount_ > 0 && layout_.lineCount() > maximumLineCount_) break;
  }
  layout_.endLayout();
}

QList<QTextLayout::FormatRange> SelectableText::formats(const QString& shown) const {
  QList<QTextLayout::FormatRange> formats;
  if (!tail_.isEmpty() && shown.size() > text_.size()) {
    auto& range = formats.emplaceBack();
    range.start = static_cast<int>(text_.size());
    range.length = static_cast<int>(shown.size() - text_.size());
    range.format.setForeground(tailColor_);
  }
  if (!equalDigits_) return formats;
  const QFontMetricsF metrics(font_);
  double widest = 0;
  for (char digit = '0'; digit <= '9'; ++digit) {
    widest = std::max(widest, metrics.horizontalAdvance(QLatin1Char(digit)));
  }
  for (int i = 0; i < shown.size(); ++i) {
    const double missing = shown[i].isDigit() ? widest - metrics.horizontalAdvance(shown[i]) : 0;
    if (missing <= 0) continue;
    auto& range = formats.emplaceBack();
    range.start = i;
    range.length = 1;
    range.format.setFontLetterSpacingType(QFont::AbsoluteSpacing);
    range.format.setFontLetterSpacing(missing);
  }
  return formats;
}

double SelectableText::placeLines() {
  const double size = QFontInfo(font_).pixelSize();
  double y = 0;
  for (int i = 0; i < layout_.lineCount(); ++i) {
    auto line = layout_.lineAt(i);
    const double natural = line.ascent() + line.descent();
    const auto ink = inkOf(line);
    const double above = std::max(size * lineSpacing * line.ascent() / natural, ink.above);
    const double below = std::max(size * lineSpacing * line.descent() / natural, ink.below);
    const double baseline = std::ceil(y + above);
    line.setPosition(QPointF(0, baseline - line.ascent()));
    y = std::ceil(baseline + below);
  }
  return y;
}

void SelectableText::paint(QPainter* painter) {
  QList<QTextLayout::FormatRange> selections;
  if (anchor_ != cursor_) {
    QTextLayout::FormatRange range;
    range.start = std::min(anchor_, cursor_);
    range.length = std::abs(anchor_ - cursor_);
    range.format.setBackground(selectionColor_);
    selections.append(range);
  }
  painter->setPen(color_);
  layout_.draw(painter, QPointF(0, 0), selections);
}

bool SelectableText::isOverText(QPointF point) const {
  for (int i = 0; i < layout_.lineCount(); ++i) {
    if (layout_.lineAt(i).naturalTextRect().contains(point)) return true;
  }
  return false;
}

int SelectableText::positionAt(QPointF point) const {
  int nearest = 0;
  for (int i = 0; i < layout_.lineCount(); ++i) {
    const auto line = layout_.lineAt(i);
    if (i > 0 && point.y() < line.y()) break;
    nearest = line.xToCursor(point.x());
  }
  return nearest;
}

void SelectableText::select(int anchor, int cursor) {
  if (anchor == anchor_ && cursor == cursor_) return;
  anchor_ = anchor;
  cursor_ = cursor;
  Q_EMIT selectionChanged();
  update();
}

QString SelectableText::selectedText() const {
  return layout_.text()
      .mid(std::min(anchor_, cursor_), std::abs(anchor_ - cursor_))
      .replace(QChar(QChar::LineSeparator), '\n');
}

void SelectableText::selectAll() { select(0, static_cast<int>(layout_.text().size())); }

void SelectableText::copy() const {
  if (anchor_ != cursor_) QGuiApplication::clipboard()->setText(selectedText());
}

// A selection can be pasted by the middle button, as everywhere on such desktops.
void SelectableText::offerSelection() const {
  auto* const clipboard = QGuiApplication::clipboard();
  if (anchor_ != cursor_ && clipboard->supportsSelection()) {
    clipboard->setText(selectedText(), QClipboard::Selection);
  }
}

void SelectableText::hoverMoveEvent(QHoverEvent* event) {
  if (isOverText(event->position())) {
    setCursor(Qt::IBeamCursor);
  } else {
    unsetCursor();
  }
  event->ignore();
}

void SelectableText::mousePressEvent(QMouseEvent* event) {
  if (!isOverText(event->position())) {
    select(0, 0);
    event->ignore();
    return;
  }
  setKeepMouseGrab(true); // or a scroll view takes the drag
  if (event->button() == Qt::RightButton) {
    Q_EMIT menuRequested(event->position());
    return;
  }
  forceActiveFocus(Qt::MouseFocusReason);
  const int position = positionAt(event->position());
  select(event->modifiers() & Qt::ShiftModifier ? anchor_ : position, position);
}

void SelectableText::mouseMoveEvent(QMouseEvent* event) {
  if (event->buttons() & Qt::LeftButton) select(anchor_, positionAt(event->position()));
}

void SelectableText::mouseReleaseEvent(QMouseEvent*) {
  setKeepMouseGrab(false);
  offerSelection();
}

void SelectableText::mouseDoubleClickEvent(QMouseEvent* event) {
  QTextBoundaryFinder finder(QTextBoundaryFinder::Word, layout_.text());
  const auto position = positionAt(event->position());
  finder.setPosition(position);
  const auto begin = finder.isAtBoundary() ? position : finder.toPreviousBoundary();
  finder.setPosition(position);
  const auto end = finder.toNextBoundary();
  select(static_cast<int>(begin), static_cast<int>(end < 0 ? layout_.text().size() : end));
  offerSelection();
}

void SelectableText::keyPressEvent(QKeyEvent* event) {
  if (event->matches(QKeySequence::Copy)) {
    copy();
  } else if (event->matches(QKeySequence::SelectAll)) {
    selectAll();
    offerSelection();
  } else {
    event->ignore();
  }
}

void SelectableText::focusInEvent(QFocusEvent* event) {
  QQuickPaintedItem::focusInEvent(event);
  setVisualFocus(event->reason() == Qt::TabFocusReason || event->reason() == Qt::BacktabFocusReason);
}

void SelectableText::focusOutEvent(QFocusEvent* event) {
  QQuickPaintedItem::focusOutEvent(event);
  setVisualFocus(false);
}

void SelectableText::setVisualFocus(bool visual) {
  if (visualFocus_ == visual) return;
  visualFocus_ = visual;
  Q_EMIT visualFocusChanged();
}

} // namespace tolvera
