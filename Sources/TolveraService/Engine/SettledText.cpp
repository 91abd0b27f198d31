#include "TolveraService/Engine/SettledText.h"

#include <algorithm>

namespace tolvera::service {

std::vector<std::string> wordsOf(std::string_view text) {
  constexpr std::string_view spaces = " \t\r\n";
  std::vector<std::string> words;
  std::size_t end = 0;
  for (;;) {
    const std::size_t start = text.find_first_not_of(spaces, end);
    if (start == std::string_view::npos) return words;
    end = std::min(text.find_first_of(spaces, start), text.size());
    words.emplace_back(text.substr(start, end - start));
  }
}

SettledText::Split SettledText::update(std::string_view line) {
  std::vector<std::string> now = wordsOf(line);
  words_.resize(now.size());
  for (std::size_t i = 0; i < now.size(); ++i) {
    Word& word = words_[i];
    if (word.text == now[i]) {
      ++word.looks;
    } else {
      word = Word{now[i], 1};
    }
  }
  while (settledWords_.size() + wordsAlwaysOpen < words_.size() &&
         words_[settledWords_.size()].looks >= looksToSettle)
    settledWords_.push_back(words_[settledWords_.size()].text);

  Split split;
  for (const std::string& word : settledWords_) {
    if (!split.text.empty()) split.text += ' ';
    split.text += word;
  }
  for (std::size_t i = settledWords_.size(); i < now.size(); ++i) {
    if (i > 0) split.stash += ' ';
    split.stash += now[i];
  }
  return split;
}

} // namespace tolvera::service
