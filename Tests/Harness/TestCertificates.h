#pragma once

#include <memory>
#include <string>
#include <vector>

namespace tolvera::test {

// Certificates made on the spot, as PEM texts, for a LoopbackServer that speaks TLS. A client trusts an
// authority whose certificate is in the file that SSL_CERT_FILE names.
struct TestIdentity {
  std::string certificateChain;
  std::string privateKey;
};

class TestAuthority {
 public:
  explicit TestAuthority(const std::string& name);
  ~TestAuthority();

  [[nodiscard]] const std::string& certificate() const { return certificate_; }
  // For a server with these names and numeric addresses, valid from two days ago for `days` days.
  [[nodiscard]] TestIdentity issue(const std::vector<std::string>& names, int days = 30) const;

 private:
  struct Keys;
  std::unique_ptr<Keys> keys_;
  std::string certificate_;
};

} // namespace tolvera::test
