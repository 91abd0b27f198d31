#pragma once

#include <QVariantMap>

class QQuickView;

namespace tolvera {

class AppState;

// Fills a window with the view at `address`, showing the model, with further initial properties. The
// program ends if the view cannot be loaded, which is a fault of its making. Main thread.
void loadView(QQuickView& window, const char* address, AppState& state, QVariantMap properties = {});

} // namespace tolvera
