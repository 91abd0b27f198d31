#include "TolveraService/Engine/TextNormalizer.h"

#include "TolveraService/Engine/SettledText.h"

#include <algorithm>
#include <array>

namespace tolvera::service {

namespace {

// Names that the translation dictionaries know with a capital only. "may", "march" and "august" are left to
// their neighbours: see `isMonthHere`.
constexpr std::array<std::string_view, 34> alwaysCapital = {
    "monday",    "tuesday",  "wednesday", "thursday", "friday",   "saturday", "sunday",
    "january",   "february", "april",     "june",     "july",     "august",   "september",
    "october",   "november", "december",  "english",  "spanish",  "french",   "german",
    "italian",   "chinese",  "japanese",  "russian",  "european", "american", "british",
    "christmas", "easter",   "america",   "europe",   "london",   "paris"};

constexpr std::array<std::string_view, 10> beforeMonth = {"in",    "last", "next", "this",  "since",
                                                          "until", "of",   "by",   "early", "late"};

bool contains(auto&& list, std::string_view word) {
  return std::find(list.begin(), list.end(), word) != list.end();
}

// "may" and "march" are months only after a word that dates.
bool isMonthHere(std::string_view word, std::string_view previous) {
  return (word == "may" || word == "march") && contains(beforeMonth, previous);
}

void raise(std::string& word) {
  if (!word.empty() && word.front() >= 'a' && word.front() <= 'z')
    word.front() = static_cast<char>(word.front() - 'a' + 'A');
}

} // namespace

std::string capitalized(std::string_view words) {
  std::string result;
  std::string previous;
  for (std::string& word : wordsOf(words)) {
    const std::string original = word;
    const std::string_view stem = std::string_view(original).substr(0, original.find('\''));
    if (previous.empty() || stem == "i" || contains(alwaysCapital, stem) || isMonthHere(stem, previous))
      raise(word);
    if (!result.empty()) result += ' ';
    result += word;
    previous = original;
  }
  return result;
}

std::string sentence(std::string_view words) {
  std::string result = capitalized(words);
  if (!result.empty()) result += '.';
  return result;
}

std::string tidied(std::string_view text) {
  std::string result;
  for (const std::string& word : wordsOf(text)) {
    const bool closes =
        word.size() == 1 && std::string_view(".,;:!?").find(word[0]) != std::string_view::npos;
    if (!result.empty() && !closes) result += ' ';
    result += word;
  }
  return result;
}

} // namespace tolvera::service
