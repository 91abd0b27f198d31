#pragma once

#include "Tolvera/Model/AppState.h"
#include "TolveraCore/API.h"

#include <QAbstractListModel>
#include <QString>
#include <QtQml/qqmlregistration.h>

namespace tolvera {

// The rows of the menu of packs: each pack on offer, then the sign-in for a user who has not signed in; one
// that cannot be chosen if there is neither. A service may offer any number of packs, so a row is made when
// it is asked for. Main thread.
class BuyRows : public QAbstractListModel {
  Q_OBJECT
  QML_ELEMENT
  Q_PROPERTY(tolvera::AppState* app READ app WRITE setApp NOTIFY appChanged REQUIRED)

 public:
  enum Role { label = Qt::UserRole, isChoosable, isDivided };

  // The hours and the price, in the currency of the language.
  [[nodiscard]] static QString packLabel(const Strings& strings, const API::Pack& pack);

  [[nodiscard]] AppState* app() const { return app_; }
  void setApp(AppState* app); // outlives the rows

  [[nodiscard]] int rowCount(const QModelIndex& parent = {}) const override;
  [[nodiscard]] QVariant data(const QModelIndex& index, int role) const override;
  [[nodiscard]] QHash<int, QByteArray> roleNames() const override;

  // Begins the purchase, or the sign-in.
  Q_INVOKABLE void choose(int row);

 Q_SIGNALS:
  void appChanged();

 private:
  [[nodiscard]] int packCount() const;
  void reset();

  AppState* app_ = nullptr;
};

} // namespace tolvera
