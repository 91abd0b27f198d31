#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tolvera::service {

// Splits a line that is still growing into the words that have settled and the tail that may yet change.
// A word settles when it has stood in its place for some looks in a row and two words follow it; settled
// words stay until the line ends, even if a later look differs. Case and punctuation at a word's ends do not
// count as a change. Characters of scripts without spaces count as words. One line at a time, one thread.
class SettledText {
 public:
  struct Split {
    std::string text;  // settled words
    std::string stash; // the rest, with the space that parts it from `text`
    bool operator==(const Split&) const = default;
  };

  explicit SettledText(std::size_t looksToSettle) : looksToSettle_(looksToSettle) {}

  // Takes the line as it looks now and gives its split.
  Split update(std::string_view line);

 private:
  static constexpr std::size_t wordsAlwaysOpen = 2;

  struct Word {
    std::string text;
    std::size_t looks = 0;
  };
  std::size_t looksToSettle_;
  std::vector<Word> words_;
  std::vector<std::string> settledWords_;
};

// A word without the punctuation at its ends, letters A to Z in lower case.
std::string bareWord(std::string_view word);

// The words of `text`, parted by white space.
std::vector<std::string> wordsOf(std::string_view text);

} // namespace tolvera::service
