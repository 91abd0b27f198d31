#include "Tolvera/Views/Desktop.h"

#include <QEvent>
#include <QFontInfo>
#include <QGuiApplication>
#include <QPalette>

#include <algorithm>
#include <utility>

namespace tolvera {

namespace {

constexpr int smallestText = 13;

bool paletteIsDark() {
  const auto palette = QGuiApplication::palette();
  return palette.color(QPalette::WindowText).lightnessF() > palette.color(QPalette::Window).lightnessF();
}

} // namespace

Desktop::Desktop(QObject* parent) : QObject(parent) {
  qGuiApp->installEventFilter(this);
  update();
  connect(&portal_, &SettingsPortal::changed, this, &Desktop::update);
}

void Desktop::update() {
  if (std::exchange(dark_, portal_.prefersDark().value_or(paletteIsDark())) != dark_) Q_EMIT darkChanged();
  const bool reduced =
      portal_.areAnimationsOff() || qEnvironmentVariableIntValue("TOLVERA_REDUCED_MOTION") != 0;
  if (std::exchange(reducedMotion_, reduced) != reducedMotion_) Q_EMIT reducedMotionChanged();
  const int size = std::max(smallestText, QFontInfo(QGuiApplication::font()).pixelSize());
  if (std::exchange(textSize_, size) != textSize_) Q_EMIT textSizeChanged();
}

bool Desktop::eventFilter(QObject* watched, QEvent* event) {
  if (watched == qGuiApp &&
      (event->type() == QEvent::ApplicationPaletteChange || event->type() == QEvent::ApplicationFontChange)) {
    update();
  }
  return QObject::eventFilter(watched, event);
}

} // namespace tolvera
