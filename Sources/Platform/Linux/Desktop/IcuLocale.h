#pragma once

#include "Platform/Locale.h"

#include <unicode/coll.h>

#include <memory>

namespace tolvera::adapters {

// The locale by ICU and its data. Immutable; any thread.
class IcuLocale final : public platform::Locale {
 public:
  // The user's locale: the first of LC_ALL, LC_MESSAGES and LANG in the environment that is not empty. If
  // there is none, or for the locales "C" and "POSIX", it is American English. The preferred languages are
  // those of LANGUAGE, or else that locale.
  IcuLocale();
  // As if `identifier` were the user's locale.
  explicit IcuLocale(std::string identifier);

  [[nodiscard]] std::string currentIdentifier() const override { return identifier_; }
  [[nodiscard]] std::vector<std::string> preferredLanguages() const override { return preferredLanguages_; }
  [[nodiscard]] std::optional<std::string> currentLanguageCode() const override;
  [[nodiscard]] std::optional<std::string> localizedString(std::string_view languageCode,
                                                           std::string_view locale) const override;
  [[nodiscard]] std::string capitalized(std::string_view text, std::string_view locale) const override;
  [[nodiscard]] int localizedCompare(std::string_view left, std::string_view right) const override;
  [[nodiscard]] int localizedCaseInsensitiveCompare(std::string_view left,
                                                    std::string_view right) const override;

 private:
  std::string identifier_;
  std::vector<std::string> preferredLanguages_;
  std::unique_ptr<const icu::Collator> collator_;                // null if ICU has no data at all
  std::unique_ptr<const icu::Collator> caseInsensitiveCollator_; // likewise
};

} // namespace tolvera::adapters
