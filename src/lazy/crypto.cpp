// libcrypto, opened on first use: only a PKCS #12 import or a certificate
// read by the Coffer calls into it.
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pkcs12.h>
#include <openssl/provider.h>
#include <openssl/x509.h>

#include "lazy/library.hpp"

namespace {
constinit lazy::Library crypto("libcrypto.so.3");
}  // namespace

#define FORWARD(...) TW_LAZY(crypto, __VA_ARGS__)

// clang-format off
FORWARD(int, ASN1_INTEGER_get_int64, (int64_t *pr, const ASN1_INTEGER *a), (pr, a), 0)
FORWARD(int, ASN1_STRING_to_UTF8, (unsigned char **out, const ASN1_STRING *in), (out, in), 0)
FORWARD(void *, ASN1_TYPE_unpack_sequence, (const ASN1_ITEM *it, const ASN1_TYPE *t), (it, t), nullptr)
FORWARD(long, BIO_ctrl, (BIO *bp, int cmd, long larg, void *parg), (bp, cmd, larg, parg), 0)
FORWARD(int, BIO_free, (BIO *a), (a), 0)
FORWARD(BIO *, BIO_new, (const BIO_METHOD *type), (type), nullptr)
FORWARD(const BIO_METHOD *, BIO_s_mem, (), (), nullptr)
FORWARD(void, CRYPTO_free, (void *ptr, const char *file, int line), (ptr, file, line), )
FORWARD(void, ERR_clear_error, (), (), )
FORWARD(EVP_PKEY *, EVP_PKCS82PKEY_ex, (const PKCS8_PRIV_KEY_INFO *p8, OSSL_LIB_CTX *libctx, const char *propq), (p8, libctx, propq), nullptr)
FORWARD(PKCS8_PRIV_KEY_INFO *, EVP_PKEY2PKCS8, (const EVP_PKEY *pkey), (pkey), nullptr)
FORWARD(int, EVP_PKEY_eq, (const EVP_PKEY *a, const EVP_PKEY *b), (a, b), 0)
FORWARD(void, EVP_PKEY_free, (EVP_PKEY *pkey), (pkey), )
FORWARD(int, OBJ_obj2nid, (const ASN1_OBJECT *o), (o), 0)
FORWARD(void, OPENSSL_cleanse, (void *ptr, size_t len), (ptr, len), )
FORWARD(int, OPENSSL_sk_num, (const OPENSSL_STACK *a0), (a0), 0)
FORWARD(void, OPENSSL_sk_pop_free, (OPENSSL_STACK *st, void (*func)(void *)), (st, func), )
FORWARD(void *, OPENSSL_sk_value, (const OPENSSL_STACK *a0, int a1), (a0, a1), nullptr)
FORWARD(void, OSSL_LIB_CTX_free, (OSSL_LIB_CTX *a0), (a0), )
FORWARD(OSSL_LIB_CTX *, OSSL_LIB_CTX_new, (), (), nullptr)
FORWARD(OSSL_PROVIDER *, OSSL_PROVIDER_load, (OSSL_LIB_CTX *a0, const char *name), (a0, name), nullptr)
FORWARD(int, OSSL_PROVIDER_unload, (OSSL_PROVIDER *prov), (prov), 0)
FORWARD(void, PBE2PARAM_free, (PBE2PARAM *a), (a), )
FORWARD(const ASN1_ITEM *, PBE2PARAM_it, (), (), nullptr)
FORWARD(void, PBEPARAM_free, (PBEPARAM *a), (a), )
FORWARD(const ASN1_ITEM *, PBEPARAM_it, (), (), nullptr)
FORWARD(void, PBKDF2PARAM_free, (PBKDF2PARAM *a), (a), )
FORWARD(const ASN1_ITEM *, PBKDF2PARAM_it, (), (), nullptr)
FORWARD(void, PKCS12_SAFEBAG_free, (PKCS12_SAFEBAG *a), (a), )
FORWARD(const PKCS8_PRIV_KEY_INFO *, PKCS12_SAFEBAG_get0_p8inf, (const PKCS12_SAFEBAG *bag), (bag), nullptr)
FORWARD(const X509_SIG *, PKCS12_SAFEBAG_get0_pkcs8, (const PKCS12_SAFEBAG *bag), (bag), nullptr)
FORWARD(const struct stack_st_PKCS12_SAFEBAG *, PKCS12_SAFEBAG_get0_safes, (const PKCS12_SAFEBAG *bag), (bag), nullptr)
FORWARD(X509 *, PKCS12_SAFEBAG_get1_cert, (const PKCS12_SAFEBAG *bag), (bag), nullptr)
FORWARD(int, PKCS12_SAFEBAG_get_bag_nid, (const PKCS12_SAFEBAG *bag), (bag), 0)
FORWARD(int, PKCS12_SAFEBAG_get_nid, (const PKCS12_SAFEBAG *bag), (bag), 0)
FORWARD(PKCS8_PRIV_KEY_INFO *, PKCS12_decrypt_skey_ex, (const PKCS12_SAFEBAG *bag, const char *pass, int passlen, OSSL_LIB_CTX *ctx, const char *propq), (bag, pass, passlen, ctx, propq), nullptr)
FORWARD(void, PKCS12_free, (PKCS12 *a), (a), )
FORWARD(void, PKCS12_get0_mac, (const ASN1_OCTET_STRING **pmac, const X509_ALGOR **pmacalg, const ASN1_OCTET_STRING **psalt, const ASN1_INTEGER **piter, const PKCS12 *p12), (pmac, pmacalg, psalt, piter, p12), )
FORWARD(PKCS12 *, PKCS12_init_ex, (int mode, OSSL_LIB_CTX *ctx, const char *propq), (mode, ctx, propq), nullptr)
FORWARD(int, PKCS12_mac_present, (const PKCS12 *p12), (p12), 0)
FORWARD(struct stack_st_PKCS7 *, PKCS12_unpack_authsafes, (const PKCS12 *p12), (p12), nullptr)
FORWARD(struct stack_st_PKCS12_SAFEBAG *, PKCS12_unpack_p7data, (PKCS7 *p7), (p7), nullptr)
FORWARD(struct stack_st_PKCS12_SAFEBAG *, PKCS12_unpack_p7encdata, (PKCS7 *p7, const char *pass, int passlen), (p7, pass, passlen), nullptr)
FORWARD(int, PKCS12_verify_mac, (PKCS12 *p12, const char *pass, int passlen), (p12, pass, passlen), 0)
FORWARD(void, PKCS7_free, (PKCS7 *a), (a), )
FORWARD(void, PKCS8_PRIV_KEY_INFO_free, (PKCS8_PRIV_KEY_INFO *a), (a), )
FORWARD(ASN1_STRING *, X509_NAME_ENTRY_get_data, (const X509_NAME_ENTRY *ne), (ne), nullptr)
FORWARD(X509_NAME_ENTRY *, X509_NAME_get_entry, (const X509_NAME *name, int loc), (name, loc), nullptr)
FORWARD(int, X509_NAME_get_index_by_NID, (const X509_NAME *name, int nid, int lastpos), (name, nid, lastpos), 0)
FORWARD(int, X509_NAME_print_ex, (BIO *out, const X509_NAME *nm, int indent, unsigned long flags), (out, nm, indent, flags), 0)
FORWARD(void, X509_SIG_get0, (const X509_SIG *sig, const X509_ALGOR **palg, const ASN1_OCTET_STRING **pdigest), (sig, palg, pdigest), )
FORWARD(void, X509_free, (X509 *a), (a), )
FORWARD(EVP_PKEY *, X509_get0_pubkey, (const X509 *x), (x), nullptr)
FORWARD(const ASN1_INTEGER *, X509_get0_serialNumber, (const X509 *x), (x), nullptr)
FORWARD(X509_NAME *, X509_get_issuer_name, (const X509 *a), (a), nullptr)
FORWARD(X509_NAME *, X509_get_subject_name, (const X509 *a), (a), nullptr)
FORWARD(PKCS12 *, d2i_PKCS12, (PKCS12 **a, const unsigned char **in, long len), (a, in, len), nullptr)
FORWARD(X509 *, d2i_X509, (X509 **a, const unsigned char **in, long len), (a, in, len), nullptr)
FORWARD(int, i2d_ASN1_INTEGER, (const ASN1_INTEGER *a, unsigned char **out), (a, out), 0)
FORWARD(int, i2d_PKCS8_PRIV_KEY_INFO, (const PKCS8_PRIV_KEY_INFO *a, unsigned char **out), (a, out), 0)
FORWARD(int, i2d_X509, (const X509 *a, unsigned char **out), (a, out), 0)
FORWARD(int, i2d_X509_NAME, (const X509_NAME *a, unsigned char **out), (a, out), 0)
// clang-format on
