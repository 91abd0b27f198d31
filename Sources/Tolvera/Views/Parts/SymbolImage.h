#pragma once

#include <QColor>
#include <QQuickPaintedItem>
#include <QString>
#include <QtQml/qqmlregistration.h>

namespace tolvera {

// A symbol in the program's one style: thin round strokes in one colour, drawn for its size. An element of
// a view; it says nothing to assistive tools, its owner does.
class SymbolImage : public QQuickPaintedItem {
  Q_OBJECT
  QML_ELEMENT
  // "arrow.clockwise", "arrow.down", "pause.circle", "headphones", "waveform", "ear", "xmark",
  // "magnifyingglass", "checkmark", "chevron.down", "chevron.up.chevron.down", "exclamationmark.circle"
  Q_PROPERTY(QString name READ name WRITE setName NOTIFY nameChanged)
  Q_PROPERTY(QColor color READ color WRITE setColor NOTIFY colorChanged)
  // Side of the square that the symbol is drawn in; it is centred in the element.
  Q_PROPERTY(double size READ size WRITE setSize NOTIFY sizeChanged)

 public:
  explicit SymbolImage(QQuickItem* parent = nullptr);

  [[nodiscard]] const QString& name() const { return name_; }
  void setName(const QString& name);
  [[nodiscard]] const QColor& color() const { return color_; }
  void setColor(const QColor& color);
  [[nodiscard]] double size() const { return size_; }
  void setSize(double size);

  void paint(QPainter* painter) override;

 Q_SIGNALS:
  void nameChanged();
  void colorChanged();
  void sizeChanged();

 private:
  QString name_;
  QColor color_ = Qt::black;
  double size_ = 16;
};

} // namespace tolvera
