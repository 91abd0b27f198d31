#include "Tolvera/Desktop/LoginNotice.h"

#include "Async/Log.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDir>
#include <QFile>
#include <QStringList>
#include <QVariantMap>

namespace tolvera::LoginNotice {

void show(const QString& name, const QString& title, const QString& text) {
  // The directory lasts as long as the login, and so do marks in it.
  const auto runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
  const auto mark = runtime + QStringLiteral("/tolvera/") + name;
  if (runtime.isEmpty() || QFile::exists(mark)) return;
  const auto service = QStringLiteral("org.freedesktop.Notifications");
  auto request = QDBusMessage::createMethodCall(service, QStringLiteral("/org/freedesktop/Notifications"),
                                                service, QStringLiteral("Notify"));
  const auto icon = QStringLiteral("org.tolvera.Tolvera");
  const QVariantMap hints{{QStringLiteral("desktop-entry"), icon}};
  constexpr uint replacingNone = 0;
  constexpr int timeOfTheDesktop = -1;
  request << title << replacingNone << icon << title << text << QStringList() << hints << timeOfTheDesktop;
  auto* const call = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(request));
  QObject::connect(call, &QDBusPendingCallWatcher::finished, call, [call, runtime, mark] {
    call->deleteLater();
    const QDBusPendingReply<uint> reply = *call;
    log::trace(log::Category::windows, "notification ", reply.isError() ? "not shown" : "shown");
    if (reply.isError()) return;
    QDir(runtime).mkdir(QStringLiteral("tolvera"), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    if (!QFile(mark).open(QIODevice::WriteOnly))
      log::trace(log::Category::windows, "no mark of the notification");
  });
}

} // namespace tolvera::LoginNotice
