#pragma once

#include <stdexcept>
#include <string>

namespace tolvera::platform {

// A failure of the platform: a domain, a code of that domain, and a text to show. `what()` is that text.
class PlatformError : public std::runtime_error {
 public:
  PlatformError(std::string domain, int code, const std::string& localizedDescription);

  [[nodiscard]] const std::string& domain() const { return domain_; }
  [[nodiscard]] int code() const { return code_; }
  [[nodiscard]] std::string localizedDescription() const { return what(); }

 private:
  std::string domain_;
  int code_;
};

} // namespace tolvera::platform
