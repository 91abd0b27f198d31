#pragma once

#include <QDBusVariant>
#include <QObject>
#include <QString>
#include <QVariant>

#include <optional>

namespace tolvera {

// The settings portal of the user's desktop, followed live over the session bus. Main thread.
class SettingsPortal final : public QObject {
  Q_OBJECT

 public:
  explicit SettingsPortal(QObject* parent = nullptr);

  // Absent while the portal has no opinion.
  [[nodiscard]] std::optional<bool> prefersDark() const { return prefersDark_; }
  [[nodiscard]] bool areAnimationsOff() const { return animationsOff_; }

 Q_SIGNALS:
  void changed();

 private Q_SLOTS:
  void onSettingChanged(const QString& group, const QString& key, const QDBusVariant& value);

 private:
  void ask(const QString& group, const QString& key);
  void note(const QString& group, const QString& key, const QVariant& value);

  std::optional<bool> prefersDark_;
  bool animationsOff_ = false;
};

} // namespace tolvera
