#pragma once

#include <boost/url/url.hpp>

#include <optional>
#include <string_view>

namespace tolvera::platform {

using URL = boost::urls::url;

// Reads an address as a browser does. Blanks around it are cut, the scheme is in small letters, what an
// address may hold only escaped (spaces, quotes, braces, letters outside ASCII, a lone percent sign) is
// escaped as UTF-8, and an international name of a host is written in its ASCII form. An address that needs
// none of it keeps its text. Absent if the text is still no address, with or without a scheme.
std::optional<URL> parseURL(std::string_view text);

} // namespace tolvera::platform
