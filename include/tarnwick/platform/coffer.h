/*
 * The Coffer: the platform's secure credential store. Generic-password,
 * certificate and identity items, persistent references and PKCS #12
 * import. The store lives in the process's store directory
 * (ZNStoreGetDirectory) and is shared safely between processes.
 *
 * Every operation returns a VltStatus: 0 on success, -25299 when an equal
 * item is already stored, one of the negative codes below otherwise.
 */
#ifndef TARNWICK_PLATFORM_COFFER_H
#define TARNWICK_PLATFORM_COFFER_H

#include "tarnwick/platform/values.h"

TW_EXTERN_C_BEGIN

typedef int32_t VltStatus;

enum {
  kVltSuccess = 0,
  kVltErrorDuplicateItem = -25299,
  kVltErrorItemNotFound = -25300,
  kVltErrorParam = -25301,          /* a missing or ill-formed argument or attribute */
  kVltErrorAuthFailed = -25302,     /* wrong PKCS #12 passphrase */
  kVltErrorDecode = -25303,         /* a container that cannot be read */
  kVltErrorStore = -25304,          /* the database cannot be opened, read or written */
  kVltErrorInjected = -25399        /* failure planned through the testing interface */
};

/* A certificate (DER), an identity (a certificate with its private key),
 * and a trust (a certificate chain, leaf first). Reference-counted values. */
typedef const struct VltCertificate *VltCertificateRef;
typedef const struct VltIdentity *VltIdentityRef;
typedef const struct VltTrust *VltTrustRef;

/* Finds the one item the query matches (absent attributes match any value;
 * the first stored wins). kVltReturnData = true yields the secret data (for
 * a certificate or identity item, the certificate's DER),
 * kVltReturnPersistentRef = true the persistent reference; kVltValueRef in
 * the query finds the stored item of that object. kVltReturnAttributes =
 * true, or both of the others, yields a dictionary of the item's class,
 * string attributes and accessibility (its object under kVltValueRef for a
 * certificate or identity), plus kVltValueData and kVltValuePersistentRef
 * when asked for. No return key yields the persistent reference. `result`
 * may be NULL to test for a match. Ownership of *result: create. */
TW_EXPORT VltStatus VltItemCopyMatching(PVDictionaryRef query, PVTypeRef *result) TW_NOEXCEPT;
/* Every item the query matches (an empty query matches every item), in the
 * order they were stored: an array, empty when none matches, of one
 * dictionary per item as VltItemCopyMatching yields it for
 * kVltReturnAttributes = true, always with kVltValuePersistentRef, and with
 * kVltValueData when kVltReturnData = true. Ownership of *items: create. */
TW_EXPORT VltStatus VltItemCopyAllMatching(PVDictionaryRef query, PVArrayRef *items) TW_NOEXCEPT;
/* Stores a new item: a generic password (kVltClass, string attributes,
 * kVltValueData) or the object under kVltValueRef. kVltAttrAccessible
 * defaults to kVltAttrAccessibleWhenUnlocked. kVltReturnPersistentRef = true
 * yields its persistent reference in *result (ownership: create); otherwise
 * *result stays NULL. */
TW_EXPORT VltStatus VltItemAdd(PVDictionaryRef attributes, PVTypeRef *result) TW_NOEXCEPT;
/* Changes the listed attributes (or kVltValueData) of every matching item.
 * An empty query is refused (kVltErrorParam). */
TW_EXPORT VltStatus VltItemUpdate(PVDictionaryRef query, PVDictionaryRef attributesToUpdate) TW_NOEXCEPT;
/* Deletes every matching item; kVltValuePersistentRef names exactly one.
 * An empty query is refused (kVltErrorParam). */
TW_EXPORT VltStatus VltItemDelete(PVDictionaryRef query) TW_NOEXCEPT;
/* A batch: the process's Coffer writes from VltBatchBegin to VltBatchCommit
 * go into one transaction, made durable once, at the commit. Calls inside
 * a batch behave as they do outside it (the same results and status codes;
 * a read sees the batch's own writes; a write that fails undoes only
 * itself). VltBatchCancel, a commit that fails, or the end of the process
 * before the commit leaves the Coffer as it was before the batch. The
 * batch holds the Coffer's write lock from its begin (which waits for
 * another process's write, as a write does) to its end, so other
 * processes' writes wait for it: keep it short. One batch at a time per
 * process: kVltErrorParam for a begin while one is open, and for a commit
 * or cancel without one. */
TW_EXPORT VltStatus VltBatchBegin(void) TW_NOEXCEPT;
TW_EXPORT VltStatus VltBatchCommit(void) TW_NOEXCEPT;
TW_EXPORT VltStatus VltBatchCancel(void) TW_NOEXCEPT;
/* Decodes a container with the passphrase in options[kVltImportExportPassphrase]
 * into an array of dictionaries, one per identity, each holding
 * kVltImportItemIdentity and kVltImportItemTrust. Stores nothing.
 * Ownership of *items: create. */
TW_EXPORT VltStatus VltPKCS12Import(PVDataRef container, PVDictionaryRef options,
                                    PVArrayRef *items) TW_NOEXCEPT;
TW_EXPORT PVIndex VltTrustGetCertificateCount(VltTrustRef trust) TW_NOEXCEPT;
/* Ownership: get (borrowed from the trust). */
TW_EXPORT VltCertificateRef VltTrustGetCertificateAtIndex(VltTrustRef trust, PVIndex index) TW_NOEXCEPT;
/* Ownership: create. */
TW_EXPORT VltCertificateRef VltCertificateCreateWithData(PVDataRef der) TW_NOEXCEPT;
/* The DER encoding. Ownership: copy. */
TW_EXPORT PVDataRef VltCertificateCopyData(VltCertificateRef certificate) TW_NOEXCEPT;
/* The certificate's subject as one line of text. Ownership: copy. */
TW_EXPORT PVStringRef VltCertificateCopySubjectSummary(VltCertificateRef certificate) TW_NOEXCEPT;
/* The DER encoding of the certificate's subject name, and of its issuer's
 * name: a certificate's issuer name is its issuer's subject name, which is
 * how a chain is followed. Ownership: copy. */
TW_EXPORT PVDataRef VltCertificateCopySubjectName(VltCertificateRef certificate) TW_NOEXCEPT;
TW_EXPORT PVDataRef VltCertificateCopyIssuerName(VltCertificateRef certificate) TW_NOEXCEPT;
/* Ownership: copy. */
TW_EXPORT VltStatus VltIdentityCopyCertificate(VltIdentityRef identity,
                                               VltCertificateRef *certificate) TW_NOEXCEPT;

/* Item classes and attribute keys. */
TW_EXPORT extern const PVStringRef kVltClass;
TW_EXPORT extern const PVStringRef kVltClassGenericPassword;
TW_EXPORT extern const PVStringRef kVltClassCertificate;
TW_EXPORT extern const PVStringRef kVltClassIdentity;
TW_EXPORT extern const PVStringRef kVltAttrService;
TW_EXPORT extern const PVStringRef kVltAttrAccount;
TW_EXPORT extern const PVStringRef kVltAttrLabel;
TW_EXPORT extern const PVStringRef kVltAttrDescription;
TW_EXPORT extern const PVStringRef kVltAttrAccessible;
TW_EXPORT extern const PVStringRef kVltAttrAccessibleAfterFirstUnlock;
TW_EXPORT extern const PVStringRef kVltAttrAccessibleWhenUnlocked;
/* Values and result requests. */
TW_EXPORT extern const PVStringRef kVltValueData;
TW_EXPORT extern const PVStringRef kVltValueRef;
TW_EXPORT extern const PVStringRef kVltValuePersistentRef;
TW_EXPORT extern const PVStringRef kVltReturnData;
TW_EXPORT extern const PVStringRef kVltReturnPersistentRef;
TW_EXPORT extern const PVStringRef kVltReturnAttributes;
/* PKCS #12 import. */
TW_EXPORT extern const PVStringRef kVltImportExportPassphrase;
TW_EXPORT extern const PVStringRef kVltImportItemIdentity;
TW_EXPORT extern const PVStringRef kVltImportItemTrust;

TW_EXTERN_C_END

#endif /* TARNWICK_PLATFORM_COFFER_H */
