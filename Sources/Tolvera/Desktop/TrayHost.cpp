#include "Tolvera/Desktop/TrayHost.h"

#include "Tolvera/Desktop/X11Desktop.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>

#include <chrono>
#include <utility>

namespace tolvera {

namespace {

using namespace std::chrono_literals;

const auto watcherService = QStringLiteral("org.kde.StatusNotifierWatcher");
const auto watcherPath = QStringLiteral("/StatusNotifierWatcher");

// The older kind of tray tells nobody that it has come.
constexpr auto pollInterval = 3s;

} // namespace

TrayHost::TrayHost(QObject* parent)
    : QObject(parent), watcher_(watcherService, QDBusConnection::sessionBus()) {
  connect(&watcher_, &QDBusServiceWatcher::serviceRegistered, this, &TrayHost::look);
  connect(&watcher_, &QDBusServiceWatcher::serviceUnregistered, this, [this] { note(false); });
  for (const auto* signal : {"StatusNotifierHostRegistered", "StatusNotifierHostUnregistered"}) {
    QDBusConnection::sessionBus().connect(watcherService, watcherPath, watcherService,
                                          QString::fromLatin1(signal), this, SLOT(look()));
  }
  poll_.setInterval(pollInterval);
  connect(&poll_, &QTimer::timeout, this, &TrayHost::look);
  poll_.start();
  look();
}

void TrayHost::look() {
  auto bus = QDBusConnection::sessionBus();
  if (!bus.isConnected()) return note(false);
  auto request = QDBusMessage::createMethodCall(
      watcherService, watcherPath, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
  request << watcherService << QStringLiteral("IsStatusNotifierHostRegistered");
  request.setAutoStartService(false);
  auto* const call = new QDBusPendingCallWatcher(bus.asyncCall(request), this);
  connect(call, &QDBusPendingCallWatcher::finished, this, [this](auto* finished) {
    finished->deleteLater();
    const QDBusPendingReply<QDBusVariant> reply = *finished;
    note(reply.isValid() && reply.value().variant().toBool());
  });
}

void TrayHost::note(bool hasNotifierHost) {
  if (hasNotifierHost) {
    become(Kind::notifier);
  } else {
    become(X11Desktop::hasEmbeddingTray() ? Kind::embedding : Kind::none);
  }
}

// A host of the newer kind announces its coming and going, so there is nothing to poll for beside it.
void TrayHost::become(Kind kind) {
  if (kind == Kind::notifier) {
    poll_.stop();
  } else if (!poll_.isActive()) {
    poll_.start();
  }
  if (std::exchange(kind_, kind) != kind) Q_EMIT changed();
}

} // namespace tolvera
