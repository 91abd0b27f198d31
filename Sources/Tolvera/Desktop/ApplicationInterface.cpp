#include "Tolvera/Desktop/ApplicationInterface.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>

namespace tolvera {

namespace {

// While it lives, Qt finds the token by which a Wayland compositor lets a window come to the front.
class ActivationToken {
 public:
  explicit ActivationToken(const QDBusMessage& message) {
    const auto platformData =
        qdbus_cast<QVariantMap>(message.arguments().value(message.arguments().size() - 1));
    qputenv(variable, platformData.value(QStringLiteral("activation-token")).toByteArray());
  }
  ~ActivationToken() { qunsetenv(variable); }
  Q_DISABLE_COPY_MOVE(ActivationToken)

 private:
  static constexpr const char* variable = "XDG_ACTIVATION_TOKEN";
};

} // namespace

const QString ApplicationInterface::name = QStringLiteral("org.freedesktop.Application");

QString ApplicationInterface::introspect(const QString&) const {
  return QStringLiteral(R"(<interface name="org.freedesktop.Application">
  <method name="Activate"><arg type="a{sv}" direction="in"/></method>
  <method name="Open"><arg type="as" direction="in"/><arg type="a{sv}" direction="in"/></method>
  <method name="ActivateAction">
    <arg type="s" direction="in"/><arg type="av" direction="in"/><arg type="a{sv}" direction="in"/>
  </method>
</interface>)");
}

bool ApplicationInterface::handleMessage(const QDBusMessage& message, const QDBusConnection& connection) {
  if (message.interface() != name) return false;
  const auto member = message.member();
  const ActivationToken token(message);
  // The program opens no files; to be asked to open one means to show itself.
  if (member == QStringLiteral("Activate") || member == QStringLiteral("Open")) {
    Q_EMIT instance_.activated();
  } else if (member == QStringLiteral("ActivateAction")) {
    if (message.arguments().value(0).toString() == QStringLiteral("settings")) {
      Q_EMIT instance_.settingsRequested();
    }
  } else {
    return false;
  }
  if (message.isReplyRequired()) connection.send(message.createReply());
  return true;
}

} // namespace tolvera
