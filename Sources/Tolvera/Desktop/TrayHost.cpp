#include "Tolvera/Desktop/TrayHost.h"

#include "Async/Log.h"
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

// How late the icon may come to a tray that appears. The older kind sends no signal.
constexpr auto pollInterval = 3s;

} // namespace

TrayHost::TrayHost(QObject* parent)
    : QObject(parent),
      watcher_(watcherService, QDBusConnection::sessionBus(), QDBusServiceWatcher::WatchForUnregistration) {
  connect(&watcher_, &QDBusServiceWatcher::serviceUnregistered, this, [this] { note(false); });
  poll_.setInterval(pollInterval);
  connect(&poll_, &QTimer::timeout, this, &TrayHost::ask);
  poll_.start();
  ask();
}

void TrayHost::ask() {
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

// A host of the newer kind signals its end, so polling stops while it is there.
void TrayHost::become(Kind kind) {
  if (kind == Kind::notifier) {
    poll_.stop();
  } else if (!poll_.isActive()) {
    poll_.start();
  }
  if (std::exchange(kind_, kind) == kind) return;
  constexpr const char* names[] = {"lost", "found: status notifier", "found: embedding tray"};
  log::trace(log::Category::windows, "tray host ", names[static_cast<int>(kind)]);
  Q_EMIT changed();
}

} // namespace tolvera
