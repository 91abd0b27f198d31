#pragma once

#include "Platform/Locale.h"
#include "Tolvera/Model/Strings.h"

#include <QObject>
#include <QString>
#include <QVariantList>
#include <QtQml/qqmlregistration.h>

#include <optional>

namespace tolvera {

// The languages and voices as the views offer them, named in the interface language. Made by the program
// beside the model and given to the views; main thread.
class LanguageNames final : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by the program, which knows the user's locale")

 public:
  // `locale` outlives the names.
  explicit LanguageNames(const platform::Locale& locale, QObject* parent = nullptr);

  // The language's name; the code itself if the catalog has no such language.
  [[nodiscard]] Q_INVOKABLE QString displayName(const QString& code, const tolvera::Strings& strings) const;
  // All languages in the user's order, as maps: `value` is the code, `text` the name, and `search` what
  // a person may type as well to find it.
  [[nodiscard]] Q_INVOKABLE QVariantList sorted(const tolvera::Strings& strings) const;
  // The same, behind the source that is recognised by itself.
  [[nodiscard]] Q_INVOKABLE QVariantList sources(const tolvera::Strings& strings) const;
  // The voices of the dub, as maps of `value` and `text`.
  [[nodiscard]] Q_INVOKABLE QVariantList voices(const tolvera::Strings& strings) const;
  // What is translated into what, such as "Detect automatically → Spanish".
  [[nodiscard]] Q_INVOKABLE QString directionText(const QString& source, const QString& target,
                                                  const tolvera::Strings& strings) const;

 private:
  const platform::Locale& locale_;
  // Cached: naming and sorting 60 languages at each binding would be slow.
  mutable std::optional<QVariantList> chinese_;
  mutable std::optional<QVariantList> english_;
};

} // namespace tolvera
