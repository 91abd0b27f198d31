#pragma once

#include "Tolvera/Desktop/SettingsPortal.h"

#include <QObject>
#include <QtQml/qqmlregistration.h>

namespace tolvera {

// What the user's desktop asks of every window: light or dark, text size, motion. Followed live: colours by
// the settings portal and, where that has no opinion, by the palette; motion by the portal as well.
// TOLVERA_REDUCED_MOTION=1 in the environment stops motion on desktops without a setting for it. Made by
// the QML engine; main thread.
class Desktop final : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_SINGLETON
  Q_PROPERTY(bool dark READ isDark NOTIFY darkChanged)
  Q_PROPERTY(bool reducedMotion READ isMotionReduced NOTIFY reducedMotionChanged)
  // Height of the system font in device-independent pixels, at least 13.
  Q_PROPERTY(int textSize READ textSize NOTIFY textSizeChanged)

 public:
  explicit Desktop(QObject* parent = nullptr);

  [[nodiscard]] bool isDark() const { return dark_; }
  [[nodiscard]] bool isMotionReduced() const { return reducedMotion_; }
  [[nodiscard]] int textSize() const { return textSize_; }

  bool eventFilter(QObject* watched, QEvent* event) override;

 Q_SIGNALS:
  void darkChanged();
  void reducedMotionChanged();
  void textSizeChanged();

 private:
  void update();

  SettingsPortal portal_;
  bool dark_ = false;
  bool reducedMotion_ = false;
  int textSize_ = 13;
};

} // namespace tolvera
