#pragma once

#include <atomic>
#include <charconv>
#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>

// A trace for developers, on standard error, one line for each step: "tolvera trace network: 1.042 connected
// …", with the seconds since the program's first line. The environment variable TOLVERA_LOG names the
// categories, for example "network,sound" or "all"; without it nothing is written. It is the one process-wide
// object, so that the lowest layer can write without being handed anything. Any thread but a real-time one:
// writing may wait for a terminal. Lines never carry a token; what was said stands only in the category
// `captions`.
namespace tolvera::log {

enum class Category : std::uint8_t { network, session, sound, account, service, windows, captions };

enum class Level : std::uint8_t {
  trace,   // a step that was expected
  warning, // something failed and was dealt with
};

namespace detail {

extern std::atomic<std::uint32_t> enabledCategories;

inline void append(std::string& line, std::string_view text) { line += text; }
template<class Number>
  requires(std::integral<Number> || std::floating_point<Number>)
void append(std::string& line, Number value) {
  char digits[40];
  if constexpr (std::same_as<Number, bool>) {
    line += value ? "yes" : "no";
  } else if constexpr (std::floating_point<Number>) {
    line.append(digits,
                std::to_chars(digits, digits + sizeof digits, value, std::chars_format::fixed, 3).ptr);
  } else {
    line.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
  }
}

} // namespace detail

// True if lines of the category are written. One relaxed load; ask it before computing what only a line
// needs.
inline bool isOn(Category category) {
  return ((detail::enabledCategories.load(std::memory_order_relaxed) >> static_cast<unsigned>(category)) &
          1U) != 0;
}

// Reads the categories from a value of TOLVERA_LOG; names that are unknown are ignored. "all" means every
// category but `captions`, which has to be named.
void enable(std::string_view categories);

// Writes one line at once. Control characters of the text are replaced.
void write(Category category, Level level, std::string_view text);

// Writes its parts, strings, numbers and truth values, as one line.
template<class... Parts>
void trace(Category category, const Parts&... parts) {
  if (!isOn(category)) return;
  std::string line;
  (detail::append(line, parts), ...);
  write(category, Level::trace, line);
}

template<class... Parts>
void warn(Category category, const Parts&... parts) {
  if (!isOn(category)) return;
  std::string line;
  (detail::append(line, parts), ...);
  write(category, Level::warning, line);
}

} // namespace tolvera::log
