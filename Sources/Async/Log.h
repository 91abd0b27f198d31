#pragma once

#include <atomic>
#include <charconv>
#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>

// A trace for developers on standard error, one line for each step: "tolvera trace network: 1.042 connected
// …", with the seconds since the program's first line. The environment variable TOLVERA_LOG names the
// categories, for example "network,sound" or "all"; without it nothing is written. It is the only
// process-wide object, so that the lowest layer can write without a reference to it. Any thread but a
// real-time one, since writing may wait for a terminal. A line never holds a token; only lines of the
// category `captions` hold what was said.
namespace tolvera::log {

enum class Category : std::uint8_t { network, session, sound, account, service, windows, captions };

enum class Level : std::uint8_t {
  trace,   // an expected step
  warning, // a failure that the program handles
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

// True if lines of the category are written. One relaxed load; ask it before computing what only the trace
// needs.
inline bool isOn(Category category) {
  return ((detail::enabledCategories.load(std::memory_order_relaxed) >> static_cast<unsigned>(category)) &
          1U) != 0;
}

// True if TOLVERA_LOG asks for everything.
bool isComplete();

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
