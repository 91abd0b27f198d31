#include "Tolvera/App/ViewLoading.h"

#include "Tolvera/Model/AppState.h"

#include <QQmlError>
#include <QQuickView>

namespace tolvera {

void loadView(QQuickView& window, const char* address, AppState& state, QVariantMap properties) {
  properties.insert(QStringLiteral("app"), QVariant::fromValue(&state));
  window.setInitialProperties(properties);
  window.setSource(QUrl(QString::fromLatin1(address)));
  if (window.status() == QQuickView::Ready) return;
  for (const auto& error : window.errors()) qCritical("%s", qUtf8Printable(error.toString()));
  qFatal("%s cannot be loaded", address);
}

} // namespace tolvera
