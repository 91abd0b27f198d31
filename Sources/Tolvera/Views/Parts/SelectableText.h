#pragma once

#include "Tolvera/Views/Parts/TextBlocks.h"

#include <QColor>
#include <QFont>
#include <QQuickItem>
#include <QRectF>
#include <QString>
#include <QtQml/qqmlregistration.h>

#include <optional>

namespace tolvera {

// A paragraph of plain text that can be selected and copied, with a tail in a colour of its own. All changes
// of its properties between two frames cost one layout. It can be cut at the head, on
// one line, or at the end, after a number of lines. An element of a view; main thread.
//
// A text may be of any length: only what is seen of it is laid out and painted. The height of one that is not
// wholly seen is an estimate, which changes as more of it is seen.
//
// Only the text itself takes the pointer: the item below gets a press beside it.
class SelectableText : public QQuickItem {
  Q_OBJECT
  QML_ELEMENT
  Q_PROPERTY(QString text READ text WRITE setText NOTIFY textChanged)
  Q_PROPERTY(QString tail READ tail WRITE setTail NOTIFY tailChanged) // follows `text` on the same line
  Q_PROPERTY(QColor color READ color WRITE setColor NOTIFY colorChanged)
  Q_PROPERTY(QColor tailColor READ tailColor WRITE setTailColor NOTIFY tailColorChanged)
  Q_PROPERTY(QColor selectionColor READ selectionColor WRITE setSelectionColor NOTIFY selectionColorChanged)
  Q_PROPERTY(QFont font READ font WRITE setFont NOTIFY fontChanged)
  Q_PROPERTY(bool elidesHead READ elidesHead WRITE setElidesHead NOTIFY elidesHeadChanged)
  // 0 for no limit. A text that `elidesHead` has one line.
  Q_PROPERTY(
      int maximumLineCount READ maximumLineCount WRITE setMaximumLineCount NOTIFY maximumLineCountChanged)
  Q_PROPERTY(bool equalDigits READ hasEqualDigits WRITE setEqualDigits NOTIFY equalDigitsChanged)
  Q_PROPERTY(bool selectable READ isSelectable WRITE setSelectable NOTIFY selectableChanged)
  // The part of the element that its viewport shows; never set where all of it is seen.
  Q_PROPERTY(QRectF seen READ seen WRITE setSeen NOTIFY seenChanged)
  Q_PROPERTY(bool visualFocus READ hasVisualFocus NOTIFY visualFocusChanged) // got by the keyboard
  Q_PROPERTY(QString selectedText READ selectedText NOTIFY selectionChanged)
  Q_PROPERTY(int lineCount READ lineCount NOTIFY laidOut)
  Q_PROPERTY(QString shownText READ shownText NOTIFY laidOut)             // as cut to the room there is
  Q_PROPERTY(QString spokenText READ spokenText NOTIFY spokenTextChanged) // all of it, unless it is very long
  Q_PROPERTY(QQuickItem* page READ page CONSTANT)                         // the part that is painted
  // Of the last line, from the top of the element.
  Q_PROPERTY(double lastLineTop READ lastLineTop NOTIFY laidOut)
  Q_PROPERTY(double lastBaseline READ lastBaseline NOTIFY laidOut)

 public:
  explicit SelectableText(QQuickItem* parent = nullptr);

  [[nodiscard]] const QString& text() const { return text_; }
  void setText(const QString& text) { assign(text_, text, &SelectableText::textChanged); }
  [[nodiscard]] const QString& tail() const { return tail_; }
  void setTail(const QString& tail) { assign(tail_, tail, &SelectableText::tailChanged); }
  [[nodiscard]] const QColor& color() const { return color_; }
  void setColor(const QColor& color);
  [[nodiscard]] const QColor& tailColor() const { return tailColor_; }
  void setTailColor(const QColor& color) { assign(tailColor_, color, &SelectableText::tailColorChanged); }
  [[nodiscard]] const QColor& selectionColor() const { return selectionColor_; }
  void setSelectionColor(const QColor& color);
  [[nodiscard]] const QFont& font() const { return font_; }
  void setFont(const QFont& font) { assign(font_, font, &SelectableText::fontChanged); }
  [[nodiscard]] bool elidesHead() const { return elidesHead_; }
  void setElidesHead(bool head) { assign(elidesHead_, head, &SelectableText::elidesHeadChanged); }
  [[nodiscard]] int maximumLineCount() const { return maximumLineCount_; }
  void setMaximumLineCount(int count) {
    assign(maximumLineCount_, count, &SelectableText::maximumLineCountChanged);
  }

  // Every digit takes the room of the widest one, so that a counting number stands still.
  [[nodiscard]] bool hasEqualDigits() const { return equalDigits_; }
  void setEqualDigits(bool equal) { assign(equalDigits_, equal, &SelectableText::equalDigitsChanged); }
  // True at first. The item below text that is not selectable gets the pointer.
  [[nodiscard]] bool isSelectable() const { return selectable_; }
  void setSelectable(bool selectable);
  [[nodiscard]] QRectF seen() const { return seen_.value_or(QRectF()); }
  void setSeen(const QRectF& seen);
  [[nodiscard]] bool hasVisualFocus() const { return visualFocus_; }
  [[nodiscard]] QString selectedText() const;
  [[nodiscard]] int lineCount() const { return blocks_.lineCount(); }
  [[nodiscard]] QString shownText() const { return blocks_.text().mid(0, blocks_.text().size()); }
  [[nodiscard]] QString spokenText() const;
  [[nodiscard]] QQuickItem* page() const;
  [[nodiscard]] double lastLineTop() const { return blocks_.lastLineTop(); }
  [[nodiscard]] double lastBaseline() const { return blocks_.lastBaseline(); }

  Q_INVOKABLE void selectAll();
  Q_INVOKABLE void copy() const; // what is selected, to the clipboard

 Q_SIGNALS:
  void textChanged();
  void tailChanged();
  void colorChanged();
  void tailColorChanged();
  void selectionColorChanged();
  void fontChanged();
  void elidesHeadChanged();
  void maximumLineCountChanged();
  void equalDigitsChanged();
  void selectableChanged();
  void seenChanged();
  void spokenTextChanged();
  void visualFocusChanged();
  void selectionChanged();
  void laidOut();
  void menuRequested(QPointF point); // by the secondary button

 protected:
  void updatePolish() override;
  void geometryChange(const QRectF& newGeometry, const QRectF& oldGeometry) override;
  void hoverMoveEvent(QHoverEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void mouseDoubleClickEvent(QMouseEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void focusInEvent(QFocusEvent* event) override;
  void focusOutEvent(QFocusEvent* event) override;

 private:
  class Page; // the child that is painted

  template<typename T>
  void assign(T& field, const T& value, void (SelectableText::*changed)()) {
    if (field == value) return;
    field = value;
    Q_EMIT(this->*changed)();
    isStale_ = true;
    polish();
  }

  void paint(QPainter& painter, const QRectF& part) const;
  void layOut();
  void layOutSeen();
  void breakLines();
  void breakOneLine();
  void breakLastLine();
  void fill(JoinedText shown);
  [[nodiscard]] JoinedText opening() const;
  [[nodiscard]] bool hasOneLine() const { return elidesHead_ || maximumLineCount_ == 1; }
  void select(qsizetype anchor, qsizetype cursor);
  void offerSelection() const;
  void setVisualFocus(bool visual);

  QString text_;
  QString tail_;
  QColor color_ = Qt::black;
  QColor tailColor_ = Qt::gray;
  QColor selectionColor_ = QColor(0, 100, 255, 80);
  QFont font_;
  bool elidesHead_ = false;
  int maximumLineCount_ = 0;
  bool equalDigits_ = false;
  bool selectable_ = true;
  std::optional<QRectF> seen_;

  TextBlocks blocks_;
  bool isStale_ = true; // the blocks are of an older text or style
  double naturalWidth_ = 0;
  Page* const page_;
  qsizetype anchor_ = 0;
  qsizetype cursor_ = 0;
  bool visualFocus_ = false;
};

} // namespace tolvera
