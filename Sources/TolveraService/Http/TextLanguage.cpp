#include "TolveraService/Http/TextLanguage.h"

#include <boost/url.hpp>

namespace tolvera::service {

std::optional<TextLanguage> languageNamed(std::string_view lang) {
  if (lang == "zh" || lang.starts_with("zh-")) return TextLanguage::chinese;
  if (lang == "en" || lang.starts_with("en-")) return TextLanguage::english;
  return std::nullopt;
}

TextLanguage languageOf(const Request& request) {
  if (const auto named = languageNamed(queryItem(request.target, "lang"))) return *named;
  std::string_view rest = request.acceptLanguage;
  while (!rest.empty()) {
    const std::string_view entry = rest.substr(0, rest.find(','));
    rest.remove_prefix(std::min(rest.size(), entry.size() + 1));
    const std::size_t start = entry.find_first_not_of(' ');
    if (start == std::string_view::npos) continue;
    if (const auto named = languageNamed(entry.substr(start, entry.find_first_of("; ", start) - start)))
      return *named;
  }
  return TextLanguage::english;
}

std::string_view codeOf(TextLanguage language) { return language == TextLanguage::chinese ? "zh" : "en"; }

std::string queryItem(std::string_view target, std::string_view name) {
  const auto url = boost::urls::parse_origin_form(target);
  if (!url) return {};
  const auto items = url->params();
  const auto found = items.find(name);
  return found == items.end() ? std::string() : std::string((*found).value);
}

} // namespace tolvera::service
