#include "Tolvera/Desktop/SingleInstance.h"

#include "Tolvera/Desktop/ApplicationInterface.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QDBusMessage>
#include <QThread>

#include <chrono>
#include <utility>

namespace tolvera {

namespace {

using namespace std::chrono_literals;

const auto serviceName = QStringLiteral("org.tolvera.Tolvera");
const auto objectPath = QStringLiteral("/org/tolvera/Tolvera");

constexpr auto answerLimit = 5s;
constexpr auto quitLimit = 10s;
constexpr auto quitPoll = 50ms;
// The owner of the name may change between two questions, so it is asked again, a few times.
constexpr int attemptLimit = 3;

enum class Answer { shown, quitting, gone, silent };

Answer askToActivate() {
  QVariantMap platformData;
  const auto pass = [&platformData](const char* variable, const QString& key) {
    if (qEnvironmentVariableIsSet(variable)) platformData.insert(key, qEnvironmentVariable(variable));
  };
  pass("DESKTOP_STARTUP_ID", QStringLiteral("desktop-startup-id"));
  pass("XDG_ACTIVATION_TOKEN", QStringLiteral("activation-token"));
  auto request = QDBusMessage::createMethodCall(serviceName, objectPath, ApplicationInterface::name,
                                                QStringLiteral("Activate"));
  request << platformData;
  request.setAutoStartService(false);
  const auto reply = QDBusConnection::sessionBus().call(request, QDBus::Block,
                                                        std::chrono::milliseconds(answerLimit).count());
  if (reply.type() == QDBusMessage::ReplyMessage) return Answer::shown;
  switch (QDBusError(reply).type()) {
  case QDBusError::UnknownObject:
  case QDBusError::UnknownInterface:
  case QDBusError::UnknownMethod:
    return Answer::quitting;
  case QDBusError::ServiceUnknown:
    return Answer::gone;
  default:
    return Answer::silent;
  }
}

} // namespace

SingleInstance::~SingleInstance() {
  beginQuitting();
  auto bus = QDBusConnection::sessionBus();
  if (ownsName_ && bus.isConnected()) bus.interface()->unregisterService(serviceName);
}

SingleInstance::Role SingleInstance::claim() {
  auto bus = QDBusConnection::sessionBus();
  if (!bus.isConnected()) return Role::first;
  // Before the name, so that a launch that finds the name gets an answer.
  answers_ = bus.registerVirtualObject(objectPath, new ApplicationInterface(*this));
  connect(bus.interface(), &QDBusConnectionInterface::serviceUnregistered, this, [this](const QString& name) {
    if (name == serviceName && std::exchange(ownsName_, false)) Q_EMIT superseded();
  });
  for (int attempt = 0; attempt < attemptLimit; ++attempt) {
    if (takeName(false)) break;
    const auto answer = askToActivate();
    if (answer == Answer::shown) {
      beginQuitting();
      return Role::later;
    }
    const bool isGone = answer == Answer::gone || (answer == Answer::quitting && waitForName());
    if (isGone) continue;
    takeName(true);
    break;
  }
  return Role::first;
}

bool SingleInstance::takeName(bool replacing) {
  const auto reply = QDBusConnection::sessionBus().interface()->registerService(
      serviceName,
      replacing ? QDBusConnectionInterface::ReplaceExistingService
                : QDBusConnectionInterface::DontQueueService,
      QDBusConnectionInterface::AllowReplacement);
  ownsName_ = reply.isValid() && reply.value() == QDBusConnectionInterface::ServiceRegistered;
  return ownsName_;
}

// Waits until the instance that quits has given the name up.
bool SingleInstance::waitForName() {
  auto* const bus = QDBusConnection::sessionBus().interface();
  for (auto waited = 0ms; waited < quitLimit; waited += quitPoll) {
    if (!bus->isServiceRegistered(serviceName).value()) return true;
    QThread::msleep(static_cast<unsigned long>(quitPoll.count()));
  }
  return false;
}

void SingleInstance::beginQuitting() {
  if (std::exchange(answers_, false)) QDBusConnection::sessionBus().unregisterObject(objectPath);
}

} // namespace tolvera
