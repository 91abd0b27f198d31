#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tolvera::bench {

using Words = std::vector<std::string>;

// The words of a text as recognisers are compared by them: lower case, no punctuation, English numbers and
// titles in words ("10" is "ten", "Mr." is "mister"), and a compound with a hyphen is two words.
Words wordsOf(std::string_view text);

// The least edits between what was said and what was heard, and which words of the former came through.
struct Alignment {
  std::size_t edits = 0;
  std::vector<bool> right; // one for each word that was said
};

Alignment align(const Words& said, const Words& heard);

} // namespace tolvera::bench
