#include "TolveraService/Engine/UnknownWords.h"

#include "TolveraService/Engine/SettledText.h"

#include <optional>

namespace tolvera::service {

namespace {

constexpr std::string_view placeHolder = "qzx"; // begins no word of any language here
constexpr std::size_t letters = 26;

std::string placeHolderOf(std::size_t index) {
  std::string text(placeHolder);
  text += static_cast<char>('a' + index / letters % letters);
  text += static_cast<char>('a' + index % letters);
  return text;
}

bool isWordByte(char c) {
  return static_cast<unsigned char>(c) >= 0x80 || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
         (c >= '0' && c <= '9') || c == '\'' || c == '-' || c == '_';
}

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// The index that a place-holder stands for; a mode may have capitalised it.
std::optional<std::size_t> indexOf(std::string_view word) {
  if (word.size() < placeHolder.size() + 2) return std::nullopt;
  for (std::size_t i = 0; i < placeHolder.size(); ++i)
    if (lower(word[i]) != placeHolder[i]) return std::nullopt;
  const char high = lower(word[placeHolder.size()]);
  const char low = lower(word[placeHolder.size() + 1]);
  if (high < 'a' || high > 'z' || low < 'a' || low > 'z') return std::nullopt;
  return static_cast<std::size_t>(high - 'a') * letters + static_cast<std::size_t>(low - 'a');
}

std::size_t endOfWord(std::string_view text, std::size_t from) {
  while (from < text.size() && isWordByte(text[from])) ++from;
  return from;
}

} // namespace

std::string UnknownWords::hide(std::string_view marked) {
  std::string result;
  known = 0;
  for (const std::string& piece : wordsOf(marked)) {
    if (!result.empty()) result += ' ';
    const std::size_t mark = piece.find_first_of("*@");
    if (mark == std::string::npos) {
      // A '#' marks a known word without its right form.
      for (const char c : piece)
        if (c != '#') result += c;
      if (endOfWord(piece, 0) > 0 || piece.front() == '#') ++known;
      continue;
    }
    const std::size_t end = endOfWord(piece, mark + 1);
    const std::string word = piece.substr(mark + 1, end - mark - 1);
    const auto earlier = indexOf(word);
    result += piece.substr(0, mark);
    if (earlier && *earlier < words.size()) {
      result += placeHolderOf(*earlier);
    } else {
      result += placeHolderOf(words.size());
      words.push_back(word);
    }
    result += piece.substr(end);
  }
  return result;
}

std::string UnknownWords::show(std::string_view hidden) const {
  constexpr std::string_view open = "“";
  constexpr std::string_view close = "”";
  std::string result;
  for (const std::string& piece : wordsOf(hidden)) {
    std::size_t start = 0;
    std::optional<std::size_t> index;
    while (start < piece.size() && !(index = indexOf(std::string_view(piece).substr(start)))) ++start;
    if (!index || *index >= words.size()) {
      if (!result.empty()) result += ' ';
      result += piece;
      continue;
    }
    const bool goesOn = start == 0 && result.ends_with(close);
    if (goesOn) result.resize(result.size() - close.size());
    if (!result.empty()) result += ' ';
    result += piece.substr(0, start);
    if (!goesOn) result += open;
    result += words[*index];
    result += close;
    result += piece.substr(start + placeHolder.size() + 2);
  }
  return result;
}

} // namespace tolvera::service
