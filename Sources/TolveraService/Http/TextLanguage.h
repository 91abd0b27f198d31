#pragma once

#include "TolveraService/Http/HTTPMessage.h"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

namespace tolvera::service {

// Which of the two languages a text is for. All pure.
enum class TextLanguage { chinese, english };

// The language of a value of `lang`, for example "zh-CN".
std::optional<TextLanguage> languageNamed(std::string_view lang);
// `lang` of the query, else the first that Accept-Language names, else English.
TextLanguage languageOf(const Request& request);
// The value of `lang` that names the language.
std::string_view codeOf(TextLanguage language);

// One text in both languages.
struct Wording {
  std::string_view chinese;
  std::string_view english;
  [[nodiscard]] std::string_view in(TextLanguage language) const {
    return language == TextLanguage::chinese ? chinese : english;
  }
};

// An item of an address's query; empty if the item is missing or the text is not an address.
std::string queryItem(std::string_view target, std::string_view name);

} // namespace tolvera::service
