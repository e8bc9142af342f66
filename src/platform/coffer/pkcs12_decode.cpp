// Decoding PKCS #12 containers, those of older tools included.
//
// Containers made by older tools (and by default by many exporters still)
// encrypt with RC2-40 and 3DES, which OpenSSL keeps in its legacy provider.
// The import loads it, beside the default provider, in a library context
// of its own: the host application's use of OpenSSL never sees a provider
// it did not load.
//
// Every iteration count (the MAC's, each encrypted safe's, each shrouded
// key's) is read before any key is derived from it, so that a container
// asking for an absurd count is refused at once instead of stalling the
// caller for seconds per attempt.
#include "platform/coffer/pkcs12_decode.hpp"

#include <openssl/provider.h>

#include <cstdint>

namespace vlt {

namespace {

using namespace ssl;

// Real exporters use 2,048 to 600,000; one million already costs seconds.
constexpr int64_t kMaxIterations = 1000000;
constexpr int kMaxNesting = 8;  // safe-contents bags inside bags

class ImportContext {
 public:
  ImportContext() : context_(OSSL_LIB_CTX_new()) {
    if (!context_) return;
    default_ = OSSL_PROVIDER_load(context_, "default");
    legacy_ = OSSL_PROVIDER_load(context_, "legacy");  // without it, modern containers still work
  }
  ImportContext(const ImportContext &) = delete;
  ImportContext &operator=(const ImportContext &) = delete;
  ~ImportContext() {
    if (legacy_) OSSL_PROVIDER_unload(legacy_);
    if (default_) OSSL_PROVIDER_unload(default_);
    OSSL_LIB_CTX_free(context_);
  }
  OSSL_LIB_CTX *get() const { return default_ ? context_ : nullptr; }

 private:
  OSSL_LIB_CTX *context_;
  OSSL_PROVIDER *default_ = nullptr;
  OSSL_PROVIDER *legacy_ = nullptr;
};

OSSL_LIB_CTX *importContext() {
  static const ImportContext context;
  return context.get();
}

template <typename T, auto Free>
using Unpacked = std::unique_ptr<T, Deleter<Free>>;

template <typename T, auto Free>
Unpacked<T, Free> unpack(const ASN1_ITEM *item, const ASN1_TYPE *parameter) {
  if (!parameter || parameter->type != V_ASN1_SEQUENCE) return nullptr;
  return Unpacked<T, Free>(static_cast<T *>(ASN1_TYPE_unpack_sequence(item, parameter)));
}

bool acceptableCount(const ASN1_INTEGER *count) {
  int64_t value = 1;  // an absent count means one iteration
  return !count || (ASN1_INTEGER_get_int64(&value, count) == 1 && value <= kMaxIterations);
}

// Whether a password-based encryption algorithm (PKCS #12 or PKCS #5 v1
// parameters, or PBES2 with PBKDF2) asks for an acceptable count. Other
// algorithms carry no count: their own checks decide.
bool acceptableIterations(const X509_ALGOR *algorithm) {
  if (!algorithm) return true;
  if (OBJ_obj2nid(algorithm->algorithm) != NID_pbes2) {
    auto pbe = unpack<PBEPARAM, PBEPARAM_free>(ASN1_ITEM_rptr(PBEPARAM), algorithm->parameter);
    return !pbe || acceptableCount(pbe->iter);
  }
  auto pbe2 = unpack<PBE2PARAM, PBE2PARAM_free>(ASN1_ITEM_rptr(PBE2PARAM), algorithm->parameter);
  if (!pbe2 || !pbe2->keyfunc || OBJ_obj2nid(pbe2->keyfunc->algorithm) != NID_id_pbkdf2) {
    return true;
  }
  auto kdf =
      unpack<PBKDF2PARAM, PBKDF2PARAM_free>(ASN1_ITEM_rptr(PBKDF2PARAM), pbe2->keyfunc->parameter);
  return !kdf || acceptableCount(kdf->iter);
}

struct Passphrase {
  const char *text;
  int length;
  bool macChecked;  // without a MAC, failing to decrypt is the only sign of a wrong one
};

VltStatus collectBags(const STACK_OF(PKCS12_SAFEBAG) * bags, const Passphrase &passphrase,
                      Pkcs12Contents &contents, int depth) {
  if (depth > kMaxNesting) return kVltErrorDecode;
  for (int i = 0; i < sk_PKCS12_SAFEBAG_num(bags); ++i) {
    const PKCS12_SAFEBAG *bag = sk_PKCS12_SAFEBAG_value(bags, i);
    switch (PKCS12_SAFEBAG_get_nid(bag)) {
      case NID_keyBag: {
        PKeyPtr key(EVP_PKCS82PKEY_ex(PKCS12_SAFEBAG_get0_p8inf(bag), importContext(), nullptr));
        if (!key) return kVltErrorDecode;
        contents.keys.push_back(std::move(key));
        break;
      }
      case NID_pkcs8ShroudedKeyBag: {
        const X509_ALGOR *algorithm = nullptr;
        X509_SIG_get0(PKCS12_SAFEBAG_get0_pkcs8(bag), &algorithm, nullptr);
        if (!acceptableIterations(algorithm)) return kVltErrorDecode;
        Pkcs8Ptr info(PKCS12_decrypt_skey_ex(bag, passphrase.text, passphrase.length,
                                             importContext(), nullptr));
        if (!info && !passphrase.macChecked) return kVltErrorAuthFailed;
        PKeyPtr key(info ? EVP_PKCS82PKEY_ex(info.get(), importContext(), nullptr) : nullptr);
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

// Reads the container into an object bound to the import's library
// context, which its MAC check and decryption then use.
Pkcs12Ptr read(std::string_view bytes) {
  OSSL_LIB_CTX *context = importContext();
  PKCS12 *made = context ? PKCS12_init_ex(NID_pkcs7_data, context, nullptr) : nullptr;
  if (!made) return nullptr;
  auto *cursor = reinterpret_cast<const unsigned char *>(bytes.data());
  // Fills `made` in place; frees it on failure.
  return Pkcs12Ptr(d2i_PKCS12(&made, &cursor, static_cast<long>(bytes.size())));
}

}  // namespace

VltStatus decodePkcs12(std::string_view bytes, const std::string &passphraseText,
                       Pkcs12Contents &contents) {
  Pkcs12Ptr container = read(bytes);
  if (!container) return kVltErrorDecode;

  Passphrase passphrase{passphraseText.c_str(), static_cast<int>(passphraseText.size()),
                        PKCS12_mac_present(container.get()) == 1};
  if (passphrase.macChecked) {
    const ASN1_INTEGER *iterations = nullptr;
    PKCS12_get0_mac(nullptr, nullptr, nullptr, &iterations, container.get());
    if (!acceptableCount(iterations)) return kVltErrorDecode;
    if (!PKCS12_verify_mac(container.get(), passphrase.text, passphrase.length)) {
      // An empty passphrase may have been encoded as none at all.
      if (!passphraseText.empty() || !PKCS12_verify_mac(container.get(), nullptr, 0)) {
        return kVltErrorAuthFailed;
      }
      passphrase.text = nullptr;
      passphrase.length = 0;
    }
  }

  Pkcs7StackPtr safes(PKCS12_unpack_authsafes(container.get()));
  if (!safes) return kVltErrorDecode;
  for (int i = 0; i < sk_PKCS7_num(safes.get()); ++i) {
    PKCS7 *safe = sk_PKCS7_value(safes.get(), i);
    SafeBagStackPtr bags;
    if (PKCS7_type_is_data(safe)) {
      bags.reset(PKCS12_unpack_p7data(safe));
    } else if (PKCS7_type_is_encrypted(safe)) {
      const PKCS7_ENC_CONTENT *content = safe->d.encrypted ? safe->d.encrypted->enc_data : nullptr;
      if (!content || !acceptableIterations(content->algorithm)) return kVltErrorDecode;
      bags.reset(PKCS12_unpack_p7encdata(safe, passphrase.text, passphrase.length));
      if (!bags && !passphrase.macChecked) return kVltErrorAuthFailed;
    } else {
      continue;
    }
    if (!bags) return kVltErrorDecode;
    if (VltStatus status = collectBags(bags.get(), passphrase, contents, 0)) return status;
  }
  return kVltSuccess;
}

}  // namespace vlt
