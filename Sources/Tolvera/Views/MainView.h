#pragma once

#include "Tolvera/Model/AppState.h"
#include "Tolvera/Model/Phase.h"
#include "Tolvera/Model/Strings.h"
#include "Tolvera/Views/Parts/OneLine.h"

#include <QObject>
#include <QtQml/qqmlregistration.h>

namespace tolvera {

// The texts and rules of the main window. Pure functions of their arguments, so that a binding tracks
// them.
class MainViewRules final : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_SINGLETON

 public:
  // The tabs as functions, since QML cannot name values of a class that it cannot create.
  Q_INVOKABLE static tolvera::AppState::Tab translateTab() { return AppState::Tab::translate; }
  Q_INVOKABLE static tolvera::AppState::Tab settingsTab() { return AppState::Tab::settings; }
  // A balance that can pay for a run.
  Q_INVOKABLE static bool hasTime(double secondsLeft) { return secondsLeft > 0; }
  Q_INVOKABLE static QString buttonTitle(const tolvera::Strings& strings, double secondsLeft);
  // Why the start button is disabled; empty if it is not.
  Q_INVOKABLE static QString startObstacle(const tolvera::Strings& strings, double secondsLeft,
                                           bool knowsAccount);
  // Why the direction cannot be swapped; empty if it can.
  Q_INVOKABLE static QString swapObstacle(const tolvera::Strings& strings, const QString& source,
                                          bool canSwap);
  // The balance is close to its end and is drawn as a warning.
  Q_INVOKABLE static bool runsLow(double secondsLeft) { return secondsLeft < 300; }
  Q_INVOKABLE static QString statusText(const tolvera::Strings& strings, const tolvera::Phase& phase);
  // A message of the service as a label can show it: what is far too long is cut.
  Q_INVOKABLE static QString brief(const QString& message);
  Q_INVOKABLE static bool hasFailed(const tolvera::Phase& phase) {
    return phase.kind() == Phase::Kind::failed;
  }
  // The failure is one of the microphone, which the system's settings may cure.
  Q_INVOKABLE static bool offersSystemSettings(const QString& failure);
  // The captions take the place of the form.
  Q_INVOKABLE static bool showsCaptions(const tolvera::Phase& phase, const QString& currentLine) {
    return phase.isActive() || !currentLine.isEmpty();
  }
  // An entry of the list of applications; the note marks one that plays.
  Q_INVOKABLE static QString appLabel(const QString& name, bool isPlaying) {
    return (isPlaying ? QStringLiteral("♪ ") : QString()) + oneLine(name);
  }
  // The language can be translated into and spoken. False for a code that is not in the catalog.
  Q_INVOKABLE static bool canSpeak(const QString& target);
};

} // namespace tolvera
