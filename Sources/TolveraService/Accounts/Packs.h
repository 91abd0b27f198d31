#pragma once

#include <array>
#include <string_view>

namespace tolvera::service {

// A pack of hours on the purchase page. Its prices are shown and never charged.
struct Pack {
  std::string_view id;
  double hours;
  int cents; // US
  int fen;   // hundredths of a yuan
  bool popular;
};

inline constexpr std::array<Pack, 3> packs = {{{"hours-5", 5, 199, 1400, false},
                                               {"hours-20", 20, 599, 4200, true},
                                               {"hours-100", 100, 2399, 16800, false}}};

// Null for an id that is not on sale.
inline const Pack* findPack(std::string_view id) {
  for (const Pack& pack : packs)
    if (pack.id == id) return &pack;
  return nullptr;
}

// A run with dub uses time this many times as fast.
inline constexpr double dubMultiplier = 4;

} // namespace tolvera::service
