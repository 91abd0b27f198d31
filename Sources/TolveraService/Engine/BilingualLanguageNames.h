#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tolvera::service {

// The name of a language for a text to the user; the code itself where the service knows no name.
// A code with anything but letters, digits and hyphens, or a long one, is not repeated. Pure.
struct LanguageName {
  std::string chinese;
  std::string english;
};
LanguageName languageName(std::string_view code);

// The codes of all languages that the program offers.
std::vector<std::string> programLanguages();

} // namespace tolvera::service
