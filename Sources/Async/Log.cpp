#include "Async/Log.h"

#include "Async/Printable.h"

#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>

namespace tolvera::log {

namespace {

constexpr std::array<std::string_view, 7> names{"network", "session", "sound",   "account",
                                                "service", "windows", "captions"};
constexpr auto captionsBit = 1U << static_cast<unsigned>(Category::captions);

std::uint32_t categoriesIn(std::string_view list) {
  std::uint32_t found = 0;
  while (!list.empty()) {
    const auto comma = list.find(',');
    const auto name = list.substr(0, comma);
    list = comma == std::string_view::npos ? std::string_view() : list.substr(comma + 1);
    if (name == "all") found |= (1U << names.size()) - 1 - captionsBit;
    for (std::size_t index = 0; index < names.size(); ++index) {
      if (names[index] == name) found |= 1U << index;
    }
  }
  return found;
}

std::uint32_t categoriesOfEnvironment() {
  const char* const list = std::getenv("TOLVERA_LOG");
  return list == nullptr ? 0 : categoriesIn(list);
}

double secondsSinceStart() {
  static const auto start = std::chrono::steady_clock::now();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

} // namespace

std::atomic<std::uint32_t> detail::enabledCategories{categoriesOfEnvironment()};

bool isComplete() { return (detail::enabledCategories | captionsBit) == (1U << names.size()) - 1; }

void enable(std::string_view categories) { detail::enabledCategories = categoriesIn(categories); }

void write(Category category, Level level, std::string_view text) {
  std::string line = level == Level::trace ? "tolvera trace " : "tolvera warning ";
  line += names[static_cast<std::size_t>(category)];
  line += ": ";
  detail::append(line, secondsSinceStart());
  line += ' ';
  line += printable(text);
  line += '\n';
  // One call, so that lines of several threads do not mix. A line that cannot be written is lost.
  [[maybe_unused]] const auto written = ::write(STDERR_FILENO, line.data(), line.size());
}

} // namespace tolvera::log
