#include "TolveraService/Accounts/Secrets.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <sys/random.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace tolvera::service {

std::string makeSecret() {
  std::array<std::uint8_t, 32> bytes{};
  // A request of this size is never cut short once the generator is ready.
  while (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
    if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "getrandom");
  constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
  std::string text;
  std::uint32_t pending = 0;
  int bits = 0;
  for (const std::uint8_t byte : bytes) {
    pending = (pending << 8) | byte;
    for (bits += 8; bits >= 6; bits -= 6) text += alphabet[(pending >> (bits - 6)) & 63];
  }
  text += alphabet[(pending << (6 - bits)) & 63];
  return text;
}

SecretHash hashOf(std::string_view secret) {
  SecretHash hash{};
  unsigned int size = 0;
  if (EVP_Digest(secret.data(), secret.size(), hash.data(), &size, EVP_sha256(), nullptr) != 1)
    throw std::runtime_error("SHA-256 is not available");
  return hash;
}

SecretHash keyedHash(std::string_view key, std::string_view text) {
  SecretHash hash{};
  unsigned int size = 0;
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  if (HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()), bytes, text.size(), hash.data(), &size) ==
      nullptr)
    throw std::runtime_error("SHA-256 is not available");
  return hash;
}

} // namespace tolvera::service
