#include "Fakes/FixedLocale.h"

namespace tolvera::test {

std::optional<std::string> FixedLocale::currentLanguageCode() const {
  const std::string code = identifier.substr(0, identifier.find_first_of("_-"));
  return code.empty() ? std::nullopt : std::optional(code);
}

std::optional<std::string> FixedLocale::localizedString(std::string_view languageCode,
                                                        std::string_view locale) const {
  const auto found = names.find({std::string(locale), std::string(languageCode)});
  return found == names.end() ? std::nullopt : std::optional(found->second);
}

std::string FixedLocale::capitalized(std::string_view text, std::string_view) const {
  std::string capitals(text);
  bool wordBegins = true;
  for (char& c : capitals) {
    if (wordBegins && c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    wordBegins = c == ' ';
  }
  return capitals;
}

int FixedLocale::localizedCompare(std::string_view left, std::string_view right) const {
  return left.compare(right);
}

int FixedLocale::localizedCaseInsensitiveCompare(std::string_view left, std::string_view right) const {
  const auto folded = [](std::string_view text) {
    std::string lower(text);
    for (char& c : lower) {
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return lower;
  };
  return folded(left).compare(folded(right));
}

} // namespace tolvera::test
