#include "Words.h"

#include <unicode/rbnf.h>

#include <algorithm>
#include <cctype>

namespace tolvera::bench {

namespace {

std::string spelled(const std::string& digits) {
  static const auto spelling = [] {
    UErrorCode status = U_ZERO_ERROR;
    return icu::RuleBasedNumberFormat(icu::URBNF_SPELLOUT, icu::Locale::getEnglish(), status);
  }();
  icu::UnicodeString text;
  std::string words;
  spelling.format(static_cast<std::int64_t>(std::stoll(digits)), text).toUTF8String(words);
  return words;
}

} // namespace

Words wordsOf(std::string_view text) {
  constexpr std::size_t mostDigits = 15;
  Words words;
  std::string word;
  for (const char c : std::string(text) + " ") {
    const auto byte = static_cast<unsigned char>(c);
    if (std::isalnum(byte) != 0 || byte >= 0x80 || c == '\'') {
      word += static_cast<char>(std::tolower(byte));
      continue;
    }
    const bool isNumber = !word.empty() && word.size() <= mostDigits &&
                          std::ranges::all_of(word, [](unsigned char digit) { return std::isdigit(digit); });
    if (isNumber)
      for (std::string& part : wordsOf(spelled(word))) words.push_back(std::move(part));
    else if (word == "mr")
      words.emplace_back("mister");
    else if (word == "mrs")
      words.emplace_back("missus");
    else if (!word.empty())
      words.push_back(word);
    word.clear();
  }
  return words;
}

Alignment align(const Words& said, const Words& heard) {
  const std::size_t rows = said.size() + 1;
  const std::size_t columns = heard.size() + 1;
  std::vector<std::vector<std::size_t>> cost(rows, std::vector<std::size_t>(columns));
  for (std::size_t i = 0; i < rows; ++i)
    for (std::size_t j = 0; j < columns; ++j) {
      if (i == 0 || j == 0) {
        cost[i][j] = i + j;
        continue;
      }
      const std::size_t change = cost[i - 1][j - 1] + (said[i - 1] == heard[j - 1] ? 0 : 1);
      cost[i][j] = std::min({change, cost[i - 1][j] + 1, cost[i][j - 1] + 1});
    }
  Alignment result{cost.back().back(), std::vector<bool>(said.size())};
  for (std::size_t i = said.size(), j = heard.size(); i > 0 && j > 0;) {
    const bool same = said[i - 1] == heard[j - 1];
    if (cost[i][j] == cost[i - 1][j - 1] + (same ? 0 : 1)) {
      result.right[i - 1] = same;
      --i, --j;
    } else if (cost[i][j] == cost[i - 1][j] + 1) {
      --i;
    } else {
      --j;
    }
  }
  return result;
}

} // namespace tolvera::bench
