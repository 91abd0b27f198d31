#pragma once

#include "Platform/Locale.h"

#include <array>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tolvera {

// A language that the service speaks. A plain value whose texts are literals of the table in `Languages`.
struct Language {
  std::string_view code; // the service's language code; identifies the language
  std::string_view englishName;
  bool canDub = false; // the service can speak it

  [[nodiscard]] std::string_view id() const { return code; }
  // The language's name in the language of the locale named `localeIdentifier`, in title case;
  // `englishName` if the platform has none.
  [[nodiscard]] std::string displayName(const platform::Locale& locale,
                                        std::string_view localeIdentifier) const;

  bool operator==(const Language&) const = default;
};

// A voice of the dub, with its labels in Chinese and English.
struct Voice {
  std::string_view code;
  std::string_view zh;
  std::string_view en;

  bool operator==(const Voice&) const = default;
};

// The languages and voices of the service. Tables and pure functions; any thread. The source language "auto"
// is not in the table; its users handle it themselves.
namespace Languages {

extern const std::array<Language, 60> all;
extern const std::array<Voice, 8> voices;

// The row with exactly this code, case included.
[[nodiscard]] std::optional<Language> find(std::string_view code);
// False for a code that is not in the table.
[[nodiscard]] bool canDub(std::string_view code);
// All rows, sorted by their names in the locale `localeIdentifier` with the collation of the user's locale.
// Equal names keep the table's order.
[[nodiscard]] std::vector<Language> sorted(const platform::Locale& locale, std::string_view localeIdentifier);
// The code of the language that a user of the locale `localeIdentifier` probably wants. Always in the table.
[[nodiscard]] std::string guessTarget(std::string_view localeIdentifier);

} // namespace Languages

} // namespace tolvera

template<>
struct std::hash<tolvera::Language> {
  std::size_t operator()(const tolvera::Language& language) const noexcept;
};
