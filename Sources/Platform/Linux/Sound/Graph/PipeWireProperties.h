#pragma once

#include <pipewire/pipewire.h>

#include <charconv>
#include <cstdint>
#include <string_view>

// Reading the properties of a server's object. A null dictionary has none.
namespace tolvera::adapters {

// Empty if there is no such property.
inline std::string_view property(const spa_dict* properties, const char* key) {
  const char* value = properties != nullptr ? spa_dict_lookup(properties, key) : nullptr;
  return value != nullptr ? value : "";
}

// 0 if there is no number.
inline std::uint64_t numberIn(const spa_dict* properties, const char* key) {
  const std::string_view text = property(properties, key);
  std::uint64_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

inline std::uint32_t idIn(const spa_dict* properties, const char* key) {
  return property(properties, key).empty() ? PW_ID_ANY
                                           : static_cast<std::uint32_t>(numberIn(properties, key));
}

} // namespace tolvera::adapters
