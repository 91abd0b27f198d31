#pragma once

#include "Tolvera/Model/AppSettings.h"
#include "Tolvera/Model/AppState.h"
#include "Tolvera/Model/Phase.h"
#include "Tolvera/Model/Strings.h"

#include <QtQml/qqmlregistration.h>

namespace tolvera {

// Makes the model's types known to the views; the model itself does not know the views.

struct AppStateForViews {
  Q_GADGET
  QML_FOREIGN(tolvera::AppState)
  QML_NAMED_ELEMENT(AppState)
  QML_UNCREATABLE("the program makes the one model")
};

struct AppSettingsForViews {
  Q_GADGET
  QML_FOREIGN(tolvera::AppSettings)
  QML_NAMED_ELEMENT(AppSettings)
  QML_UNCREATABLE("the model owns its settings")
};

struct StringsForViews {
  Q_GADGET
  QML_FOREIGN(tolvera::Strings)
  QML_VALUE_TYPE(strings)
};

struct PhaseForViews {
  Q_GADGET
  QML_FOREIGN(tolvera::Phase)
  QML_VALUE_TYPE(phase)
};

struct CaptureModeForViews {
  Q_GADGET
  QML_FOREIGN(tolvera::CaptureMode)
  QML_VALUE_TYPE(captureMode)
};

} // namespace tolvera
