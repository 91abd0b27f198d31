#pragma once

#include "Platform/UserDefaults.h"

#include <cstddef>
#include <map>
#include <string>

namespace tolvera::test {

// Preferences that last as long as the object. The test may fill and read them as it likes. Main thread.
class InMemoryUserDefaults final : public platform::UserDefaults {
 public:
  using Values = std::map<std::string, Value, std::less<>>;

  InMemoryUserDefaults() = default;
  explicit InMemoryUserDefaults(Values values) : values_(std::move(values)) {}

  [[nodiscard]] std::optional<Value> objectForKey(std::string_view key) const override;
  void setObject(std::string_view key, Value value) override;
  void removeObjectForKey(std::string_view key) override;

  [[nodiscard]] const Values& values() const { return values_; }
  // Calls of `setObject` so far, also those that changed nothing.
  [[nodiscard]] std::size_t writes() const { return writes_; }

 private:
  Values values_;
  std::size_t writes_ = 0;
};

} // namespace tolvera::test
