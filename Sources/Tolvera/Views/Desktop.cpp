#include "Tolvera/Views/Desktop.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QEvent>
#include <QFontInfo>
#include <QGuiApplication>
#include <QPalette>

#include <algorithm>
#include <utility>

namespace tolvera {

namespace {

const auto service = QStringLiteral("org.freedesktop.portal.Desktop");
const auto path = QStringLiteral("/org/freedesktop/portal/desktop");
const auto settingsInterface = QStringLiteral("org.freedesktop.portal.Settings");

const auto appearance = QStringLiteral("org.freedesktop.appearance");
const auto gnomeInterface = QStringLiteral("org.gnome.desktop.interface");
const auto kdeGlobals = QStringLiteral("org.kde.kdeglobals.KDE");

constexpr int smallestText = 13;

bool paletteIsDark() {
  const auto palette = QGuiApplication::palette();
  return palette.color(QPalette::WindowText).lightnessF() > palette.color(QPalette::Window).lightnessF();
}

} // namespace

Desktop::Desktop(QObject* parent) : QObject(parent) {
  qGuiApp->installEventFilter(this);
  update();
  watchPortal();
}

void Desktop::watchPortal() {
  auto bus = QDBusConnection::sessionBus();
  if (!bus.isConnected()) return;
  bus.connect(service, path, settingsInterface, QStringLiteral("SettingChanged"), this,
              SLOT(onSettingChanged(QString, QString, QDBusVariant)));
  ask(appearance, QStringLiteral("color-scheme"));
  ask(gnomeInterface, QStringLiteral("enable-animations"));
  ask(kdeGlobals, QStringLiteral("AnimationDurationFactor"));
}

void Desktop::ask(const QString& group, const QString& key) {
  auto request = QDBusMessage::createMethodCall(service, path, settingsInterface, QStringLiteral("Read"));
  request << group << key;
  auto* const watcher = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(request), this);
  connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, group, key](auto* finished) {
    finished->deleteLater();
    const QDBusPendingReply<QDBusVariant> reply = *finished;
    if (reply.isValid()) note(group, key, reply.value().variant());
  });
}

void Desktop::onSettingChanged(const QString& group, const QString& key, const QDBusVariant& value) {
  note(group, key, value.variant());
}

void Desktop::note(const QString& group, const QString& key, const QVariant& value) {
  // `Read` wraps its answer once more than the signal does.
  auto plain = value;
  if (plain.userType() == qMetaTypeId<QDBusVariant>()) plain = plain.value<QDBusVariant>().variant();
  if (group == appearance && key == QStringLiteral("color-scheme")) {
    const auto scheme = plain.toUInt(); // 1 prefers dark, 2 light, anything else has no opinion
    portalIsDark_ = scheme == 1 || scheme == 2 ? std::optional(scheme == 1) : std::nullopt;
  } else if (group == gnomeInterface && key == QStringLiteral("enable-animations")) {
    animationsOff_ = !plain.toBool();
  } else if (group == kdeGlobals && key == QStringLiteral("AnimationDurationFactor")) {
    bool isNumber = false;
    animationsOff_ = plain.toDouble(&isNumber) == 0 && isNumber;
  }
  update();
}

void Desktop::update() {
  if (std::exchange(dark_, portalIsDark_.value_or(paletteIsDark())) != dark_) Q_EMIT darkChanged();
  const bool reduced = animationsOff_ || qEnvironmentVariableIntValue("TOLVERA_REDUCED_MOTION") != 0;
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
