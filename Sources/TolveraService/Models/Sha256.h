#pragma once

#include <openssl/evp.h>

#include <array>
#include <memory>
#include <new>
#include <span>
#include <string>

namespace tolvera::service {

// A SHA-256 that grows with its input. One thread at a time.
class Sha256 {
 public:
  Sha256() : context_(EVP_MD_CTX_new(), &EVP_MD_CTX_free) {
    if (!context_ || EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr) != 1) throw std::bad_alloc();
  }

  void add(std::span<const char> bytes) { EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()); }

  // Ends the input. Called once.
  [[nodiscard]] std::string hexadecimal() {
    std::array<unsigned char, 32> digest{};
    EVP_DigestFinal_ex(context_.get(), digest.data(), nullptr);
    std::string text;
    for (const unsigned char byte : digest) {
      text += "0123456789abcdef"[byte >> 4];
      text += "0123456789abcdef"[byte & 15];
    }
    return text;
  }

 private:
  std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context_;
};

} // namespace tolvera::service
