#pragma once

#include <pipewire/pipewire.h>

#include <charconv>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>

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

// PW_ID_ANY if there is no id.
inline std::uint32_t idIn(const spa_dict* properties, const char* key) {
  const std::uint64_t number = numberIn(properties, key);
  return property(properties, key).empty() || number > PW_ID_ANY ? PW_ID_ANY
                                                                 : static_cast<std::uint32_t>(number);
}

using PropertyMap = std::map<std::string, std::string, std::less<>>;

// All of them; a property may come without a value.
inline PropertyMap allIn(const spa_dict* properties) {
  PropertyMap all;
  const spa_dict_item* item = nullptr;
  if (properties != nullptr)
    spa_dict_for_each(item, properties) all[item->key] = property(properties, item->key);
  return all;
}

// The PulseAudio server connects its clients, and each of them names its own process. One in a sandbox names
// it by a number that is another process's outside; the server then names its application.
inline bool isPulse(const spa_dict* properties) {
  return property(properties, PW_KEY_CLIENT_API) == "pipewire-pulse";
}

inline std::string sandboxedApplication(const spa_dict* properties) {
  return std::string(isPulse(properties) ? property(properties, "pipewire.access.portal.app_id") : "");
}

// 0 if there is no number of a process.
inline std::int32_t pidIn(const spa_dict* properties) {
  const auto number = numberIn(properties, isPulse(properties) ? PW_KEY_APP_PROCESS_ID : PW_KEY_SEC_PID);
  return std::in_range<std::int32_t>(number) ? static_cast<std::int32_t>(number) : 0;
}

} // namespace tolvera::adapters
