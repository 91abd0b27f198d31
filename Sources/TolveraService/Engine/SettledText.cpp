#include "TolveraService/Engine/SettledText.h"

#include <algorithm>

namespace tolvera::service {

namespace {

// True for the first byte of a character of the Chinese, Japanese, Thai, Lao, Burmese and Khmer scripts, as
// far as bytes tell: these are written without spaces.
bool isWordByItself(std::string_view character) {
  if (character.size() < 3) return false;
  const auto lead = static_cast<unsigned char>(character[0]);
  const auto second = static_cast<unsigned char>(character[1]);
  if (lead == 0xE0) return second >= 0xB8 && second <= 0xBB; // Thai, Lao
  if (lead == 0xE1)
    return second == 0x80 || second == 0x81 || second == 0x82 || (second >= 0x9E && second <= 0x9F);
  return lead >= 0xE3 && lead <= 0xE9;
}

std::size_t lengthOfCharacter(char first) {
  const auto lead = static_cast<unsigned char>(first);
  return lead < 0xC0 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
}

// The words of a line, each with the space before it, so that they make up the line again.
std::vector<std::string> unitsOf(std::string_view line) {
  std::vector<std::string> units;
  for (const std::string& word : wordsOf(line)) {
    std::string unit = units.empty() ? "" : " ";
    for (std::size_t at = 0; at < word.size();) {
      const std::string character = word.substr(at, lengthOfCharacter(word[at]));
      at += character.size();
      unit += character;
      if (!isWordByItself(character)) continue;
      units.push_back(std::move(unit));
      unit.clear();
    }
    if (!unit.empty() && unit != " ") units.push_back(std::move(unit));
  }
  return units;
}

} // namespace

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

std::string bareWord(std::string_view word) {
  constexpr std::string_view marks = " .,;:!?\"'()[]-";
  const std::size_t first = word.find_first_not_of(marks);
  if (first == std::string_view::npos) return {};
  std::string bare(word.substr(first, word.find_last_not_of(marks) - first + 1));
  for (char& c : bare)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return bare;
}

SettledText::Split SettledText::update(std::string_view line) {
  std::vector<std::string> now = unitsOf(line);
  words_.resize(now.size());
  for (std::size_t i = 0; i < now.size(); ++i) {
    Word& word = words_[i];
    const bool same = word.looks > 0 && bareWord(word.text) == bareWord(now[i]);
    word = Word{now[i], same ? word.looks + 1 : 1};
  }
  while (settledWords_.size() + wordsAlwaysOpen < words_.size() &&
         words_[settledWords_.size()].looks >= looksToSettle_)
    settledWords_.push_back(words_[settledWords_.size()].text);

  Split split;
  for (const std::string& word : settledWords_) split.text += word;
  for (std::size_t i = settledWords_.size(); i < now.size(); ++i) split.stash += now[i];
  return split;
}

} // namespace tolvera::service
