#include "support/pkcs12_fixtures.hpp"

#include <openssl/x509v3.h>

#include <stdexcept>

#include "platform/coffer/openssl.hpp"

namespace tw::test {

namespace {

using vlt::ssl::Pkcs12Ptr;
using vlt::ssl::X509Ptr;
using KeyPtr = vlt::ssl::PKeyPtr;

void require(bool ok, const char *what) {
  if (!ok) throw std::runtime_error(std::string("PKCS #12 fixture: ") + what);
}

KeyPtr makeKey() {
  KeyPtr key(EVP_EC_gen("P-256"));
  require(key != nullptr, "key generation");
  return key;
}

X509Ptr makeCertificate(const char *commonName, long serial, EVP_PKEY *key, bool isAuthority,
                        X509 *issuer, EVP_PKEY *issuerKey) {
  X509Ptr certificate(X509_new());
  X509 *x = certificate.get();
  require(x && X509_set_version(x, 2), "certificate");
  ASN1_INTEGER_set(X509_get_serialNumber(x), serial);
  X509_gmtime_adj(X509_getm_notBefore(x), -3600);
  X509_gmtime_adj(X509_getm_notAfter(x), 3600L * 24 * 365);
  X509_NAME *name = X509_get_subject_name(x);
  X509_NAME_add_entry_by_txt(name, "O", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char *>("Tarnwick Tests"), -1, -1, 0);
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                             reinterpret_cast<const unsigned char *>(commonName), -1, -1, 0);
  require(X509_set_issuer_name(x, issuer ? X509_get_subject_name(issuer) : name), "issuer");
  require(X509_set_pubkey(x, key), "public key");
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, issuer ? issuer : x, x, nullptr, nullptr, 0);
  X509_EXTENSION *constraints = X509V3_EXT_conf_nid(nullptr, &context, NID_basic_constraints,
                                                    isAuthority ? "critical,CA:TRUE" : "CA:FALSE");
  require(constraints && X509_add_ext(x, constraints, -1), "extension");
  X509_EXTENSION_free(constraints);
  require(X509_sign(x, issuerKey, EVP_sha256()) > 0, "signature");
  return certificate;
}

std::string der(const X509 *certificate) {
  std::string out = vlt::ssl::encode(certificate, i2d_X509);
  require(!out.empty(), "certificate encoding");
  return out;
}

std::string der(const PKCS12 *container) {
  require(container != nullptr, "container");
  std::string out = vlt::ssl::encode(container, i2d_PKCS12);
  require(!out.empty(), "container encoding");
  return out;
}

std::string singleIdentity(const char *passphrase, EVP_PKEY *key, X509 *certificate,
                           std::initializer_list<X509 *> issuers) {
  STACK_OF(X509) *chain = sk_X509_new_null();
  for (X509 *issuer : issuers) sk_X509_push(chain, issuer);
  Pkcs12Ptr container(PKCS12_create(passphrase, "identity", key, certificate,
                                    issuers.size() ? chain : nullptr, 0, 0, 0, 0, 0));
  sk_X509_free(chain);
  return der(container.get());
}

// PKCS12_create takes one key; two identities need the container built bag by bag.
std::string twoIdentities(const char *passphrase, EVP_PKEY *firstKey, X509 *first,
                          EVP_PKEY *secondKey, X509 *second,
                          std::initializer_list<X509 *> issuers) {
  STACK_OF(PKCS12_SAFEBAG) *certificateBags = nullptr;
  STACK_OF(PKCS12_SAFEBAG) *keyBags = nullptr;
  STACK_OF(PKCS7) *safes = nullptr;
  bool ok = PKCS12_add_cert(&certificateBags, first) && PKCS12_add_cert(&certificateBags, second);
  for (X509 *issuer : issuers) ok = ok && PKCS12_add_cert(&certificateBags, issuer);
  ok = ok &&
       PKCS12_add_key(&keyBags, firstKey, 0, PKCS12_DEFAULT_ITER, NID_aes_256_cbc, passphrase) &&
       PKCS12_add_key(&keyBags, secondKey, 0, PKCS12_DEFAULT_ITER, NID_aes_256_cbc, passphrase) &&
       PKCS12_add_safe(&safes, certificateBags, NID_aes_256_cbc, PKCS12_DEFAULT_ITER, passphrase) &&
       PKCS12_add_safe(&safes, keyBags, -1, 0, nullptr);
  Pkcs12Ptr container(ok ? PKCS12_add_safes(safes, 0) : nullptr);
  sk_PKCS12_SAFEBAG_pop_free(certificateBags, PKCS12_SAFEBAG_free);
  sk_PKCS12_SAFEBAG_pop_free(keyBags, PKCS12_SAFEBAG_free);
  sk_PKCS7_pop_free(safes, PKCS7_free);
  require(container && PKCS12_set_mac(container.get(), passphrase, -1, nullptr, 0,
                                      PKCS12_DEFAULT_ITER, nullptr),
          "two-identity container");
  return der(container.get());
}

Pkcs12Fixtures makeFixtures() {
  Pkcs12Fixtures f;
  f.passphrase = "correct horse";
  KeyPtr caKey = makeKey(), intermediateKey = makeKey(), leafKey = makeKey(), secondKey = makeKey();
  X509Ptr ca = makeCertificate("Tarnwick Test CA", 1, caKey.get(), true, nullptr, caKey.get());
  X509Ptr intermediate = makeCertificate("Tarnwick Test Intermediate", 2, intermediateKey.get(),
                                         true, ca.get(), caKey.get());
  X509Ptr leaf = makeCertificate("vpn-client.example", 3, leafKey.get(), false, intermediate.get(),
                                 intermediateKey.get());
  X509Ptr second =
      makeCertificate("second-client.example", 4, secondKey.get(), false, ca.get(), caKey.get());
  f.caCertificate = der(ca.get());
  f.intermediateCertificate = der(intermediate.get());
  f.leafCertificate = der(leaf.get());
  f.secondLeafCertificate = der(second.get());
  const char *pass = f.passphrase.c_str();
  f.chainContainer =
      singleIdentity(pass, leafKey.get(), leaf.get(), {ca.get(), intermediate.get()});
  f.leafOnlyContainer = singleIdentity(pass, leafKey.get(), leaf.get(), {});
  f.twoIdentityContainer = twoIdentities(pass, leafKey.get(), leaf.get(), secondKey.get(),
                                         second.get(), {ca.get(), intermediate.get()});
  return f;
}

}  // namespace

const Pkcs12Fixtures &pkcs12Fixtures() {
  static const Pkcs12Fixtures fixtures = makeFixtures();
  return fixtures;
}

}  // namespace tw::test
