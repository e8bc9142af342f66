// PKCS #12 import: a container's identities (a certificate with its private
// key) and, for each, its chain built from the container's certificates.
// The import stores nothing; the caller adds what it wants to keep.
#include <openssl/err.h>

#include <vector>

#include "platform/coffer/objects.hpp"
#include "platform/coffer/openssl.hpp"
#include "platform/support/fault.hpp"

namespace {

using namespace vlt::ssl;

constexpr int kMaxNesting = 8;  // safe-contents bags inside bags

struct Passphrase {
  const char *text;
  int length;
};

struct Contents {
  std::vector<PKeyPtr> keys;
  std::vector<X509Ptr> certificates;
};

VltStatus collectBags(const STACK_OF(PKCS12_SAFEBAG) * bags, Passphrase passphrase,
                      Contents &contents, int depth) {
  if (depth > kMaxNesting) return kVltErrorDecode;
  for (int i = 0; i < sk_PKCS12_SAFEBAG_num(bags); ++i) {
    const PKCS12_SAFEBAG *bag = sk_PKCS12_SAFEBAG_value(bags, i);
    switch (PKCS12_SAFEBAG_get_nid(bag)) {
      case NID_keyBag: {
        PKeyPtr key(EVP_PKCS82PKEY(PKCS12_SAFEBAG_get0_p8inf(bag)));
        if (!key) return kVltErrorDecode;
        contents.keys.push_back(std::move(key));
        break;
      }
      case NID_pkcs8ShroudedKeyBag: {
        Pkcs8Ptr info(PKCS12_decrypt_skey(bag, passphrase.text, passphrase.length));
        PKeyPtr key(info ? EVP_PKCS82PKEY(info.get()) : nullptr);
        if (!key) return kVltErrorDecode;
        contents.keys.push_back(std::move(key));
        break;
      }
      case NID_certBag:
        if (PKCS12_SAFEBAG_get_bag_nid(bag) == NID_x509Certificate) {
          X509Ptr certificate(PKCS12_SAFEBAG_get1_cert(bag));
          if (!certificate) return kVltErrorDecode;
          contents.certificates.push_back(std::move(certificate));
        }
        break;
      case NID_safeContentsBag:
        if (VltStatus status =
                collectBags(PKCS12_SAFEBAG_get0_safes(bag), passphrase, contents, depth + 1)) {
          return status;
        }
        break;
      default:  // CRLs and secrets carry nothing an identity needs
        break;
    }
  }
  return kVltSuccess;
}

VltStatus decode(std::string_view bytes, const std::string &passphraseText, Contents &contents) {
  auto *cursor = reinterpret_cast<const unsigned char *>(bytes.data());
  Pkcs12Ptr container(d2i_PKCS12(nullptr, &cursor, static_cast<long>(bytes.size())));
  if (!container) return kVltErrorDecode;

  Passphrase passphrase{passphraseText.c_str(), static_cast<int>(passphraseText.size())};
  bool macPresent = PKCS12_mac_present(container.get());
  if (macPresent && !PKCS12_verify_mac(container.get(), passphrase.text, passphrase.length)) {
    // An empty passphrase may have been encoded as none at all.
    if (!passphraseText.empty() || !PKCS12_verify_mac(container.get(), nullptr, 0)) {
      return kVltErrorAuthFailed;
    }
    passphrase = {nullptr, 0};
  }

  Pkcs7StackPtr safes(PKCS12_unpack_authsafes(container.get()));
  if (!safes) return kVltErrorDecode;
  for (int i = 0; i < sk_PKCS7_num(safes.get()); ++i) {
    PKCS7 *safe = sk_PKCS7_value(safes.get(), i);
    SafeBagStackPtr bags;
    if (PKCS7_type_is_data(safe)) {
      bags.reset(PKCS12_unpack_p7data(safe));
    } else if (PKCS7_type_is_encrypted(safe)) {
      bags.reset(PKCS12_unpack_p7encdata(safe, passphrase.text, passphrase.length));
      // Without a MAC, failing to decrypt is the only sign of a wrong passphrase.
      if (!bags && !macPresent) return kVltErrorAuthFailed;
    } else {
      continue;
    }
    if (!bags) return kVltErrorDecode;
    if (VltStatus status = collectBags(bags.get(), passphrase, contents, 0)) return status;
  }
  return kVltSuccess;
}

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
VltStatus createItems(const Contents &contents, PVArrayRef *items) {
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
  VltStatus status;
  try {
    std::string_view bytes(reinterpret_cast<const char *>(PVDataGetBytePtr(container)),
                           static_cast<size_t>(PVDataGetLength(container)));
    std::string text(PVStringGetCStringPtr(passphrase),
                     static_cast<size_t>(PVStringGetUTF8Length(passphrase)));
    Contents contents;
    status = decode(bytes, text, contents);
    if (!status) status = createItems(contents, items);
    OPENSSL_cleanse(text.data(), text.size());
  } catch (...) {
    status = kVltErrorStore;
  }
  // What OpenSSL queued while failing is of no use to the next caller.
  ERR_clear_error();
  return status;
}
