#pragma once

#include "Harness/LoopbackServer.h"
#include "Harness/TemporaryDirectory.h"

#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>

namespace tolvera::test {

// A certificate authority made by the `openssl` command, for a LoopbackServer that speaks TLS. Its files go
// with it. A client trusts the authority if SSL_CERT_FILE names `certificate()`.
class TestAuthority {
 public:
  explicit TestAuthority(const std::string& name) {
    run("openssl req -x509" + newKey + "-days 30 -subj '/CN=" + name + "' -keyout ca.key -out ca.pem");
  }

  [[nodiscard]] std::string certificate() const { return directory_ / "ca.pem"; }
  // Options of a server whose certificate names `alternatives`, such as "DNS:a.test,IP:127.0.0.1". The
  // certificate is valid from now on for `days` days; -1 makes one that has expired.
  [[nodiscard]] LoopbackServer::Options serverFor(const std::string& alternatives, int days = 30) {
    const std::string name = "server" + std::to_string(++issued_);
    run("openssl req -new" + newKey + "-subj /CN=" + name + " -addext subjectAltName=" + alternatives +
        " -keyout " + name + ".key -out " + name + ".csr && openssl x509 -req -in " + name +
        ".csr -copy_extensions copy -CA ca.pem -CAkey ca.key -days " + std::to_string(days) + " -out " +
        name + ".pem && cat ca.pem >> " + name + ".pem");
    LoopbackServer::Options options;
    options.certificateChainFile = directory_ / (name + ".pem");
    options.privateKeyFile = directory_ / (name + ".key");
    return options;
  }

 private:
  void run(const std::string& commands) const {
    const auto line = "cd '" + directory_.path().string() + "' && { " + commands + "; } >log 2>&1";
    if (std::system(line.c_str()) != 0) throw std::runtime_error("openssl failed: " + commands);
  }

  static inline const std::string newKey = " -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes ";
  TemporaryDirectory directory_;
  int issued_ = 0;
};

} // namespace tolvera::test
