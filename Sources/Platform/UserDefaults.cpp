#include "Platform/UserDefaults.h"

namespace tolvera::platform {

namespace {

template<typename T>
std::optional<T> typed(std::optional<UserDefaults::Value> value) {
  if (!value) return std::nullopt;
  auto* held = std::get_if<T>(&*value);
  return held ? std::optional<T>(std::move(*held)) : std::nullopt;
}

} // namespace

std::optional<std::string> UserDefaults::stringForKey(std::string_view key) const {
  return typed<std::string>(objectForKey(key));
}

bool UserDefaults::boolForKey(std::string_view key) const {
  return typed<bool>(objectForKey(key)).value_or(false);
}

std::optional<double> UserDefaults::doubleForKey(std::string_view key) const {
  return typed<double>(objectForKey(key));
}

} // namespace tolvera::platform
