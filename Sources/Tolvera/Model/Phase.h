#pragma once

#include <QObject>
#include <QString>

#include <utility>

namespace tolvera {

// Where a run stands. A plain value; two failed phases are equal when their messages are.
class Phase {
  Q_GADGET
  Q_PROPERTY(Kind kind READ kind)
  Q_PROPERTY(QString message READ message)
  Q_PROPERTY(bool active READ isActive)

 public:
  enum class Kind { idle, starting, connecting, live, reconnecting, failed };
  Q_ENUM(Kind)

  Phase() = default;
  explicit Phase(Kind kind) : kind_(kind) {} // every kind but `failed`, which needs its message
  static Phase failed(QString message) {
    Phase phase(Kind::failed);
    phase.message_ = std::move(message);
    return phase;
  }

  [[nodiscard]] Kind kind() const { return kind_; }
  [[nodiscard]] bool is(Kind kind) const { return kind_ == kind; }
  // The text that the user reads; empty unless the kind is `failed`.
  [[nodiscard]] const QString& message() const { return message_; }
  // True while a run is on: starting, connecting, live or reconnecting.
  [[nodiscard]] bool isActive() const { return kind_ != Kind::idle && kind_ != Kind::failed; }
  [[nodiscard]] const char* kindName() const;
  // The kind's name, followed by a failure's message.
  [[nodiscard]] QString description() const;

  bool operator==(const Phase&) const = default;

 private:
  Kind kind_ = Kind::idle;
  QString message_;
};

} // namespace tolvera
