#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tolvera::platform {

// The user's locale, and the text operations that depend on a locale. A locale is named by its identifier,
// such as "zh-Hans" or "en_GB". All texts are UTF-8. Any thread.
class Locale {
 public:
  virtual ~Locale() = default;

  // Identifier of the user's current locale; may be empty.
  [[nodiscard]] virtual std::string currentIdentifier() const = 0;
  // The languages that the user wants to read, the most wanted first, such as "zh_CN"; may be empty.
  [[nodiscard]] virtual std::vector<std::string> preferredLanguages() const = 0;
  // Language code of the current locale; absent if it has none.
  [[nodiscard]] virtual std::optional<std::string> currentLanguageCode() const = 0;
  // The name of a language in a locale; absent if the locale data has no name.
  [[nodiscard]] virtual std::optional<std::string> localizedString(std::string_view languageCode,
                                                                   std::string_view locale) const = 0;
  // Title case by the rules of `locale`.
  [[nodiscard]] virtual std::string capitalized(std::string_view text, std::string_view locale) const = 0;
  // Less than, equal to or greater than 0, by the collation of the user's current locale.
  [[nodiscard]] virtual int localizedCompare(std::string_view left, std::string_view right) const = 0;
  // The same, but letters that differ only in case are equal.
  [[nodiscard]] virtual int localizedCaseInsensitiveCompare(std::string_view left,
                                                            std::string_view right) const = 0;
};

} // namespace tolvera::platform
