#include "Tolvera/Model/Phase.h"

#include <QMetaEnum>

namespace tolvera {

const char* Phase::kindName() const {
  return QMetaEnum::fromType<Kind>().valueToKey(static_cast<int>(kind_));
}

QString Phase::description() const {
  const auto name = QString::fromLatin1(kindName());
  return kind_ == Kind::failed ? name + QStringLiteral("(") + message_ + QStringLiteral(")") : name;
}

} // namespace tolvera
