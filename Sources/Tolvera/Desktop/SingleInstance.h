#pragma once

#include <QObject>
#include <QString>

namespace tolvera {

// Lets the program run once in a session, by a name on the session bus. A later launch asks the first to show
// itself, and ends. If the first one is gone, or does not answer, the later one takes over.
// Without a session bus every launch is the first. Main thread, with the application object made.
class SingleInstance final : public QObject {
  Q_OBJECT

 public:
  enum class Role {
    first, // go on
    later  // the first one has been asked to show itself
  };

  explicit SingleInstance(QObject* parent = nullptr) : QObject(parent) {}
  // Gives the name up.
  ~SingleInstance() override;

  // Waits for another instance's answer for at most 5 s, and for the end of one that is quitting for at most
  // 10 s. Signals come once the event loop runs.
  Role claim();
  // From now on a later launch waits for the end of this process instead of asking it.
  void beginQuitting();

 Q_SIGNALS:
  // A later launch, or the desktop, asks for the program to show itself.
  void activated();
  void settingsRequested();
  // Another instance has taken over, since this one had stopped answering.
  void superseded();

 private:
  bool takeName(bool replacing);
  static bool waitForName();

  bool ownsName_ = false;
  bool answers_ = false;
};

} // namespace tolvera
