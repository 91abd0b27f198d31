#pragma once

#include "Platform/Locale.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace tolvera::test {

// A locale that the test sets. It names a few languages in "en" and "zh-Hans" and no others, writes words
// of ASCII with a capital, and compares texts by their bytes, of which the case of ASCII may be ignored. One
// thread.
class FixedLocale final : public platform::Locale {
 public:
  explicit FixedLocale(std::string localeIdentifier = "en_US") : identifier(std::move(localeIdentifier)) {}

  // May be changed at any time. The language code is its first piece; an empty one is absent.
  std::string identifier;
  std::vector<std::string> languages; // that the user prefers
  // Names by locale identifier and language code.
  std::map<std::pair<std::string, std::string>, std::string> names = {
      {{"en", "en"}, "english"},   {{"en", "zh"}, "chinese"},       {{"en", "ja"}, "japanese"},
      {{"en", "es"}, "spanish"},   {{"zh-Hans", "en"}, "英语"},     {{"zh-Hans", "zh"}, "中文"},
      {{"zh-Hans", "ja"}, "日语"}, {{"zh-Hans", "es"}, "西班牙语"},
  };

  [[nodiscard]] std::string currentIdentifier() const override { return identifier; }
  [[nodiscard]] std::vector<std::string> preferredLanguages() const override { return languages; }
  [[nodiscard]] std::optional<std::string> currentLanguageCode() const override;
  [[nodiscard]] std::optional<std::string> localizedString(std::string_view languageCode,
                                                           std::string_view locale) const override;
  [[nodiscard]] std::string capitalized(std::string_view text, std::string_view locale) const override;
  [[nodiscard]] int localizedCompare(std::string_view left, std::string_view right) const override;
  [[nodiscard]] int localizedCaseInsensitiveCompare(std::string_view left,
                                                    std::string_view right) const override;
};

} // namespace tolvera::test
