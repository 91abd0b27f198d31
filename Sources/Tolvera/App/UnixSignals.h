#pragma once

#include <QObject>
#include <QSocketNotifier>

#include <memory>

namespace tolvera {

// SIGINT and SIGTERM as events of the main thread. One object in a process; main thread.
class UnixSignals final : public QObject {
  Q_OBJECT

 public:
  explicit UnixSignals(QObject* parent = nullptr);
  // Signals have their usual effect again.
  ~UnixSignals() override;

 Q_SIGNALS:
  void received();

 private:
  void drain();

  std::unique_ptr<QSocketNotifier> notifier_;
};

} // namespace tolvera
