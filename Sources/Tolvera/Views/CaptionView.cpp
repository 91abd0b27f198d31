#include "Tolvera/Views/CaptionView.h"

#include <algorithm>

namespace tolvera {

QColor CaptionViewRules::balanceColor(double secondsLeft) {
  if (secondsLeft < urgentBelow) return alertColor();
  if (secondsLeft < 600) return QColor::fromRgbF(1.0F, 0.75F, 0.47F);
  return white(0.7);
}

double CaptionViewRules::adjustedFontSize(double size, double step) {
  return std::clamp(size + step, 14.0, 48.0);
}

} // namespace tolvera
