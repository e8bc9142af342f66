// PKCS #12 import: a container's identities (a certificate with its private
// key) and, for each, its chain built from the container's certificates.
// The import stores nothing; the caller adds what it wants to keep.
#include <openssl/err.h>

#include <vector>

#include "platform/coffer/objects.hpp"
#include "platform/coffer/pkcs12_decode.hpp"
#include "platform/coffer/run.hpp"
#include "platform/testing/fault.hpp"

namespace {

using namespace vlt::ssl;

// The chain of `leaf`: the leaf, then repeatedly the certificate whose
// subject is the last one's issuer, until a self-signed one or none is found.
pv::Ref<PVTypeRef> createTrust(const pv::Ref<VltCertificateRef> &leaf,
                               const std::vector<pv::Ref<VltCertificateRef>> &candidates) {
  std::vector<pv::Ref<VltCertificateRef>> chain{leaf};
  for (;;) {
    const VltCertificate *last = chain.back().get();
    if (last->issuerName == last->subjectName) break;
    const pv::Ref<VltCertificateRef> *issuer = nullptr;
    for (const auto &candidate : candidates) {
      bool used = false;
      for (const auto &link : chain) used = used || PVEqual(link.get(), candidate.get());
      if (!used && candidate.get()->subjectName == last->issuerName) {
        issuer = &candidate;
        break;
      }
    }
    if (!issuer) break;
    chain.push_back(*issuer);
  }
  return pv::Ref<PVTypeRef>::adopt(new VltTrust(std::move(chain)));
}

// One dictionary per private key whose certificate is in the container.
VltStatus createItems(const vlt::Pkcs12Contents &contents, PVArrayRef *items) {
  std::vector<pv::Ref<VltCertificateRef>> certificates;
  for (const auto &x509 : contents.certificates) {
    auto certificate =
        pv::Ref<VltCertificateRef>::adopt(vlt::createCertificate(encode(x509.get(), i2d_X509)));
    if (!certificate) return kVltErrorDecode;
    certificates.push_back(std::move(certificate));
  }
  auto array = pv::Ref<PVMutableArrayRef>::adopt(PVArrayCreateMutable());
  if (!array) return kVltErrorStore;
  for (const auto &key : contents.keys) {
    size_t leaf = 0;
    while (leaf < certificates.size() &&
           EVP_PKEY_eq(X509_get0_pubkey(contents.certificates[leaf].get()), key.get()) != 1) {
      ++leaf;
    }
    if (leaf == certificates.size()) continue;  // a key without its certificate
    Pkcs8Ptr info(EVP_PKEY2PKCS8(key.get()));
    std::string privateKey = info ? encode(info.get(), i2d_PKCS8_PRIV_KEY_INFO) : std::string();
    if (privateKey.empty()) return kVltErrorDecode;
    auto identity =
        pv::Ref<PVTypeRef>::adopt(new VltIdentity(certificates[leaf], std::move(privateKey)));
    pv::Ref<PVTypeRef> trust = createTrust(certificates[leaf], certificates);
    const PVTypeRef keys[] = {kVltImportItemIdentity, kVltImportItemTrust};
    const PVTypeRef values[] = {identity.get(), trust.get()};
    auto item = pv::Ref<PVDictionaryRef>::adopt(PVDictionaryCreate(keys, values, 2));
    if (!item) return kVltErrorStore;
    PVArrayAppendValue(array.get(), item.get());
  }
  *items = array.release();
  return kVltSuccess;
}

}  // namespace

extern "C" VltStatus VltPKCS12Import(PVDataRef container, PVDictionaryRef options,
                                     PVArrayRef *items) noexcept {
  if (pt::enter("VltPKCS12Import", pt::Family::Coffer)) return kVltErrorInjected;
  if (PVGetTypeID(container) != PVDataGetTypeID() ||
      PVGetTypeID(options) != PVDictionaryGetTypeID() || !items) {
    return kVltErrorParam;
  }
  auto passphrase =
      static_cast<PVStringRef>(PVDictionaryGetValue(options, kVltImportExportPassphrase));
  if (PVGetTypeID(passphrase) != PVStringGetTypeID()) return kVltErrorParam;
  VltStatus status = platform::guarded([&] {
    std::string_view bytes(reinterpret_cast<const char *>(PVDataGetBytePtr(container)),
                           static_cast<size_t>(PVDataGetLength(container)));
    std::string text(PVStringGetCStringPtr(passphrase),
                     static_cast<size_t>(PVStringGetUTF8Length(passphrase)));
    vlt::Pkcs12Contents contents;
    VltStatus decoded = vlt::decodePkcs12(bytes, text, contents);
    if (!decoded) decoded = createItems(contents, items);
    OPENSSL_cleanse(text.data(), text.size());
    return decoded;
  }, [] { return vlt::currentStatus(); });
  // What OpenSSL queued while failing is of no use to the next caller.
  ERR_clear_error();
  return status;
}
