#pragma once

#include <QColor>
#include <QFont>
#include <QList>
#include <QPointF>
#include <QString>
#include <QStringView>
#include <QTextLayout>

#include <memory>
#include <vector>

class QPainter;

namespace tolvera {

// Two texts that are read as one, without a copy.
struct JoinedText {
  QString first;
  QString second;

  [[nodiscard]] qsizetype size() const { return first.size() + second.size(); }
  [[nodiscard]] QChar at(qsizetype i) const {
    return i < first.size() ? first.at(i) : second.at(i - first.size());
  }
  // Whether a stretch lies in both, and the stretch if it does not.
  [[nodiscard]] bool crosses(qsizetype begin, qsizetype length) const;
  [[nodiscard]] QStringView viewOf(qsizetype begin, qsizetype length) const;
  [[nodiscard]] QString mid(qsizetype begin, qsizetype length) const;
  [[nodiscard]] bool beginsAs(const JoinedText& other, qsizetype length) const;
};

// The layout of a text that may have no end: it is cut into blocks, and only those that are asked for are
// laid out; the heights of the others are estimated. A text of usual length is one block. Lengths are in
// device-independent pixels, positions count from the text's begin. Main thread.
class TextBlocks {
 public:
  struct Style {
    QFont font;
    QColor tailColor; // of the second text
    bool equalDigits = false;
    double room = 0; // for a line; 0 for no end
  };
  // Letters of a block at most.
  static constexpr qsizetype blockLength = 2000;
  [[nodiscard]] static bool endsLine(QChar letter);

  // Takes another text. Nothing of it is laid out yet.
  void setText(JoinedText text, Style style);
  // Lays out what lies between two heights, and forgets the rest. False if only a part of it is done, so that
  // the caller comes back soon.
  bool layOut(double top, double bottom);

  [[nodiscard]] const JoinedText& text() const { return text_; }
  [[nodiscard]] double height() const;
  [[nodiscard]] double widest() const; // a line, as if there were room without end
  // Of the lines that are laid out.
  [[nodiscard]] int lineCount() const;
  [[nodiscard]] qsizetype startOfLine(int line) const;
  [[nodiscard]] double lastLineTop() const;
  [[nodiscard]] double lastBaseline() const;

  void draw(QPainter& painter, const QRectF& clip, qsizetype selectionBegin, qsizetype selectionEnd,
            const QColor& selectionColor) const;
  [[nodiscard]] bool isOver(QPointF point) const;
  [[nodiscard]] qsizetype positionAt(QPointF point) const;

 private:
  struct Block {
    qsizetype begin = 0;
    qsizetype end = 0; // without the line's end behind it
    double y = 0;
    double height = 0;
    std::unique_ptr<QTextLayout> layout = nullptr;
    double lastTop = 0; // of its last line
    double lastBaseline = 0;
  };

  [[nodiscard]] Block blockFrom(qsizetype begin) const;
  [[nodiscard]] double estimate(const Block& block, qsizetype lineEnds) const;
  void layOut(Block& block) const;
  void placeLines(Block& block) const;
  [[nodiscard]] QList<QTextLayout::FormatRange> formats(const Block& block, const QString& shown) const;

  JoinedText text_;
  Style style_;
  std::vector<Block> blocks_;
};

} // namespace tolvera
