#pragma once

#include <QDBusServiceWatcher>
#include <QObject>
#include <QTimer>

namespace tolvera {

// Whether the desktop has a place for tray icons at this moment. Such a place may appear long after the
// program, and go and come back. Main thread.
class TrayHost final : public QObject {
  Q_OBJECT

 public:
  enum class Kind {
    none,
    notifier, // the icons are D-Bus objects that the desktop draws
    embedding // the icons are windows inside one of the tray's
  };

  explicit TrayHost(QObject* parent = nullptr);

  [[nodiscard]] Kind kind() const { return kind_; }

 Q_SIGNALS:
  // Also when another host of the same kind took over, which does not have the icon yet.
  void changed();

 private:
  void ask();
  void note(bool hasNotifierHost);
  void become(Kind kind);

  QDBusServiceWatcher watcher_;
  QTimer poll_;
  Kind kind_ = Kind::none;
};

} // namespace tolvera
