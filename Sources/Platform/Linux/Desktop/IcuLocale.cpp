#include "Platform/Linux/Desktop/IcuLocale.h"

#include <unicode/bytestream.h>
#include <unicode/casemap.h>
#include <unicode/locdspnm.h>
#include <unicode/locid.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <ranges>

namespace tolvera::adapters {

namespace {

// "zh_CN.UTF-8" becomes "zh_CN", "sr_RS@latin" becomes "sr_Latn_RS". Other modifiers name no locale.
std::string identifierFromPosixName(std::string_view name) {
  const auto end = std::min(name.find_first_of(".@"), name.size());
  std::string identifier(name.substr(0, end));
  if (identifier.empty() || identifier == "C" || identifier == "POSIX") return "en_US";

  const auto at = name.find('@');
  const auto modifier = at == std::string_view::npos ? "" : name.substr(at + 1);
  const char* script = modifier == "latin" ? "_Latn" : modifier == "cyrillic" ? "_Cyrl" : nullptr;
  if (script) identifier.insert(std::min(identifier.find('_'), identifier.size()), script);
  return identifier;
}

std::string identifierFromEnvironment() {
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    if (const char* name = std::getenv(variable); name && *name) return identifierFromPosixName(name);
  }
  return identifierFromPosixName("C");
}

std::vector<std::string> languagesFromEnvironment() {
  std::vector<std::string> languages;
  const char* const names = std::getenv("LANGUAGE");
  for (const auto name : std::views::split(std::string_view(names ? names : ""), ':')) {
    if (!name.empty()) languages.push_back(identifierFromPosixName({name.begin(), name.end()}));
  }
  return languages;
}

icu::Locale locale(std::string_view identifier) {
  return icu::Locale::createCanonical(std::string(identifier).c_str());
}

icu::StringPiece piece(std::string_view text) {
  return {text.data(), static_cast<std::int32_t>(text.size())};
}

// Compares code points if there is no collator.
int compare(const icu::Collator* collator, std::string_view left, std::string_view right) {
  if (!collator) return left.compare(right);
  UErrorCode status = U_ZERO_ERROR;
  return collator->compareUTF8(piece(left), piece(right), status);
}

} // namespace

IcuLocale::IcuLocale() : IcuLocale(identifierFromEnvironment()) {
  if (auto languages = languagesFromEnvironment(); !languages.empty()) preferredLanguages_ = languages;
}

IcuLocale::IcuLocale(std::string identifier)
    : identifier_(std::move(identifier)), preferredLanguages_{identifier_} {
  UErrorCode status = U_ZERO_ERROR;
  collator_.reset(icu::Collator::createInstance(locale(identifier_), status));
  if (!collator_) return;
  std::unique_ptr<icu::Collator> caseInsensitive(collator_->clone());
  caseInsensitive->setStrength(icu::Collator::SECONDARY);
  caseInsensitiveCollator_ = std::move(caseInsensitive);
}

std::optional<std::string> IcuLocale::currentLanguageCode() const {
  const std::string code = locale(identifier_).getLanguage();
  return code.empty() ? std::nullopt : std::optional(code);
}

std::optional<std::string> IcuLocale::localizedString(std::string_view languageCode,
                                                      std::string_view localeIdentifier) const {
  // By default ICU repeats the code if it has no name; this makes the name bogus instead.
  UDisplayContext contexts[] = {UDISPCTX_NO_SUBSTITUTE};
  const std::unique_ptr<icu::LocaleDisplayNames> names(
      icu::LocaleDisplayNames::createInstance(locale(localeIdentifier), contexts, 1));
  if (!names || languageCode.empty()) return std::nullopt;
  icu::UnicodeString name;
  names->languageDisplayName(std::string(languageCode).c_str(), name);
  std::string text;
  if (!name.isBogus()) name.toUTF8String(text);
  return text.empty() || text == languageCode ? std::nullopt : std::optional(text);
}

std::string IcuLocale::capitalized(std::string_view text, std::string_view localeIdentifier) const {
  std::string title;
  icu::StringByteSink<std::string> sink(&title);
  UErrorCode status = U_ZERO_ERROR;
  icu::CaseMap::utf8ToTitle(locale(localeIdentifier).getName(), 0, nullptr, piece(text), sink, nullptr,
                            status);
  return U_SUCCESS(status) ? title : std::string(text);
}

int IcuLocale::localizedCompare(std::string_view left, std::string_view right) const {
  return compare(collator_.get(), left, right);
}

int IcuLocale::localizedCaseInsensitiveCompare(std::string_view left, std::string_view right) const {
  return compare(caseInsensitiveCollator_.get(), left, right);
}

} // namespace tolvera::adapters
