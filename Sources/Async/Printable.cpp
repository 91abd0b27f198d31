#include "Async/Printable.h"

#include <unistd.h>

namespace tolvera {

namespace {

// How many bytes the character that must not be printed takes at the start of the text; 0 if it may be.
std::size_t unprintable(std::string_view text) {
  const auto byte = [text](std::size_t at) {
    return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U;
  };
  if (byte(0) < 0x20 || byte(0) == 0x7F) return 1;
  if (byte(0) == 0xC2 && byte(1) >= 0x80 && byte(1) < 0xA0) return 2; // U+0080 to U+009F
  if (byte(0) != 0xE2) return 0;
  const bool overrides = byte(1) == 0x80 && byte(2) >= 0xAA && byte(2) <= 0xAE; // U+202A to U+202E
  const bool isolates = byte(1) == 0x81 && byte(2) >= 0xA6 && byte(2) <= 0xA9;  // U+2066 to U+2069
  return overrides || isolates ? 3 : 0;
}

} // namespace

std::string printable(std::string_view text) {
  std::string safe;
  safe.reserve(text.size());
  while (!text.empty()) {
    const std::size_t bad = unprintable(text);
    if (bad > 0) {
      safe += "\xEF\xBF\xBD";
    } else {
      safe += text.front();
    }
    text.remove_prefix(bad > 0 ? bad : 1);
  }
  return safe;
}

std::string printableOnStandardError(std::string_view text) {
  static const bool isTerminal = ::isatty(STDERR_FILENO) != 0;
  return isTerminal ? printable(text) : std::string(text);
}

} // namespace tolvera
