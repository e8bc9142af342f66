#include "support/pkcs12_fixtures.hpp"

#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <vector>

#include "platform/coffer/openssl.hpp"
#include "support/test_support.hpp"

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

// Where a container claims an absurd iteration count.
enum class Claim { None, Mac, CertificateSafe, ShroudedKey };

// Writes `count` into a password-based algorithm's parameters (PKCS #12 or
// PKCS #5 v1, or PBES2 with PBKDF2).
void claimIterations(X509_ALGOR *algorithm, long count) {
  ASN1_TYPE **parameter = &algorithm->parameter;
  if (OBJ_obj2nid(algorithm->algorithm) == NID_pbes2) {
    std::unique_ptr<PBE2PARAM, vlt::ssl::Deleter<PBE2PARAM_free>> pbe2(
        static_cast<PBE2PARAM *>(ASN1_TYPE_unpack_sequence(ASN1_ITEM_rptr(PBE2PARAM), *parameter)));
    require(pbe2 != nullptr, "PBES2 parameters");
    std::unique_ptr<PBKDF2PARAM, vlt::ssl::Deleter<PBKDF2PARAM_free>> kdf(
        static_cast<PBKDF2PARAM *>(
            ASN1_TYPE_unpack_sequence(ASN1_ITEM_rptr(PBKDF2PARAM), pbe2->keyfunc->parameter)));
    require(kdf && ASN1_INTEGER_set(kdf->iter, count) &&
                ASN1_TYPE_pack_sequence(ASN1_ITEM_rptr(PBKDF2PARAM), kdf.get(),
                                        &pbe2->keyfunc->parameter) &&
                ASN1_TYPE_pack_sequence(ASN1_ITEM_rptr(PBE2PARAM), pbe2.get(), parameter),
            "PBKDF2 claim");
    return;
  }
  std::unique_ptr<PBEPARAM, vlt::ssl::Deleter<PBEPARAM_free>> pbe(
      static_cast<PBEPARAM *>(ASN1_TYPE_unpack_sequence(ASN1_ITEM_rptr(PBEPARAM), *parameter)));
  require(pbe && ASN1_INTEGER_set(pbe->iter, count) &&
              ASN1_TYPE_pack_sequence(ASN1_ITEM_rptr(PBEPARAM), pbe.get(), parameter),
          "PBE claim");
}

struct Recipe {
  std::vector<EVP_PKEY *> keys;
  std::vector<X509 *> certificates;
  int keyCipher = NID_aes_256_cbc;
  int certificateCipher = NID_aes_256_cbc;  // -1: a plain safe
  bool mac = true;
  Claim claim = Claim::None;
};

// A container built bag by bag (PKCS12_create takes one key): the
// certificates in one safe, the shrouded keys in a plain one.
std::string build(const char *passphrase, const Recipe &recipe) {
  STACK_OF(PKCS12_SAFEBAG) *certificateBags = nullptr;
  STACK_OF(PKCS12_SAFEBAG) *keyBags = nullptr;
  STACK_OF(PKCS7) *safes = nullptr;
  bool ok = true;
  for (X509 *certificate : recipe.certificates) {
    ok = ok && PKCS12_add_cert(&certificateBags, certificate);
  }
  for (EVP_PKEY *key : recipe.keys) {
    ok = ok && PKCS12_add_key(&keyBags, key, 0, PKCS12_DEFAULT_ITER, recipe.keyCipher, passphrase);
  }
  ok = ok && PKCS12_add_safe(&safes, certificateBags, recipe.certificateCipher, PKCS12_DEFAULT_ITER,
                             passphrase);
  if (ok && recipe.claim == Claim::CertificateSafe) {
    claimIterations(sk_PKCS7_value(safes, 0)->d.encrypted->enc_data->algorithm, kAbsurdIterations);
  }
  if (ok && recipe.claim == Claim::ShroudedKey) {
    X509_ALGOR *algorithm = nullptr;
    auto *shrouded =
        const_cast<X509_SIG *>(PKCS12_SAFEBAG_get0_pkcs8(sk_PKCS12_SAFEBAG_value(keyBags, 0)));
    X509_SIG_getm(shrouded, &algorithm, nullptr);
    claimIterations(algorithm, kAbsurdIterations);
  }
  ok = ok && PKCS12_add_safe(&safes, keyBags, -1, 0, nullptr);
  Pkcs12Ptr container(ok ? PKCS12_add_safes(safes, 0) : nullptr);
  sk_PKCS12_SAFEBAG_pop_free(certificateBags, PKCS12_SAFEBAG_free);
  sk_PKCS12_SAFEBAG_pop_free(keyBags, PKCS12_SAFEBAG_free);
  sk_PKCS7_pop_free(safes, PKCS7_free);
  require(container && (!recipe.mac || PKCS12_set_mac(container.get(), passphrase, -1, nullptr, 0,
                                                      PKCS12_DEFAULT_ITER, nullptr)),
          "container");
  if (recipe.claim == Claim::Mac) {
    const ASN1_INTEGER *iterations = nullptr;
    PKCS12_get0_mac(nullptr, nullptr, nullptr, &iterations, container.get());
    require(
        iterations && ASN1_INTEGER_set(const_cast<ASN1_INTEGER *>(iterations), kAbsurdIterations),
        "MAC claim");
  }
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
  f.twoIdentityContainer =
      build(pass, {.keys = {leafKey.get(), secondKey.get()},
                   .certificates = {leaf.get(), second.get(), ca.get(), intermediate.get()}});
  f.absurdMacIterations =
      build(pass, {.keys = {leafKey.get()}, .certificates = {leaf.get()}, .claim = Claim::Mac});
  f.absurdSafeIterations = build(pass, {.keys = {leafKey.get()},
                                        .certificates = {leaf.get()},
                                        .mac = false,
                                        .claim = Claim::CertificateSafe});
  f.absurdKeyIterations = build(pass, {.keys = {leafKey.get()},
                                       .certificates = {leaf.get()},
                                       .keyCipher = NID_pbe_WithSHA1And3_Key_TripleDES_CBC,
                                       .certificateCipher = -1,
                                       .mac = false,
                                       .claim = Claim::ShroudedKey});
  return f;
}

}  // namespace

const Pkcs12Fixtures &pkcs12Fixtures() {
  static const Pkcs12Fixtures fixtures = makeFixtures();
  return fixtures;
}

const LegacyContainer &legacyContainer() {
  static const LegacyContainer made = [] {
    const char *tmp = std::getenv("TMPDIR");
    std::string directory = std::string(tmp && *tmp ? tmp : "/tmp") + "/tarnwick-legacy-XXXXXX";
    require(mkdtemp(directory.data()) != nullptr, "temporary directory");
    KeyPtr key = makeKey();
    X509Ptr certificate =
        makeCertificate("legacy-client.example", 5, key.get(), false, nullptr, key.get());
    std::string keyFile = directory + "/key.pem", certificateFile = directory + "/cert.pem",
                containerFile = directory + "/legacy.p12";
    FILE *out = std::fopen(keyFile.c_str(), "w");
    bool written =
        out && PEM_write_PrivateKey(out, key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    if (out) std::fclose(out);
    out = std::fopen(certificateFile.c_str(), "w");
    written = written && out && PEM_write_X509(out, certificate.get());
    if (out) std::fclose(out);
    std::string command = "openssl pkcs12 -export -legacy -inkey '" + keyFile + "' -in '" +
                          certificateFile + "' -passout 'pass:" + pkcs12Fixtures().passphrase +
                          "' -out '" + containerFile + "'";
    bool exported = written && std::system(command.c_str()) == 0;
    LegacyContainer legacy{fileBytes(containerFile), der(certificate.get())};
    std::filesystem::remove_all(directory);
    require(exported && !legacy.container.empty(), "openssl pkcs12 -export -legacy");
    return legacy;
  }();
  return made;
}

}  // namespace tw::test
