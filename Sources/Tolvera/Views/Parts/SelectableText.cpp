#include "Tolvera/Views/Parts/SelectableText.h"

#include "Tolvera/Views/Parts/OneLine.h"

#include <QClipboard>
#include <QCursor>
#include <QFontMetricsF>
#include <QGuiApplication>
#include <QPainter>
#include <QQuickPaintedItem>
#include <QTextBoundaryFinder>

#include <algorithm>
#include <cmath>
#include <utility>

namespace tolvera {

namespace {

// What is read aloud of a text, and carried to other programs, at most.
constexpr qsizetype longestSpeech = 4000;

// Up to this height a text is painted as a whole, so that scrolling paints nothing anew.
constexpr double wholePage = 1000;

} // namespace

// An image of the part that is seen, since an image of all of it could be as large as the text.
class SelectableText::Page final : public QQuickPaintedItem {
 public:
  explicit Page(SelectableText& owner) : QQuickPaintedItem(&owner), owner_(owner) {}
  void paint(QPainter* painter) override {
    painter->translate(-position());
    owner_.paint(*painter, QRectF(position(), size()));
  }

 private:
  const SelectableText& owner_;
};

SelectableText::SelectableText(QQuickItem* parent) : QQuickItem(parent), page_(new Page(*this)) {
  setAcceptedMouseButtons(Qt::LeftButton | Qt::RightButton);
  setAcceptHoverEvents(true);
  connect(this, &SelectableText::textChanged, this, &SelectableText::spokenTextChanged);
  connect(this, &SelectableText::tailChanged, this, &SelectableText::spokenTextChanged);
  polish();
}

QQuickItem* SelectableText::page() const { return page_; }

void SelectableText::setColor(const QColor& color) {
  if (color_ == color) return;
  color_ = color;
  Q_EMIT colorChanged();
  page_->update();
}

void SelectableText::setSelectionColor(const QColor& color) {
  if (selectionColor_ == color) return;
  selectionColor_ = color;
  Q_EMIT selectionColorChanged();
  page_->update();
}

void SelectableText::setSelectable(bool selectable) {
  if (selectable_ == selectable) return;
  selectable_ = selectable;
  setAcceptedMouseButtons(selectable ? Qt::LeftButton | Qt::RightButton : Qt::NoButton);
  setAcceptHoverEvents(selectable);
  Q_EMIT selectableChanged();
}

void SelectableText::setSeen(const QRectF& seen) {
  if (seen_ == seen) return;
  seen_ = seen;
  Q_EMIT seenChanged();
  polish();
}

void SelectableText::geometryChange(const QRectF& newGeometry, const QRectF& oldGeometry) {
  QQuickItem::geometryChange(newGeometry, oldGeometry);
  if (newGeometry.width() != oldGeometry.width()) isStale_ = true;
  if (newGeometry.size() != oldGeometry.size()) polish();
}

void SelectableText::updatePolish() {
  if (std::exchange(isStale_, false)) {
    layOut();
  } else {
    layOutSeen();
  }
}

void SelectableText::layOut() {
  const auto before = blocks_.text();
  breakLines();
  layOutSeen();
  // A selection stands as long as the text under it does.
  if (!blocks_.text().beginsAs(before, std::max(anchor_, cursor_))) select(0, 0);
  page_->update();
}

void SelectableText::layOutSeen() {
  const auto count = blocks_.lineCount();
  const bool isDone =
      seen_ ? blocks_.layOut(seen_->top(), seen_->bottom()) : blocks_.layOut(0, blocks_.height());
  if (!isDone) QMetaObject::invokeMethod(this, [this] { polish(); }, Qt::QueuedConnection);
  setImplicitSize(std::ceil(std::max(naturalWidth_, blocks_.widest())), std::ceil(blocks_.height()));

  const QRectF whole(0, 0, width(), std::max(height(), blocks_.height()));
  const auto part = !seen_ || whole.height() <= wholePage ? whole : whole & *seen_;
  if (part != QRectF(page_->position(), page_->size()) || count != blocks_.lineCount()) page_->update();
  page_->setPosition(part.topLeft());
  page_->setSize(part.size());
  Q_EMIT laidOut();
}

void SelectableText::breakLines() {
  naturalWidth_ = 0;
  if (elidesHead_) return breakOneLine();
  if (maximumLineCount_ == 0) return fill({text_, tail_});
  auto shown = opening();
  fill(shown);
  blocks_.layOut(0, 0);
  const bool isCut = shown.size() < text_.size() + tail_.size();
  if (isCut || blocks_.lineCount() > maximumLineCount_) breakLastLine();
}

// The text without what no view has room for.
JoinedText SelectableText::opening() const {
  JoinedText shown{text_.left(TextBlocks::blockLength), {}};
  shown.second = tail_.left(TextBlocks::blockLength - shown.first.size());
  if (hasOneLine()) {
    shown.first = oneLine(std::move(shown.first));
    shown.second = oneLine(std::move(shown.second));
  }
  return shown;
}

void SelectableText::breakOneLine() {
  constexpr auto longest = TextBlocks::blockLength;
  const auto size = text_.size() + tail_.size();
  auto ending = oneLine(JoinedText{text_, tail_}.mid(std::max(size - longest, qsizetype{0}), longest));
  const QFontMetricsF metrics(font_);
  if (size > longest) ending.prepend(QChar(0x2026));
  naturalWidth_ = metrics.horizontalAdvance(ending);
  fill({width() > 0 ? metrics.elidedText(ending, Qt::ElideLeft, width()) : ending, {}});
}

// The last line that may be shown takes what is left, cut at its end.
void SelectableText::breakLastLine() {
  const auto all = blocks_.text();
  const QFontMetricsF metrics(font_);
  const auto start = blocks_.startOfLine(maximumLineCount_ - 1);
  // The implicit width is that of the text before it was cut.
  naturalWidth_ = metrics.horizontalAdvance(all.mid(0, all.size()));
  auto last = all.mid(start, all.size() - start);
  const auto end = std::find_if(last.cbegin(), last.cend(), TextBlocks::endsLine);
  const bool isCut = end != last.cend() || all.size() < text_.size() + tail_.size();
  last.truncate(end - last.cbegin());
  if (isCut) last += QChar(0x2026);
  const auto shown = all.mid(0, start) + metrics.elidedText(last, Qt::ElideRight, width());
  fill({shown.left(all.first.size()), shown.mid(all.first.size())});
}

void SelectableText::fill(JoinedText shown) {
  blocks_.setText(std::move(shown),
                  {.font = font_, .tailColor = tailColor_, .equalDigits = equalDigits_, .room = width()});
}

QString SelectableText::spokenText() const {
  const JoinedText all{text_, tail_};
  if (all.size() <= longestSpeech) return text_ + tail_;
  const bool isOpening = maximumLineCount_ > 0 && !elidesHead_;
  return all.mid(isOpening ? 0 : all.size() - longestSpeech, longestSpeech);
}

void SelectableText::paint(QPainter& painter, const QRectF& part) const {
  painter.setPen(color_);
  blocks_.draw(painter, part, std::min(anchor_, cursor_), std::max(anchor_, cursor_), selectionColor_);
}

void SelectableText::select(qsizetype anchor, qsizetype cursor) {
  if (anchor == anchor_ && cursor == cursor_) return;
  anchor_ = anchor;
  cursor_ = cursor;
  Q_EMIT selectionChanged();
  page_->update();
}

QString SelectableText::selectedText() const {
  return blocks_.text()
      .mid(std::min(anchor_, cursor_), std::abs(anchor_ - cursor_))
      .replace(QChar(QChar::LineSeparator), '\n');
}

void SelectableText::selectAll() { select(0, blocks_.text().size()); }

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
  if (blocks_.isOver(event->position())) {
    setCursor(Qt::IBeamCursor);
  } else {
    unsetCursor();
  }
  event->ignore();
}

void SelectableText::mousePressEvent(QMouseEvent* event) {
  if (!blocks_.isOver(event->position())) {
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
  const auto position = blocks_.positionAt(event->position());
  select(event->modifiers() & Qt::ShiftModifier ? anchor_ : position, position);
}

void SelectableText::mouseMoveEvent(QMouseEvent* event) {
  if (event->buttons() & Qt::LeftButton) select(anchor_, blocks_.positionAt(event->position()));
}

void SelectableText::mouseReleaseEvent(QMouseEvent*) {
  setKeepMouseGrab(false);
  offerSelection();
}

void SelectableText::mouseDoubleClickEvent(QMouseEvent* event) {
  const auto position = blocks_.positionAt(event->position());
  // A word is looked for near the pointer alone, since the text may be very long.
  const auto from = std::max(position - TextBlocks::blockLength, qsizetype{0});
  const auto near = blocks_.text().mid(from, 2 * TextBlocks::blockLength);
  QTextBoundaryFinder finder(QTextBoundaryFinder::Word, near);
  finder.setPosition(position - from);
  const auto begin = finder.isAtBoundary() ? position - from : finder.toPreviousBoundary();
  finder.setPosition(position - from);
  const auto end = finder.toNextBoundary();
  select(from + begin, from + (end < 0 ? near.size() : end));
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
  QQuickItem::focusInEvent(event);
  setVisualFocus(event->reason() == Qt::TabFocusReason || event->reason() == Qt::BacktabFocusReason);
}

void SelectableText::focusOutEvent(QFocusEvent* event) {
  QQuickItem::focusOutEvent(event);
  setVisualFocus(false);
}

void SelectableText::setVisualFocus(bool visual) {
  if (visualFocus_ == visual) return;
  visualFocus_ = visual;
  Q_EMIT visualFocusChanged();
}

} // namespace tolvera
