#include "Fakes/InMemoryUserDefaults.h"

namespace tolvera::test {

std::optional<platform::UserDefaults::Value> InMemoryUserDefaults::objectForKey(std::string_view key) const {
  const auto found = values_.find(key);
  return found == values_.end() ? std::nullopt : std::optional(found->second);
}

void InMemoryUserDefaults::setObject(std::string_view key, Value value) {
  ++writes_;
  values_.insert_or_assign(std::string(key), std::move(value));
}

void InMemoryUserDefaults::removeObjectForKey(std::string_view key) {
  if (const auto found = values_.find(key); found != values_.end()) values_.erase(found);
}

} // namespace tolvera::test
