#include "Tolvera/Desktop/SettingsPortal.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

namespace tolvera {

namespace {

const auto service = QStringLiteral("org.freedesktop.portal.Desktop");
const auto path = QStringLiteral("/org/freedesktop/portal/desktop");
const auto interfaceName = QStringLiteral("org.freedesktop.portal.Settings");

const auto appearance = QStringLiteral("org.freedesktop.appearance");
const auto gnomeInterface = QStringLiteral("org.gnome.desktop.interface");
const auto kdeGlobals = QStringLiteral("org.kde.kdeglobals.KDE");

} // namespace

SettingsPortal::SettingsPortal(QObject* parent) : QObject(parent) {
  auto bus = QDBusConnection::sessionBus();
  if (!bus.isConnected()) return;
  bus.connect(service, path, interfaceName, QStringLiteral("SettingChanged"), this,
              SLOT(onSettingChanged(QString, QString, QDBusVariant)));
  ask(appearance, QStringLiteral("color-scheme"));
  ask(gnomeInterface, QStringLiteral("enable-animations"));
  ask(kdeGlobals, QStringLiteral("AnimationDurationFactor"));
}

void SettingsPortal::ask(const QString& group, const QString& key) {
  auto request = QDBusMessage::createMethodCall(service, path, interfaceName, QStringLiteral("Read"));
  request << group << key;
  auto* const watcher = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(request), this);
  connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, group, key](auto* finished) {
    finished->deleteLater();
    const QDBusPendingReply<QDBusVariant> reply = *finished;
    if (reply.isValid()) note(group, key, reply.value().variant());
  });
}

void SettingsPortal::onSettingChanged(const QString& group, const QString& key, const QDBusVariant& value) {
  note(group, key, value.variant());
}

void SettingsPortal::note(const QString& group, const QString& key, const QVariant& value) {
  // `Read` wraps its answer once more than the signal does.
  auto plain = value;
  if (plain.userType() == qMetaTypeId<QDBusVariant>()) plain = plain.value<QDBusVariant>().variant();
  if (group == appearance && key == QStringLiteral("color-scheme")) {
    const auto scheme = plain.toUInt(); // 1 prefers dark, 2 light, anything else has no opinion
    prefersDark_ = scheme == 1 || scheme == 2 ? std::optional(scheme == 1) : std::nullopt;
  } else if (group == gnomeInterface && key == QStringLiteral("enable-animations")) {
    animationsOff_ = !plain.toBool();
  } else if (group == kdeGlobals && key == QStringLiteral("AnimationDurationFactor")) {
    bool isNumber = false;
    animationsOff_ = plain.toDouble(&isNumber) == 0 && isNumber;
  }
  Q_EMIT changed();
}

} // namespace tolvera
