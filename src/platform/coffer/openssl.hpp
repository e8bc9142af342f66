// Owning holders for the OpenSSL objects the Coffer uses, so that every
// early return frees what it made.
#pragma once

#include <openssl/evp.h>
#include <openssl/pkcs12.h>
#include <openssl/x509.h>

#include <memory>
#include <string>

namespace vlt::ssl {

template <auto Free>
struct Deleter {
  template <typename T>
  void operator()(T *p) const {
    Free(p);
  }
};

using X509Ptr = std::unique_ptr<X509, Deleter<X509_free>>;
using PKeyPtr = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY_free>>;
using Pkcs12Ptr = std::unique_ptr<PKCS12, Deleter<PKCS12_free>>;
using Pkcs8Ptr = std::unique_ptr<PKCS8_PRIV_KEY_INFO, Deleter<PKCS8_PRIV_KEY_INFO_free>>;

inline void freePkcs7Stack(STACK_OF(PKCS7) * s) { sk_PKCS7_pop_free(s, PKCS7_free); }
inline void freeSafeBagStack(STACK_OF(PKCS12_SAFEBAG) * s) {
  sk_PKCS12_SAFEBAG_pop_free(s, PKCS12_SAFEBAG_free);
}
using Pkcs7StackPtr = std::unique_ptr<STACK_OF(PKCS7), Deleter<freePkcs7Stack>>;
using SafeBagStackPtr = std::unique_ptr<STACK_OF(PKCS12_SAFEBAG), Deleter<freeSafeBagStack>>;

// The DER form of an object through its i2d function; empty when it has none.
template <typename T, typename Encode>
std::string encode(const T *object, Encode i2d) {
  int length = i2d(object, nullptr);
  if (length <= 0) return {};
  std::string out(static_cast<size_t>(length), '\0');
  auto *cursor = reinterpret_cast<unsigned char *>(out.data());
  i2d(object, &cursor);
  return out;
}

}  // namespace vlt::ssl
