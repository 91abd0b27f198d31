#include "Harness/TestCertificates.h"

#include <boost/asio/ip/address.hpp>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <stdexcept>

namespace tolvera::test {

namespace {

template<auto Free>
struct Deleter {
  template<typename T>
  void operator()(T* pointer) const {
    Free(pointer);
  }
};
using Key = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY_free>>;
using X509Pointer = std::unique_ptr<X509, Deleter<X509_free>>;
using Memory = std::unique_ptr<BIO, Deleter<BIO_free>>;
using Extension = std::unique_ptr<X509_EXTENSION, Deleter<X509_EXTENSION_free>>;

void require(bool succeeded) {
  if (!succeeded) throw std::runtime_error("OpenSSL could not make a test certificate");
}

Key newKey() {
  Key key(EVP_EC_gen("P-256"));
  require(key != nullptr);
  return key;
}

X509Pointer newCertificate(const std::string& name, EVP_PKEY* key, int days) {
  constexpr long day = 24L * 3600;
  X509Pointer certificate(X509_new());
  std::uint32_t serial = 0;
  require(certificate && RAND_bytes(reinterpret_cast<unsigned char*>(&serial), sizeof serial) == 1);
  X509_set_version(certificate.get(), X509_VERSION_3);
  ASN1_INTEGER_set_uint64(X509_get_serialNumber(certificate.get()), serial);
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -2 * day);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), (days - 2) * day);
  X509_set_pubkey(certificate.get(), key);
  const auto* text = reinterpret_cast<const unsigned char*>(name.c_str());
  X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate.get()), "CN", MBSTRING_UTF8, text, -1, -1, 0);
  return certificate;
}

void extend(X509* certificate, X509* issuer, int which, const std::string& value) {
  X509V3_CTX context;
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, which, value.c_str()));
  require(extension && X509_add_ext(certificate, extension.get(), -1) == 1);
}

template<typename Write>
std::string pem(Write write) {
  const Memory memory(BIO_new(BIO_s_mem()));
  require(memory && write(memory.get()) == 1);
  char* data = nullptr;
  const auto size = BIO_get_mem_data(memory.get(), &data);
  return {data, static_cast<std::size_t>(size)};
}

} // namespace

struct TestAuthority::Keys {
  Key key;
  X509Pointer certificate;
};

TestAuthority::TestAuthority(const std::string& name) : keys_(std::make_unique<Keys>()) {
  keys_->key = newKey();
  keys_->certificate = newCertificate(name, keys_->key.get(), 30);
  auto* certificate = keys_->certificate.get();
  X509_set_issuer_name(certificate, X509_get_subject_name(certificate));
  extend(certificate, certificate, NID_basic_constraints, "critical,CA:TRUE");
  extend(certificate, certificate, NID_key_usage, "critical,keyCertSign,cRLSign");
  extend(certificate, certificate, NID_subject_key_identifier, "hash");
  require(X509_sign(certificate, keys_->key.get(), EVP_sha256()) > 0);
  certificate_ = pem([certificate](BIO* out) { return PEM_write_bio_X509(out, certificate); });
}

TestAuthority::~TestAuthority() = default;

TestIdentity TestAuthority::issue(const std::vector<std::string>& names, int days) const {
  const auto key = newKey();
  const auto certificate = newCertificate(names.at(0), key.get(), days);
  auto* issuer = keys_->certificate.get();
  X509_set_issuer_name(certificate.get(), X509_get_subject_name(issuer));
  std::string alternatives;
  for (const auto& name : names) {
    boost::system::error_code notNumeric;
    boost::asio::ip::make_address(name, notNumeric);
    alternatives += (alternatives.empty() ? "" : ",") + std::string(notNumeric ? "DNS:" : "IP:") + name;
  }
  extend(certificate.get(), issuer, NID_basic_constraints, "critical,CA:FALSE");
  extend(certificate.get(), issuer, NID_ext_key_usage, "serverAuth");
  extend(certificate.get(), issuer, NID_subject_alt_name, alternatives);
  require(X509_sign(certificate.get(), keys_->key.get(), EVP_sha256()) > 0);
  TestIdentity identity;
  identity.certificateChain =
      pem([&certificate](BIO* out) { return PEM_write_bio_X509(out, certificate.get()); }) + certificate_;
  identity.privateKey = pem([&key](BIO* out) {
    return PEM_write_bio_PrivateKey(out, key.get(), nullptr, nullptr, 0, nullptr, nullptr);
  });
  return identity;
}

} // namespace tolvera::test
