#include "ShellTests/NotifierWatcher.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusServiceWatcher>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QStringList>

namespace tolvera::test {

namespace {

const auto name = QStringLiteral("org.kde.StatusNotifierWatcher");

class NotifierWatcher final : public QDBusVirtualObject {
 public:
  NotifierWatcher() {
    owners_.setConnection(QDBusConnection::sessionBus());
    owners_.setWatchMode(QDBusServiceWatcher::WatchForUnregistration);
    connect(&owners_, &QDBusServiceWatcher::serviceUnregistered, this,
            [this](const QString& service) { items_.removeAll(service); });
  }

  [[nodiscard]] QString introspect(const QString&) const override {
    return QStringLiteral(R"(<interface name="org.kde.StatusNotifierWatcher">
  <method name="RegisterStatusNotifierItem"><arg type="s" direction="in"/></method>
  <property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
  <property name="RegisteredStatusNotifierItems" type="as" access="read"/>
</interface>)");
  }

  bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
    if (message.member() == QStringLiteral("RegisterStatusNotifierItem")) {
      const auto item = message.arguments().value(0).toString();
      items_.append(item);
      owners_.addWatchedService(item);
      return connection.send(message.createReply());
    }
    if (message.member() != QStringLiteral("Get")) return false;
    const auto property = message.arguments().value(1).toString();
    QVariant value = true; // IsStatusNotifierHostRegistered
    if (property == QStringLiteral("RegisteredStatusNotifierItems")) value = items_;
    return connection.send(message.createReply(QVariant::fromValue(QDBusVariant(value))));
  }

 private:
  QDBusServiceWatcher owners_;
  QStringList items_;
};

} // namespace

int runNotifierWatcher() {
  NotifierWatcher watcher;
  auto bus = QDBusConnection::sessionBus();
  if (!bus.registerVirtualObject(QStringLiteral("/StatusNotifierWatcher"), &watcher)) return 1;
  if (!bus.registerService(name)) return 1;
  return QCoreApplication::exec();
}

} // namespace tolvera::test
