#pragma once

#include <string>
#include <string_view>

namespace tolvera {

// The text as a terminal may get it. What a service sends could otherwise change the terminal's title, fill
// its clipboard, or turn the order of a line's words: each control character and each override of the writing
// direction becomes U+FFFD. The text is UTF-8. Any thread.
std::string printable(std::string_view text);

// The same if standard error is a terminal; otherwise the text as it is.
std::string printableOnStandardError(std::string_view text);

} // namespace tolvera
