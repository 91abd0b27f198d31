#pragma once

#include <QColor>
#include <QObject>
#include <QtQml/qqmlregistration.h>

namespace tolvera {

// The colours and limits of the caption card. Pure functions of their arguments; balances in seconds, sizes
// in points.
class CaptionViewRules final : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_SINGLETON

 public:
  // The red tone of failures and of a balance that is all but used up.
  Q_INVOKABLE static QColor alertColor() { return QColor::fromRgbF(1.0F, 0.7F, 0.66F); }
  Q_INVOKABLE static QColor white(double opacity) {
    return QColor::fromRgbF(1, 1, 1, static_cast<float>(opacity));
  }
  Q_INVOKABLE static QColor balanceColor(double secondsLeft);
  Q_INVOKABLE static bool showsBalance(double secondsLeft) { return secondsLeft < 1800; }
  Q_INVOKABLE static bool emphasizesBalance(double secondsLeft) { return secondsLeft < urgentBelow; }
  // The font size one step on, within the limits that the controls keep.
  Q_INVOKABLE static double adjustedFontSize(double size, double step);

 private:
  static constexpr double urgentBelow = 120;
};

} // namespace tolvera
