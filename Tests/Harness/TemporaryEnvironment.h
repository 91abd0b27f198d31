#pragma once

#include <cstdlib>
#include <map>
#include <optional>
#include <string>

namespace tolvera::test {

// Environment variables set for the length of a test, and then as before. Only while no other thread runs.
class TemporaryEnvironment {
 public:
  TemporaryEnvironment() = default;
  TemporaryEnvironment(const TemporaryEnvironment&) = delete;
  TemporaryEnvironment& operator=(const TemporaryEnvironment&) = delete;
  ~TemporaryEnvironment() {
    for (const auto& [name, value] : before_)
      value ? ::setenv(name.c_str(), value->c_str(), 1) : ::unsetenv(name.c_str());
  }

  void set(const std::string& name, const std::string& value) {
    const char* now = std::getenv(name.c_str());
    before_.try_emplace(name, now ? std::optional<std::string>(now) : std::nullopt);
    ::setenv(name.c_str(), value.c_str(), 1);
  }

 private:
  std::map<std::string, std::optional<std::string>> before_;
};

} // namespace tolvera::test
