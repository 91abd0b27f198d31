#pragma once

#include <string>
#include <string_view>

namespace tolvera::service {

// Turns what the recogniser writes (lower case, no punctuation) into English as it is printed: the
// first word, "I", months, weekdays and a few more proper adjectives with capitals. Pure.
std::string capitalized(std::string_view words);

// `capitalized`, with a full stop: one finished sentence. Empty for a line without a word.
std::string sentence(std::string_view words);

// One space between words and none before closing punctuation or at the ends: translation engines leave
// both behind.
std::string tidied(std::string_view text);

} // namespace tolvera::service
