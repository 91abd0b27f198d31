#include "Tolvera/Model/Phase.h"

#include <QMetaEnum>

namespace tolvera {

QString Phase::description() const {
  const auto name = QString::fromLatin1(QMetaEnum::fromType<Kind>().valueToKey(static_cast<int>(kind_)));
  return kind_ == Kind::failed ? name + QStringLiteral("(") + message_ + QStringLiteral(")") : name;
}

} // namespace tolvera
