#include "Platform/URL.h"

#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/replace.hpp>
#include <boost/algorithm/string/trim.hpp>
#include <boost/url/parse.hpp>
#include <unicode/idna.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <string>

namespace tolvera::platform {

namespace {

bool isASCII(std::string_view text) {
  return std::ranges::all_of(text, [](unsigned char c) { return c < 0x80; });
}

// The length of the scheme without its colon; 0 if there is none.
std::size_t schemeLength(std::string_view text) {
  const auto end = std::ranges::find_if_not(text, [](unsigned char c) {
    return c < 0x80 && (std::isalnum(c) || c == '+' || c == '-' || c == '.');
  });
  if (end == text.end() || *end != ':' || !std::isalpha(static_cast<unsigned char>(text.front()))) return 0;
  return static_cast<std::size_t>(end - text.begin());
}

// A percent sign that begins no escape is escaped itself. All else is left to the setters of the address.
std::string withWholeEscapes(std::string_view text) {
  std::string whole;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto isDigit = [&](std::size_t at) {
      return at < text.size() && std::isxdigit(static_cast<unsigned char>(text[at]));
    };
    whole +=
        text[i] == '%' && !(isDigit(i + 1) && isDigit(i + 2)) ? std::string_view("%25") : text.substr(i, 1);
  }
  return whole;
}

// The ASCII form of a name, by the rules that browsers use. Absent if it is no name.
std::optional<std::string> asciiHost(std::string_view name) {
  if (isASCII(name)) return std::string(name);
  UErrorCode status = U_ZERO_ERROR;
  const std::unique_ptr<icu::IDNA> idna(icu::IDNA::createUTS46Instance(
      UIDNA_NONTRANSITIONAL_TO_ASCII | UIDNA_CHECK_BIDI | UIDNA_CHECK_CONTEXTJ, status));
  if (U_FAILURE(status)) return std::nullopt;
  std::string ascii;
  icu::StringByteSink<std::string> sink(&ascii);
  icu::IDNAInfo info;
  idna->nameToASCII_UTF8({name.data(), static_cast<std::int32_t>(name.size())}, sink, info, status);
  if (U_FAILURE(status) || info.hasErrors()) return std::nullopt;
  return ascii;
}

// The parts of an address that is not written as the grammar wants it.
std::optional<URL> assembled(std::string_view scheme, std::string_view rest) {
  const auto take = [&rest](std::string_view until) {
    const auto part = rest.substr(0, rest.find_first_of(until));
    rest.remove_prefix(part.size());
    return part;
  };
  URL url;
  if (!scheme.empty()) url.set_scheme(scheme);
  if (rest.starts_with("//")) {
    rest.remove_prefix(2);
    const auto authority = take("/?#");
    const auto name = authority.find_last_of('@') + 1; // 0 if there is no user
    const auto port =
        std::min(authority.find(':', std::max(name, authority.find_last_of(']') + 1)), authority.size());
    const auto host = asciiHost(authority.substr(name, port - name));
    if (!host) return std::nullopt;
    const auto ascii =
        withWholeEscapes(authority.substr(0, name)) + *host + std::string(authority.substr(port));
    const auto parsed = boost::urls::parse_authority(ascii);
    if (!parsed) return std::nullopt;
    url.set_encoded_authority(ascii);
  }
  url.set_encoded_path(withWholeEscapes(take("?#")));
  if (rest.starts_with('?')) url.set_encoded_query(withWholeEscapes(take("#").substr(1)));
  if (rest.starts_with('#')) {
    // Not every version of the setter escapes a second mark.
    const auto fragment = boost::algorithm::replace_all_copy(withWholeEscapes(rest.substr(1)), "#", "%23");
    url.set_encoded_fragment(fragment);
  }
  return url;
}

} // namespace

std::optional<URL> parseURL(std::string_view text) {
  auto address =
      boost::algorithm::trim_copy_if(std::string(text), boost::algorithm::is_any_of(" \t\r\n\f\v"));
  const auto length = schemeLength(address);
  std::transform(address.begin(), address.begin() + static_cast<std::ptrdiff_t>(length), address.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (const auto parsed = boost::urls::parse_uri_reference(address)) return URL(*parsed);
  const std::string_view view(address);
  return assembled(view.substr(0, length), view.substr(length == 0 ? 0 : length + 1));
}

} // namespace tolvera::platform
