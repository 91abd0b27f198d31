#pragma once

#include "Tolvera/Desktop/SingleInstance.h"

#include <QDBusVirtualObject>
#include <QString>

namespace tolvera {

// What desktops call to start an application or one of its actions, on the session bus. Owned by the
// instance that it speaks for; main thread.
class ApplicationInterface final : public QDBusVirtualObject {
  Q_OBJECT

 public:
  static const QString name;

  explicit ApplicationInterface(SingleInstance& instance)
      : QDBusVirtualObject(&instance), instance_(instance) {}

  [[nodiscard]] QString introspect(const QString& path) const override;
  bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override;

 private:
  SingleInstance& instance_;
};

} // namespace tolvera
