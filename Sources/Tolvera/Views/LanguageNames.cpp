#include "Tolvera/Views/LanguageNames.h"

#include "TolveraCore/Languages.h"

#include <QVariantMap>

namespace tolvera {

namespace {

QString text(std::string_view utf8) {
  return QString::fromUtf8(utf8.data(), static_cast<qsizetype>(utf8.size()));
}

} // namespace

LanguageNames::LanguageNames(const platform::Locale& locale, QObject* parent)
    : QObject(parent), locale_(locale) {}

QString LanguageNames::displayName(const QString& code, const Strings& strings) const {
  const auto language = Languages::find(code.toStdString());
  return language ? text(language->displayName(locale_, strings.localeIdentifier())) : code;
}

QVariantList LanguageNames::sorted(const Strings& strings) const {
  auto& list = strings.zh ? chinese_ : english_;
  if (!list) {
    list.emplace();
    for (const auto& language : Languages::sorted(locale_, strings.localeIdentifier())) {
      list->append(QVariantMap{{"value", text(language.code)},
                               {"text", text(language.displayName(locale_, strings.localeIdentifier()))},
                               {"search", text(language.code) + ' ' + text(language.englishName)}});
    }
  }
  return *list;
}

QVariantList LanguageNames::sources(const Strings& strings) const {
  QVariantList list{QVariantMap{{"value", "auto"}, {"text", strings.detectAutomatically()}}};
  list.append(sorted(strings));
  return list;
}

QVariantList LanguageNames::voices(const Strings& strings) const {
  QVariantList list;
  for (const auto& voice : Languages::voices) {
    list.append(QVariantMap{{"value", text(voice.code)}, {"text", text(strings.zh ? voice.zh : voice.en)}});
  }
  return list;
}

QString LanguageNames::directionText(const QString& source, const QString& target,
                                     const Strings& strings) const {
  const auto left =
      source == QStringLiteral("auto") ? strings.detectAutomatically() : displayName(source, strings);
  return left + " → " + displayName(target, strings);
}

} // namespace tolvera
