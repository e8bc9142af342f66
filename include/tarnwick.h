/*
 * Tarnwick: install, inspect, change and remove VPN configurations.
 *
 * Some conventions:
 *  1. Names: JXVPN + object + operation (JXVPNServiceSetSharedSecret), or
 *     JXCoffer + operation for the credential-store layer. Constants start
 *     with k.
 *  2. Argument order: the object first (service or payload), then keys, then
 *     values, then a type. The Coffer functions take their item strings in
 *     the order service, account, label, description.
 *  3. Ownership: a function whose name holds Create or Copy returns a value
 *     the caller releases with PVRelease; Get returns a value borrowed from
 *     its owner (the preferences session, the dictionary it came from),
 *     valid while that owner lives and is not changed. Each declaration
 *     ends with its ownership word.
 *  4. Failure is told by the result alone: NULL, false, or nothing. There
 *     are no error codes; nothing is thrown.
 *  5. The library keeps no handle beyond a call and takes no lock of its
 *     own: one preferences session is used from one thread at a time, and
 *     nothing is permanent until the caller commits and applies it.
 */
#ifndef TARNWICK_H
#define TARNWICK_H

#include "tarnwick/platform/coffer.h"
#include "tarnwick/platform/json.h"
#include "tarnwick/platform/notify.h"
#include "tarnwick/platform/prefs.h"
#include "tarnwick/platform/values.h"

TW_EXTERN_C_BEGIN

/* ---- constants ---------------------------------------------------------- */

/* Payload keys, declared as constant pointers to constant strings. */
TW_EXPORT extern const PVStringRef kJXVPNPayloadRootKey;                   /* "PayloadRoot" */
TW_EXPORT extern const PVStringRef kJXVPNPayloadCertificateUUIDKey;        /* "PayloadCertificateUUID" */
TW_EXPORT extern const PVStringRef kJXVPNPayloadCertificateIdentityUUIDKey; /* "PayloadCertificateIdentityUUID" */
TW_EXPORT extern const PVStringRef kJXPayloadOrganizationKey;              /* "PayloadOrganization" */
TW_EXPORT extern const PVStringRef kJXPayloadIdentifierKey;                /* "PayloadIdentifier" */

/* The other constants: pointer variables the library never assigns.
 * kJXVPNPropNetIPSecOnDemandSupported and kJXVPNPropNetVPNOnDemandSupported
 * are one and the same object. */
TW_EXPORT extern PVStringRef kJXVPNTypeKey;                                /* "VPNType" */
TW_EXPORT extern PVStringRef kJXVPNSubTypeKey;                             /* "VPNSubType" */
TW_EXPORT extern PVStringRef kJXVPNVendorConfigKey;                        /* "VendorConfig" */
TW_EXPORT extern PVStringRef kJXVPNEncryptedIPSecSharedSecretKey;          /* "IPSecSharedSecretObf" */
TW_EXPORT extern PVStringRef kJXVPNExportedIPSecSharedSecretKey;           /* "ExportedSharedSecret" */
TW_EXPORT extern PVStringRef kJXVPNPropNetIPSecOnDemandSupported;          /* "OnDemandSupported" */
TW_EXPORT extern PVStringRef kJXVPNPropNetVPNOnDemandSupported;            /* "OnDemandSupported" */
TW_EXPORT extern PVStringRef kJXVPNPromptForPinKey;                        /* "PromptForVPNPIN" */
TW_EXPORT extern PVStringRef kJXVPNPropNetProxiesHTTPProxyTypeKey;         /* "HTTPProxyType" */
TW_EXPORT extern PVStringRef kJXVPNPropNetProxiesHTTPProxyTypeNone;        /* "None" */
TW_EXPORT extern PVStringRef kJXVPNPropNetProxiesHTTPProxyTypeAutomatic;   /* "Automatic" */
TW_EXPORT extern PVStringRef kJXVPNPropNetProxiesHTTPProxyTypeManual;      /* "Manual" */
TW_EXPORT extern PVStringRef kJXVPNPropNetProxiesHTTPProxyAuthenticatedKey; /* "HTTPProxyAuthenticated" */
TW_EXPORT extern PVStringRef kJXVPNPropNetProxiesHTTPProxyUsernameKey;     /* "HTTPProxyUsername" */
TW_EXPORT extern PVStringRef kJXVPNPropNetProxiesHTTPProxyPasswordKey;     /* "HTTPProxyPassword" */
TW_EXPORT extern PVStringRef kJXVPNPropActive;                             /* "_activeVPN" */
TW_EXPORT extern PVStringRef kJXVPNCertificateDataKey;                     /* "_certificateData" */
TW_EXPORT extern PVStringRef kJXVPNCertificatePassphraseKey;               /* "_certificatePassphrase" */
TW_EXPORT extern PVStringRef kJXVPNProtocolTypePayload;                    /* "com.velmora.payload" */
TW_EXPORT extern PVStringRef kJXVPNPropNetPPPAuthEAPPluginRSA;             /* "EAP-RSA" */

/* ---- preferences session and selected service -------------------------- */

/* Locks the session, synchronizing it and trying once more when the first
 * attempt fails. The session is passed on untested. */
TW_EXPORT Boolean JXVPNPreferencesLock(ZNPreferencesRef prefs) TW_NOEXCEPT;
/* The platform's unlock, its result passed on. */
TW_EXPORT Boolean JXVPNPreferencesUnlock(ZNPreferencesRef prefs) TW_NOEXCEPT;
/* Commits, then applies; true when both succeeded. */
TW_EXPORT Boolean JXVPNPreferencesCommitAndApply(ZNPreferencesRef prefs) TW_NOEXCEPT;
/* Makes `service` the selected VPN service of every set that has none (of
 * every set when `force`). When the current set's selection changed, commits,
 * applies and posts "VPNChanged" in-process and
 * "com.velmora.quaystone.vpn-changed" system-wide. The result is that of
 * the last set changed. */
TW_EXPORT Boolean JXVPNSetSelectedService(ZNNetworkServiceRef service, ZNPreferencesRef prefs,
                                          Boolean force) TW_NOEXCEPT;
/* JXVPNSetSelectedService(service, prefs, true). */
TW_EXPORT Boolean JXVPNUpdateDefaultsAfterAddingService(ZNNetworkServiceRef service,
                                                        ZNPreferencesRef prefs) TW_NOEXCEPT;
/* Gives every set left without a selected VPN service the last remaining
 * VPN service; false when none remains. */
TW_EXPORT Boolean JXVPNUpdateDefaultsAfterDeletingServiceInPreferences(ZNPreferencesRef prefs) TW_NOEXCEPT;

/* ---- service creation and payload installation ------------------------- */

/* A new disabled VPN service of `serviceType` (IPSec, L2TP, PPTP, or a
 * vendor type for a VPN over that vendor's layer), named and in every set,
 * replacing a same-named service in each set. Nothing is committed.
 * Ownership: create. */
TW_EXPORT ZNNetworkServiceRef JXVPNServiceCreate(PVStringRef serviceType, PVStringRef name,
                                                 ZNPreferencesRef preferences) TW_NOEXCEPT;
/* Installs a payload as a new service, as JXVPNServiceCreate does, with the
 * payload's configurations laid over it, its secrets left out and its
 * client identity imported into the Coffer. The payload is not changed and
 * nothing is committed. Ownership: create. */
TW_EXPORT ZNNetworkServiceRef JXVPNServiceCreateWithPayloadAtom(PVDictionaryRef payload,
                                                                ZNPreferencesRef preferences) TW_NOEXCEPT;

/* ---- lookup, removal, on-demand query, pending certificate -------------- */

/* The VPN services whose payload protocol matches the criteria's "VPNType",
 * "PayloadIdentifier" and "PayloadUUID" (each tested only when present);
 * NULL criteria match every VPN service. NULL rather than an empty array.
 * Ownership: copy. */
TW_EXPORT PVArrayRef JXVPNServiceCopyMatching(PVDictionaryRef criteria,
                                              ZNPreferencesRef preferences) TW_NOEXCEPT;
/* The VPN services marked "OnDemandSupported" with the boolean true value,
 * or NULL. Ownership: copy. */
TW_EXPORT PVArrayRef JXVPNServiceCopyOnDemandSupported(ZNPreferencesRef preferences) TW_NOEXCEPT;
/* Deletes the service's account password, shared secret and proxy password
 * from the Coffer, removes the service and stops its live connection when
 * it is connecting or connected. Nothing is committed. */
TW_EXPORT Boolean JXVPNServiceRemove(ZNNetworkServiceRef service) TW_NOEXCEPT;
/* True when the service authenticates by certificate and has none yet. */
TW_EXPORT Boolean JXVPNServiceCertificatePending(ZNNetworkServiceRef service) TW_NOEXCEPT;

/* ---- keys by their text ------------------------------------------------- */

/* Configuration keys are placed in their layer by identity: only the key
 * constants themselves are recognised. For a caller that reads keys as text
 * (a command line), the constant with the text of `key` that the layer of
 * `configurationType` (kZNEntNetIPSec, kZNEntNetPPP or kZNEntNetVPN) holds;
 * with a NULL type, the first of those three layers that has one. NULL when
 * no layer has a key of that text. Ownership: get (an immortal constant). */
TW_EXPORT PVStringRef JXVPNGetConfigurationKeyConstant(PVStringRef key,
                                                       PVStringRef configurationType) TW_NOEXCEPT;
/* The protocol type (kZNEntNetIPv4, kZNNetworkProtocolTypeProxies or
 * kJXVPNProtocolTypePayload) whose configuration holds `key`, by its text;
 * NULL for a key of no protocol. Ownership: get (a constant). */
TW_EXPORT PVStringRef JXVPNGetProtocolTypeForKey(PVStringRef key) TW_NOEXCEPT;

/* The kind of value a key holds. A flag is a number, 0 or 1, or a boolean;
 * a number is an integer. */
typedef enum JXVPNValueKind {
  kJXVPNValueKindUnknown = 0, /* not a key this library knows for that configuration */
  kJXVPNValueKindString = 1,
  kJXVPNValueKindNumber = 2,
  kJXVPNValueKindFlag = 3,
  kJXVPNValueKindData = 4,
  kJXVPNValueKindStringArray = 5
} JXVPNValueKind;

/* The kind of value `key` holds, by its text, in the configuration of
 * `configurationType`: a layer ("IPSec", "PPP", "VPN", "L2TP"; the IPSec
 * extended configuration of an L2TP service is "IPSec") or a protocol
 * ("IPv4", "DNS", "Proxies", "com.velmora.payload"). Unknown for a key that
 * configuration does not have, and for configurations whose keys are not
 * the library's (EAP, a vendor type). Ownership: none (a plain value). */
TW_EXPORT JXVPNValueKind JXVPNGetValueKindForKey(PVStringRef key,
                                                 PVStringRef configurationType) TW_NOEXCEPT;

/* ---- service type and whole configurations ------------------------------ */

/* The service's VPN type (IPSec, VPN, L2TP or PPTP), or NULL for a service
 * this library does not handle. Ownership: get (borrowed from the session). */
TW_EXPORT PVStringRef JXVPNServiceGetType(ZNNetworkServiceRef service) TW_NOEXCEPT;
/* The configuration of the layer of that type, or of the outer interface's
 * extended configuration when no layer has the type; a NULL type means the
 * outer interface. Ownership: get (borrowed from the session). */
TW_EXPORT PVDictionaryRef JXVPNServiceGetConfiguration(ZNNetworkServiceRef service,
                                                       PVStringRef configurationType) TW_NOEXCEPT;
/* Replaces that configuration whole. */
TW_EXPORT Boolean JXVPNServiceSetConfiguration(ZNNetworkServiceRef service,
                                               PVStringRef configurationType,
                                               PVDictionaryRef configuration) TW_NOEXCEPT;
/* Lays `entries` over that configuration; new values win, old keys stay. */
TW_EXPORT Boolean JXVPNServiceMergeConfiguration(ZNNetworkServiceRef service,
                                                 PVStringRef configurationType,
                                                 PVDictionaryRef entries) TW_NOEXCEPT;

/* ---- configuration properties and protocol configurations --------------- */

/* The value of `key` in the layer its key class names (the outer
 * interface's own configuration for an unknown key). Ownership: get. */
TW_EXPORT PVTypeRef JXVPNServiceGetConfigurationProperty(ZNNetworkServiceRef service,
                                                         PVStringRef key) TW_NOEXCEPT;
/* The same in the configuration of the given type. Ownership: get. */
TW_EXPORT PVTypeRef JXVPNServiceGetConfigurationPropertyForType(ZNNetworkServiceRef service,
                                                                PVStringRef key,
                                                                PVStringRef configurationType) TW_NOEXCEPT;
/* Merges {key: value} into the layer its key class names. */
TW_EXPORT Boolean JXVPNServiceSetConfigurationProperty(ZNNetworkServiceRef service, PVStringRef key,
                                                       PVTypeRef value) TW_NOEXCEPT;
/* Merges {key: value} into the configuration of the given type. */
TW_EXPORT Boolean JXVPNServiceSetConfigurationPropertyForType(ZNNetworkServiceRef service,
                                                              PVStringRef key, PVTypeRef value,
                                                              PVStringRef configurationType) TW_NOEXCEPT;
/* Removes each known key from its layer, writing the layer once per key;
 * the result is that of the last known key. */
TW_EXPORT Boolean JXVPNServiceRemoveConfigurationProperties(ZNNetworkServiceRef service,
                                                            PVArrayRef keys) TW_NOEXCEPT;
/* The protocol's whole configuration. Ownership: get (borrowed from the
 * session). */
TW_EXPORT PVDictionaryRef JXVPNServiceGetProtocolConfiguration(ZNNetworkServiceRef service,
                                                               PVStringRef protocolType) TW_NOEXCEPT;
TW_EXPORT Boolean JXVPNServiceSetProtocolConfiguration(ZNNetworkServiceRef service,
                                                       PVStringRef protocolType,
                                                       PVDictionaryRef configuration) TW_NOEXCEPT;
TW_EXPORT Boolean JXVPNServiceMergeProtocolConfiguration(ZNNetworkServiceRef service,
                                                         PVStringRef protocolType,
                                                         PVDictionaryRef entries) TW_NOEXCEPT;
/* Merges {key: value} into the protocol its key class names; an unknown key
 * is refused. */
TW_EXPORT Boolean JXVPNServiceSetProtocolConfigurationProperty(ZNNetworkServiceRef service,
                                                               PVStringRef key,
                                                               PVTypeRef value) TW_NOEXCEPT;
/* Ownership: get (borrowed from the session). */
TW_EXPORT PVTypeRef JXVPNServiceGetProtocolConfigurationProperty(ZNNetworkServiceRef service,
                                                                 PVStringRef key) TW_NOEXCEPT;
TW_EXPORT Boolean JXVPNServiceRemoveProtocolConfigurationProperties(ZNNetworkServiceRef service,
                                                                    PVArrayRef keys) TW_NOEXCEPT;

/* ---- connection user options -------------------------------------------- */

/* A mutable dictionary with empty PPP, IPSec and EAP sections.
 * Ownership: create. */
TW_EXPORT PVMutableDictionaryRef JXVPNServiceConnectionUserOptionsCreate(void) TW_NOEXCEPT;
/* Ownership: get (borrowed from the options). */
TW_EXPORT PVTypeRef JXVPNServiceConnectionUserOptionsGetProperty(ZNNetworkServiceRef service,
                                                                 PVDictionaryRef options,
                                                                 PVStringRef key) TW_NOEXCEPT;
TW_EXPORT void JXVPNServiceConnectionUserOptionsSetProperty(ZNNetworkServiceRef service,
                                                            PVMutableDictionaryRef options,
                                                            PVStringRef key, PVTypeRef value) TW_NOEXCEPT;

/* ---- Coffer items ------------------------------------------------------- */

/* The secret of the generic-password item the strings name (empty or NULL
 * strings other than the service match anything). Ownership: create. */
TW_EXPORT PVStringRef JXCofferCopyValue(PVStringRef service, PVStringRef account, PVStringRef label,
                                        PVStringRef description) TW_NOEXCEPT;
/* Stores or updates the secret. Returns what the Coffer's add handed back
 * for a new item, NULL otherwise (an update included). Ownership: create. */
TW_EXPORT PVTypeRef JXCofferSetValue(PVStringRef service, PVStringRef account, PVStringRef label,
                                     PVStringRef description, PVStringRef value) TW_NOEXCEPT;
TW_EXPORT void JXCofferRemoveValue(PVStringRef service, PVStringRef account, PVStringRef label,
                                   PVStringRef description) TW_NOEXCEPT;
/* Stores the container's first identity and its issuers; returns their
 * persistent references, the identity's first. Ownership: create. */
TW_EXPORT PVArrayRef JXCofferSetPKCS12Container(PVDataRef container, PVStringRef passphrase) TW_NOEXCEPT;
TW_EXPORT Boolean JXCofferRemoveWithPersistentID(PVDataRef persistentReference) TW_NOEXCEPT;

/* ---- service credentials ------------------------------------------------ */

typedef uint32_t JXVPNPasswordType;
enum { kJXVPNPasswordTypeAccount = 0, kJXVPNPasswordTypeProxy = 1 };

/* Ownership: create. */
TW_EXPORT PVStringRef JXVPNServiceCopyPassword(ZNNetworkServiceRef service) TW_NOEXCEPT;
TW_EXPORT PVStringRef JXVPNServiceCopyPasswordWithType(ZNNetworkServiceRef service,
                                                       JXVPNPasswordType type) TW_NOEXCEPT;
/* The result of JXCofferSetValue, passed on. Ownership: create. */
TW_EXPORT PVTypeRef JXVPNServiceSetPassword(ZNNetworkServiceRef service, PVStringRef password) TW_NOEXCEPT;
TW_EXPORT PVTypeRef JXVPNServiceSetPasswordWithType(ZNNetworkServiceRef service, JXVPNPasswordType type,
                                                    PVStringRef password) TW_NOEXCEPT;
TW_EXPORT void JXVPNServiceRemovePassword(ZNNetworkServiceRef service) TW_NOEXCEPT;
TW_EXPORT void JXVPNServiceRemovePasswordWithType(ZNNetworkServiceRef service,
                                                  JXVPNPasswordType type) TW_NOEXCEPT;
/* Ownership: create. */
TW_EXPORT PVStringRef JXVPNServiceCopySharedSecret(ZNNetworkServiceRef service) TW_NOEXCEPT;
TW_EXPORT Boolean JXVPNServiceSetSharedSecret(ZNNetworkServiceRef service, PVStringRef secret) TW_NOEXCEPT;
TW_EXPORT void JXVPNServiceRemoveSharedSecret(ZNNetworkServiceRef service) TW_NOEXCEPT;
TW_EXPORT Boolean JXVPNServiceSetCertificate(ZNNetworkServiceRef service, PVTypeRef certificate) TW_NOEXCEPT;
TW_EXPORT Boolean JXVPNServiceSetCertificatePersistantID(ZNNetworkServiceRef service,
                                                         PVDataRef persistentReference) TW_NOEXCEPT;
TW_EXPORT Boolean JXVPNServiceRemoveCertificate(ZNNetworkServiceRef service) TW_NOEXCEPT;

/* ---- shared-secret encodings -------------------------------------------- */

/* Ownership: create (the decoders may return one shared empty string,
 * which is released like any other result). */
TW_EXPORT PVDataRef JXVPNCreateEncryptedIPSecSharedSecret(PVStringRef secret) TW_NOEXCEPT;
TW_EXPORT PVStringRef JXVPNCreateDecryptedIPSecSharedSecret(PVDataRef encrypted) TW_NOEXCEPT;
TW_EXPORT PVDataRef JXVPNCreateExportedIPSecSharedSecret(PVStringRef secret) TW_NOEXCEPT;
TW_EXPORT PVStringRef JXVPNCreateImportedIPSecSharedSecret(PVDataRef exported) TW_NOEXCEPT;

/* ---- payload credential extraction -------------------------------------- */

/* Each tells the credential's value (ownership: copy), the configuration key
 * it belongs to (through ioKey, borrowed) and whether it applies. */
TW_EXPORT PVTypeRef JXVPNCopyPayloadUserName(PVDictionaryRef payload, PVStringRef *ioKey,
                                             Boolean *outApplies) TW_NOEXCEPT;
TW_EXPORT PVTypeRef JXVPNCopyPayloadPassword(PVDictionaryRef payload, PVStringRef *ioKey,
                                             Boolean *outApplies) TW_NOEXCEPT;
TW_EXPORT PVTypeRef JXVPNCopyPayloadSharedSecret(PVDictionaryRef payload, PVStringRef *ioKey,
                                                 Boolean *outApplies) TW_NOEXCEPT;
TW_EXPORT PVTypeRef JXVPNCopyPayloadPIN(PVDictionaryRef payload, PVStringRef *ioKey,
                                        Boolean *outApplies) TW_NOEXCEPT;

TW_EXTERN_C_END

#endif /* TARNWICK_H */
