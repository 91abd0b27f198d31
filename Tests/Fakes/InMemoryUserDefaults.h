#pragma once

#include "Platform/UserDefaults.h"

#include <cstddef>
#include <map>
#include <string>

namespace tolvera::test {

// Preferences that last as long as the object. Main thread.
class InMemoryUserDefaults final : public platform::UserDefaults {
 public:
  using Values = std::map<std::string, Value, std::less<>>;

  InMemoryUserDefaults() = default;
  explicit InMemoryUserDefaults(Values initial) : values(std::move(initial)) {}

  [[nodiscard]] std::optional<Value> objectForKey(std::string_view key) const override {
    const auto found = values.find(key);
    return found == values.end() ? std::nullopt : std::optional(found->second);
  }
  void setObject(std::string_view key, Value value) override {
    ++writes;
    values.insert_or_assign(std::string(key), std::move(value));
  }
  void removeObjectForKey(std::string_view key) override { values.erase(std::string(key)); }

  Values values;
  std::size_t writes = 0; // calls of `setObject`, also those that changed nothing
};

} // namespace tolvera::test
