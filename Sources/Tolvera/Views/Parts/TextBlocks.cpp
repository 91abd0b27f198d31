#include "Tolvera/Views/Parts/TextBlocks.h"

#include <QDeadlineTimer>
#include <QFontInfo>
#include <QFontMetricsF>
#include <QGlyphRun>
#include <QPainter>
#include <QRawFont>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

namespace tolvera {

namespace {

// The distance of baselines as a share of the font's size. Fonts that cover many scripts ask for far more
// than one script needs; lines whose ink needs more than this get it.
constexpr double lineSpacing = 1.2;

constexpr qsizetype linesOfBlock = 100;                     // that the text itself ends
constexpr auto longestTurn = std::chrono::milliseconds(30); // of layout, before the event loop goes on

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

bool TextBlocks::endsLine(QChar letter) { return letter == '\n' || letter == QChar::LineSeparator; }

bool JoinedText::crosses(qsizetype begin, qsizetype length) const {
  return begin < first.size() && begin + length > first.size();
}

QStringView JoinedText::viewOf(qsizetype begin, qsizetype length) const {
  return begin < first.size() ? QStringView(first).mid(begin, length)
                              : QStringView(second).mid(begin - first.size(), length);
}

QString JoinedText::mid(qsizetype begin, qsizetype length) const {
  const auto fromFirst = std::clamp(first.size() - begin, qsizetype{0}, length);
  auto result = first.mid(begin, fromFirst);
  if (fromFirst < length) result += second.mid(begin + fromFirst - first.size(), length - fromFirst);
  return result;
}

bool JoinedText::beginsAs(const JoinedText& other, qsizetype length) const {
  if (size() < length || other.size() < length) return false;
  for (qsizetype i = 0; i < length; ++i) {
    if (at(i) != other.at(i)) return false;
  }
  return true;
}

void TextBlocks::setText(JoinedText text, Style style) {
  text_ = std::move(text);
  style_ = std::move(style);
  blocks_.clear();
  qsizetype begin = 0;
  double y = 0;
  do {
    auto& block = blocks_.emplace_back(blockFrom(begin));
    begin = block.end;
    block.y = std::exchange(y, y + block.height);
    // The end of its last line is no line of its own.
    if (begin < text_.size() && begin > block.begin && endsLine(text_.at(begin - 1))) --block.end;
  } while (begin < text_.size());
}

TextBlocks::Block TextBlocks::blockFrom(qsizetype begin) const {
  const auto length = std::min(blockLength, text_.size() - begin);
  const QString crossing = text_.crosses(begin, length) ? text_.mid(begin, length) : QString();
  const auto letters = crossing.isNull() ? text_.viewOf(begin, length) : QStringView(crossing);

  auto end = length;
  qsizetype lineEnds = 0;
  qsizetype lastBlank = 0;
  for (qsizetype i = 0; i < end; ++i) {
    if (endsLine(letters[i]) && ++lineEnds == linesOfBlock) end = i + 1;
    if (letters[i] == ' ' || endsLine(letters[i])) lastBlank = i + 1;
  }
  if (end == blockLength && begin + end < text_.size()) {
    // Between words; in a script without blanks, anywhere but inside a letter.
    if (lastBlank > blockLength / 2) {
      end = lastBlank;
    } else if (letters[end - 1].isHighSurrogate()) {
      --end;
    }
  }
  Block block{.begin = begin, .end = begin + end};
  block.height = estimate(block, lineEnds);
  return block;
}

double TextBlocks::estimate(const Block& block, qsizetype lineEnds) const {
  double lines = 1;
  if (style_.room > 0) {
    const double width =
        static_cast<double>(block.end - block.begin) * QFontInfo(style_.font).pixelSize() / 2;
    lines = std::max(lines, std::ceil(width / style_.room));
  }
  return (lines + static_cast<double>(lineEnds)) *
         std::ceil(QFontInfo(style_.font).pixelSize() * lineSpacing);
}

bool TextBlocks::layOut(double top, double bottom) {
  const QDeadlineTimer deadline(longestTurn);
  bool isDone = true;
  double y = 0;
  for (auto& block : blocks_) {
    block.y = y;
    if (block.y > bottom || block.y + block.height < top) {
      block.layout.reset();
    } else if (!block.layout) {
      isDone = !deadline.hasExpired();
      if (isDone) layOut(block);
    }
    y += block.height;
  }
  return isDone;
}

void TextBlocks::layOut(Block& block) const {
  auto shown = text_.mid(block.begin, block.end - block.begin);
  shown.replace('\n', QChar(QChar::LineSeparator));
  block.layout = std::make_unique<QTextLayout>(shown, style_.font);
  auto& layout = *block.layout;
  layout.setTextOption(wrapping());
  layout.setCacheEnabled(true);
  layout.setFormats(formats(block, shown));
  layout.beginLayout();
  for (auto line = layout.createLine(); line.isValid(); line = layout.createLine()) {
    line.setLineWidth(style_.room > 0 ? style_.room : 1e6);
  }
  layout.endLayout();
  placeLines(block);
}

void TextBlocks::placeLines(Block& block) const {
  const double size = QFontInfo(style_.font).pixelSize();
  block.height = 0;
  for (int i = 0; i < block.layout->lineCount(); ++i) {
    auto line = block.layout->lineAt(i);
    const double natural = line.ascent() + line.descent();
    const auto ink = inkOf(line);
    const double above = std::max(size * lineSpacing * line.ascent() / natural, ink.above);
    const double below = std::max(size * lineSpacing * line.descent() / natural, ink.below);
    block.lastTop = block.height;
    block.lastBaseline = std::ceil(block.height + above);
    line.setPosition(QPointF(0, block.lastBaseline - line.ascent()));
    block.height = std::ceil(block.lastBaseline + below);
  }
}

QList<QTextLayout::FormatRange> TextBlocks::formats(const Block& block, const QString& shown) const {
  QList<QTextLayout::FormatRange> formats;
  if (block.end > text_.first.size()) {
    auto& range = formats.emplace_back();
    range.start = static_cast<int>(std::max(text_.first.size() - block.begin, qsizetype{0}));
    range.length = static_cast<int>(shown.size()) - range.start;
    range.format.setForeground(style_.tailColor);
  }
  if (!style_.equalDigits) return formats;
  const QFontMetricsF metrics(style_.font);
  double widest = 0;
  for (char digit = '0'; digit <= '9'; ++digit) {
    widest = std::max(widest, metrics.horizontalAdvance(QLatin1Char(digit)));
  }
  for (int i = 0; i < shown.size(); ++i) {
    const double missing = shown[i].isDigit() ? widest - metrics.horizontalAdvance(shown[i]) : 0;
    if (missing <= 0) continue;
    auto& range = formats.emplace_back();
    range.start = i;
    range.length = 1;
    range.format.setFontLetterSpacingType(QFont::AbsoluteSpacing);
    range.format.setFontLetterSpacing(missing);
  }
  return formats;
}

double TextBlocks::height() const { return blocks_.empty() ? 0 : blocks_.back().y + blocks_.back().height; }

double TextBlocks::widest() const {
  double width = 0;
  for (const auto& block : blocks_) {
    if (block.layout) width = std::max(width, block.layout->maximumWidth());
  }
  return width;
}

int TextBlocks::lineCount() const {
  int count = 0;
  for (const auto& block : blocks_) count += block.layout ? block.layout->lineCount() : 0;
  return count;
}

qsizetype TextBlocks::startOfLine(int line) const {
  for (const auto& block : blocks_) {
    const int count = block.layout ? block.layout->lineCount() : 0;
    if (line < count) return block.begin + block.layout->lineAt(line).textStart();
    line -= count;
  }
  return text_.size();
}

double TextBlocks::lastLineTop() const {
  return blocks_.empty() ? 0 : blocks_.back().y + blocks_.back().lastTop;
}

double TextBlocks::lastBaseline() const {
  return blocks_.empty() ? 0 : blocks_.back().y + blocks_.back().lastBaseline;
}

void TextBlocks::draw(QPainter& painter, const QRectF& clip, qsizetype selectionBegin, qsizetype selectionEnd,
                      const QColor& selectionColor) const {
  for (const auto& block : blocks_) {
    if (!block.layout) continue;
    QList<QTextLayout::FormatRange> selections;
    const auto begin = std::max(selectionBegin, block.begin);
    const auto end = std::min(selectionEnd, block.end);
    if (begin < end) {
      auto& range = selections.emplace_back();
      range.start = static_cast<int>(begin - block.begin);
      range.length = static_cast<int>(end - begin);
      range.format.setBackground(selectionColor);
    }
    block.layout->draw(&painter, QPointF(0, block.y), selections, clip);
  }
}

bool TextBlocks::isOver(QPointF point) const {
  for (const auto& block : blocks_) {
    if (!block.layout || point.y() < block.y || point.y() >= block.y + block.height) continue;
    for (int i = 0; i < block.layout->lineCount(); ++i) {
      if (block.layout->lineAt(i).naturalTextRect().translated(0, block.y).contains(point)) return true;
    }
  }
  return false;
}

qsizetype TextBlocks::positionAt(QPointF point) const {
  qsizetype nearest = 0;
  for (const auto& block : blocks_) {
    if (!block.layout) continue;
    for (int i = 0; i < block.layout->lineCount(); ++i) {
      const auto line = block.layout->lineAt(i);
      if ((i > 0 || block.begin > 0) && point.y() < block.y + line.y()) return nearest;
      nearest = block.begin + line.xToCursor(point.x());
    }
  }
  return nearest;
}

} // namespace tolvera
