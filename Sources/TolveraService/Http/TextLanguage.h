#pragma once

#include "TolveraService/Http/HTTPMessage.h"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

namespace tolvera::service {

// Which of the two languages a text is for. All pure.
enum class TextLanguage { chinese, english };

// A value of `lang`.
std::optional<TextLanguage> languageNamed(std::string_view lang);
// `lang` of the query, else the first that Accept-Language names, else English.
TextLanguage languageOf(const Request& request);
// The value of `lang` for it.
std::string_view codeOf(TextLanguage language);

// A pair of texts.
struct Wording {
  std::string_view chinese;
  std::string_view english;
  [[nodiscard]] std::string_view in(TextLanguage language) const {
    return language == TextLanguage::chinese ? chinese : english;
  }
};

// An item of an address's query; empty if it is not there or the address is none.
std::string queryItem(std::string_view target, std::string_view name);

} // namespace tolvera::service
