#pragma once

#include <pipewire/pipewire.h>

#include <cstdint>
#include <cstdlib>
#include <string_view>

// Reading the properties of a server's object. A null dictionary has none.
namespace tolvera::adapters {

// Empty if there is no such property. The text ends with a NUL.
inline std::string_view property(const spa_dict* properties, const char* key) {
  const char* value = properties != nullptr ? spa_dict_lookup(properties, key) : nullptr;
  return value != nullptr ? value : "";
}

// 0 if there is no number.
inline std::uint64_t numberIn(const spa_dict* properties, const char* key) {
  return std::strtoull(property(properties, key).data(), nullptr, 10);
}

inline std::uint32_t idIn(const spa_dict* properties, const char* key) {
  return property(properties, key).empty() ? PW_ID_ANY
                                           : static_cast<std::uint32_t>(numberIn(properties, key));
}

} // namespace tolvera::adapters
