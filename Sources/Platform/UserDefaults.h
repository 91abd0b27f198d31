#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace tolvera::platform {

// The per-user preference store: typed values under text keys. Main thread; every call answers from
// memory at once, and the store persists on its own.
class UserDefaults {
 public:
  using Value = std::variant<bool, double, std::string>;

  virtual ~UserDefaults() = default;

  [[nodiscard]] virtual std::optional<Value> objectForKey(std::string_view key) const = 0;
  virtual void setObject(std::string_view key, Value value) = 0;
  virtual void removeObjectForKey(std::string_view key) = 0;

  // The text under `key`; nothing for a missing key or another type.
  [[nodiscard]] std::optional<std::string> stringForKey(std::string_view key) const;
  // The boolean under `key`; false for a missing key or another type.
  [[nodiscard]] bool boolForKey(std::string_view key) const;
  // The number under `key`; nothing for a missing key or another type.
  [[nodiscard]] std::optional<double> doubleForKey(std::string_view key) const;
};

} // namespace tolvera::platform
