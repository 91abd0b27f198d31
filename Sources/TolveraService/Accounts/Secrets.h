#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace tolvera::service {

using SecretHash = std::array<std::uint8_t, 32>;

// 256 bits from the system's generator, as 43 characters that need no escaping in an address. Any thread.
std::string makeSecret();

// The SHA-256 of a secret, which is kept in place of it. A secret is random, so no salt is needed. Any
// thread.
SecretHash hashOf(std::string_view secret);

// HMAC-SHA256 of a text: only the holder of the key can make it. Any thread.
SecretHash keyedHash(std::string_view key, std::string_view text);

} // namespace tolvera::service
