/*
 * The network-configuration preferences: sessions on a store, sets,
 * services, interface chains, protocols and connection controllers.
 *
 * Every handle below is a reference-counted value: PVRetain and PVRelease
 * apply, Create/Copy results are the caller's to release, Get results are
 * borrowed from the session that holds the object.
 *
 * A failing operation returns NULL or false and sets ZNError(); a
 * succeeding one leaves it as it was, like errno.
 */
#ifndef TARNWICK_PLATFORM_PREFS_H
#define TARNWICK_PLATFORM_PREFS_H

#include "tarnwick/platform/values.h"

TW_EXTERN_C_BEGIN

typedef struct ZNPreferences *ZNPreferencesRef;
typedef struct ZNNetworkSet *ZNNetworkSetRef;
typedef struct ZNNetworkService *ZNNetworkServiceRef;
typedef struct ZNNetworkInterface *ZNNetworkInterfaceRef;
typedef struct ZNNetworkProtocol *ZNNetworkProtocolRef;
typedef struct ZNNetworkConnection *ZNNetworkConnectionRef;

/* Codes of ZNError(). */
enum {
  kZNStatusOK = 0,
  kZNStatusFailed = 1001,          /* an unexplained failure */
  kZNStatusInvalidArgument = 1002, /* a NULL or ill-formed argument */
  kZNStatusNoSuchObject = 1004,    /* the object is not (or no longer) in the session */
  kZNStatusNoStore = 1005,         /* the store directory does not exist */
  kZNStatusAccessDenied = 1006,    /* the store cannot be read or written */
  kZNStatusCorruptStore = 1007,    /* the store's database is damaged, foreign or newer */
  kZNStatusIOError = 1008,         /* a read, write, sync or rename failed */
  kZNStatusNoEngine = 1009,        /* no VPN engine is on, or it does not answer */
  kZNStatusEngineRefused = 1010,   /* the VPN engine refused the request */
  kZNStatusLockFailed = 3004,      /* the lock is held elsewhere (no wait), or by the
                                      calling thread through another session */
  kZNStatusStale = 3005,           /* the store changed since the session read it */
  kZNStatusNotLocked = 3006,       /* unlock without lock */
  kZNStatusInjected = 9999         /* failure planned through the testing interface */
};

/* ---- errors ------------------------------------------------------------- */

/* The calling thread's last error code. */
TW_EXPORT int ZNError(void) TW_NOEXCEPT;
/* A text for the code. Ownership: get (static storage). */
TW_EXPORT const char *ZNErrorString(int code) TW_NOEXCEPT;

/* ---- the store ---------------------------------------------------------- */

/* The process's store directory: where ZNPreferencesCreate opens a
 * session, where the Coffer and the connection registry live. Defaults to
 * $TARNWICK_STORE, else the user's state directory ($XDG_STATE_HOME or
 * ~/.local/state, then "tarnwick"), or /var/lib/tarnwick for root.
 * Ownership: get (valid until the next call of the setter). */
TW_EXPORT const char *ZNStoreGetDirectory(void) TW_NOEXCEPT;
/* NULL restores the default. */
TW_EXPORT void ZNStoreSetDirectory(const char *path) TW_NOEXCEPT;

/* ---- sessions ----------------------------------------------------------- */

/* Opens a session on the process's store directory, creating the
 * directory's store (one set, "Default", current) when it holds none yet.
 * Ownership: create. */
TW_EXPORT ZNPreferencesRef ZNPreferencesCreate(void) TW_NOEXCEPT;
/* The same on a given store directory. The directory must exist and be
 * writable; a database that is damaged, another program's or of a newer
 * version fails the open and is never written. The session is a snapshot:
 * later commits by others do not reach it until ZNPreferencesSynchronize.
 * Ownership: create. */
TW_EXPORT ZNPreferencesRef ZNPreferencesCreateWithStore(const char *directory) TW_NOEXCEPT;
/* Ownership: get (borrowed from the session). */
TW_EXPORT const char *ZNPreferencesGetStoreDirectory(ZNPreferencesRef prefs) TW_NOEXCEPT;
/* Takes the store's inter-process lock, waiting for it when `wait` is true.
 * Fails with kZNStatusStale while the session's copy is older than the
 * store's last commit, and with kZNStatusLockFailed rather than wait for a
 * lock the calling thread holds through another session. */
TW_EXPORT Boolean ZNPreferencesLock(ZNPreferencesRef prefs, Boolean wait) TW_NOEXCEPT;
TW_EXPORT Boolean ZNPreferencesUnlock(ZNPreferencesRef prefs) TW_NOEXCEPT;
/* Drops the session's copy and its uncommitted changes; re-reads the store. */
TW_EXPORT void ZNPreferencesSynchronize(ZNPreferencesRef prefs) TW_NOEXCEPT;
/* Writes what the session changed to the store atomically, in one
 * transaction, and advances the store's generation; with no change it
 * writes nothing. A session that does not hold the lock takes it for the
 * commit (and fails when stale). */
TW_EXPORT Boolean ZNPreferencesCommitChanges(ZNPreferencesRef prefs) TW_NOEXCEPT;
/* Records the committed generation as applied, then brings the VPN engine
 * in line with the committed store (tarnwick/platform/engine.h). The
 * engine never makes it fail. */
TW_EXPORT Boolean ZNPreferencesApplyChanges(ZNPreferencesRef prefs) TW_NOEXCEPT;
/* The generation of the store last applied (0 when none). */
TW_EXPORT int64_t ZNPreferencesGetAppliedGeneration(ZNPreferencesRef prefs) TW_NOEXCEPT;
/* The files that sessions killed while writing left in the store
 * directory (temporary files and their journals, never the store's own
 * files), by name, in name order; with `remove` true, removed as well.
 * Looked for under the lock, which a session that does not hold it takes
 * for the call, so that no file being written right now is taken for a
 * leftover. Ownership: create. */
TW_EXPORT PVArrayRef ZNPreferencesCopyLeftoverFiles(ZNPreferencesRef prefs,
                                                    Boolean remove) TW_NOEXCEPT;

/* ---- sets --------------------------------------------------------------- */

/* Ownership: create (arrays of sets / services). */
TW_EXPORT PVArrayRef ZNNetworkSetCopyAll(ZNPreferencesRef prefs) TW_NOEXCEPT;
TW_EXPORT ZNNetworkSetRef ZNNetworkSetCopyCurrent(ZNPreferencesRef prefs) TW_NOEXCEPT;
/* A new, empty, unnamed set. Ownership: create. */
TW_EXPORT ZNNetworkSetRef ZNNetworkSetCreate(ZNPreferencesRef prefs) TW_NOEXCEPT;
TW_EXPORT Boolean ZNNetworkSetRemove(ZNNetworkSetRef set) TW_NOEXCEPT;
/* Ownership: get. */
TW_EXPORT PVStringRef ZNNetworkSetGetSetID(ZNNetworkSetRef set) TW_NOEXCEPT;
TW_EXPORT PVStringRef ZNNetworkSetGetName(ZNNetworkSetRef set) TW_NOEXCEPT;
TW_EXPORT Boolean ZNNetworkSetSetName(ZNNetworkSetRef set, PVStringRef name) TW_NOEXCEPT;
TW_EXPORT Boolean ZNNetworkSetSetCurrent(ZNNetworkSetRef set) TW_NOEXCEPT;
TW_EXPORT PVArrayRef ZNNetworkSetCopyServices(ZNNetworkSetRef set) TW_NOEXCEPT;
TW_EXPORT Boolean ZNNetworkSetAddService(ZNNetworkSetRef set, ZNNetworkServiceRef service) TW_NOEXCEPT;
TW_EXPORT Boolean ZNNetworkSetRemoveService(ZNNetworkSetRef set, ZNNetworkServiceRef service) TW_NOEXCEPT;
/* NULL when none is selected. Ownership: copy. */
TW_EXPORT ZNNetworkServiceRef ZNNetworkSetCopySelectedVPNService(ZNNetworkSetRef set) TW_NOEXCEPT;
/* A NULL service clears the selection. */
TW_EXPORT Boolean ZNNetworkSetSetSelectedVPNService(ZNNetworkSetRef set,
                                                    ZNNetworkServiceRef service) TW_NOEXCEPT;

/* ---- services ----------------------------------------------------------- */

/* A new service on the interface chain, in no set yet. Ownership: create. */
TW_EXPORT ZNNetworkServiceRef ZNNetworkServiceCreate(ZNPreferencesRef prefs,
                                                     ZNNetworkInterfaceRef interface) TW_NOEXCEPT;
TW_EXPORT PVArrayRef ZNNetworkServiceCopyAll(ZNPreferencesRef prefs) TW_NOEXCEPT;
/* Ownership: copy. */
TW_EXPORT ZNNetworkServiceRef ZNNetworkServiceCopy(ZNPreferencesRef prefs,
                                                   PVStringRef serviceID) TW_NOEXCEPT;
/* Ownership: get (borrowed from the session). */
TW_EXPORT PVStringRef ZNNetworkServiceGetServiceID(ZNNetworkServiceRef service) TW_NOEXCEPT;
TW_EXPORT PVStringRef ZNNetworkServiceGetName(ZNNetworkServiceRef service) TW_NOEXCEPT;
TW_EXPORT Boolean ZNNetworkServiceSetName(ZNNetworkServiceRef service, PVStringRef name) TW_NOEXCEPT;
TW_EXPORT Boolean ZNNetworkServiceGetEnabled(ZNNetworkServiceRef service) TW_NOEXCEPT;
TW_EXPORT Boolean ZNNetworkServiceSetEnabled(ZNNetworkServiceRef service, Boolean enabled) TW_NOEXCEPT;
/* Ownership: get. */
TW_EXPORT ZNNetworkInterfaceRef ZNNetworkServiceGetInterface(ZNNetworkServiceRef service) TW_NOEXCEPT;
/* Gives every layer an empty configuration and a VPN service the IPv4, DNS
 * and Proxies protocols, each with an empty configuration. */
TW_EXPORT Boolean ZNNetworkServiceEstablishDefaultConfiguration(ZNNetworkServiceRef service) TW_NOEXCEPT;
/* A new protocol without configuration; false when the service has one of
 * that type already. */
TW_EXPORT Boolean ZNNetworkServiceAddProtocolType(ZNNetworkServiceRef service,
                                                  PVStringRef protocolType) TW_NOEXCEPT;
/* Ownership: copy. */
TW_EXPORT ZNNetworkProtocolRef ZNNetworkServiceCopyProtocol(ZNNetworkServiceRef service,
                                                            PVStringRef protocolType) TW_NOEXCEPT;
/* Ownership: create (an array of protocols). */
TW_EXPORT PVArrayRef ZNNetworkServiceCopyProtocols(ZNNetworkServiceRef service) TW_NOEXCEPT;
/* Removes the service from the session and from every set; a set whose
 * selected VPN service it was has none afterwards. */
TW_EXPORT Boolean ZNNetworkServiceRemove(ZNNetworkServiceRef service) TW_NOEXCEPT;

/* ---- interfaces --------------------------------------------------------- */

/* The platform's IPv4 interface object: the bottom of every VPN chain. */
TW_EXPORT extern const ZNNetworkInterfaceRef kZNNetworkInterfaceIPv4;

/* Ownership: create. */
TW_EXPORT ZNNetworkInterfaceRef ZNNetworkInterfaceCreateWithInterface(ZNNetworkInterfaceRef interface,
                                                                      PVStringRef interfaceType) TW_NOEXCEPT;
/* Ownership: get. */
TW_EXPORT PVStringRef ZNNetworkInterfaceGetInterfaceType(ZNNetworkInterfaceRef interface) TW_NOEXCEPT;
TW_EXPORT ZNNetworkInterfaceRef ZNNetworkInterfaceGetInterface(ZNNetworkInterfaceRef interface) TW_NOEXCEPT;
TW_EXPORT PVDictionaryRef ZNNetworkInterfaceGetConfiguration(ZNNetworkInterfaceRef interface) TW_NOEXCEPT;
TW_EXPORT Boolean ZNNetworkInterfaceSetConfiguration(ZNNetworkInterfaceRef interface,
                                                     PVDictionaryRef configuration) TW_NOEXCEPT;
TW_EXPORT PVDictionaryRef ZNNetworkInterfaceGetExtendedConfiguration(ZNNetworkInterfaceRef interface,
                                                                     PVStringRef entityType) TW_NOEXCEPT;
/* The entity types under which the layer holds an extended configuration,
 * in no particular order. Ownership: create. */
TW_EXPORT PVArrayRef ZNNetworkInterfaceCopyExtendedConfigurationTypes(ZNNetworkInterfaceRef interface) TW_NOEXCEPT;
TW_EXPORT Boolean ZNNetworkInterfaceSetExtendedConfiguration(ZNNetworkInterfaceRef interface,
                                                             PVStringRef entityType,
                                                             PVDictionaryRef configuration) TW_NOEXCEPT;

/* ---- protocols ---------------------------------------------------------- */

/* Ownership: get. The configuration belongs to the session and outlives
 * the protocol handle. */
TW_EXPORT PVStringRef ZNNetworkProtocolGetProtocolType(ZNNetworkProtocolRef protocol) TW_NOEXCEPT;
TW_EXPORT PVDictionaryRef ZNNetworkProtocolGetConfiguration(ZNNetworkProtocolRef protocol) TW_NOEXCEPT;
/* NULL removes the configuration. */
TW_EXPORT Boolean ZNNetworkProtocolSetConfiguration(ZNNetworkProtocolRef protocol,
                                                    PVDictionaryRef configuration) TW_NOEXCEPT;

/* ---- connections -------------------------------------------------------- */

enum {
  kZNNetworkConnectionDisconnected = 0,
  kZNNetworkConnectionConnecting = 1,
  kZNNetworkConnectionConnected = 2,
  kZNNetworkConnectionDisconnecting = 3
};
typedef void (*ZNNetworkConnectionCallBack)(ZNNetworkConnectionRef connection, int status,
                                            void *context);

/* A controller for the service's live connection. With the VPN engine on
 * (tarnwick/platform/engine.h) that is the service's connection in
 * NetworkManager; with it off, the connection registry of the process's
 * store directory. Which of the two is decided when the controller is made.
 * No status changes are delivered, so the callback is not kept.
 * Ownership: create. */
TW_EXPORT ZNNetworkConnectionRef ZNNetworkConnectionCreateWithServiceID(
    PVAllocatorRef allocator, PVStringRef serviceID, ZNNetworkConnectionCallBack callback,
    void *context) TW_NOEXCEPT;
/* Read afresh on every call. With the engine, the status of the service's
 * active NetworkManager connection, 0 when it has none; fails (0, ZNError
 * kZNStatusNoEngine) when NetworkManager does not answer. */
TW_EXPORT int ZNNetworkConnectionGetStatus(ZNNetworkConnectionRef connection) TW_NOEXCEPT;
/* Disconnects. With the engine, deactivates the service's active
 * connections and waits (5 seconds at most) until NetworkManager has torn
 * them down; with the registry, marks the service disconnected. */
TW_EXPORT Boolean ZNNetworkConnectionStop(ZNNetworkConnectionRef connection, Boolean force) TW_NOEXCEPT;
/* With the engine on, starts the service's connection: NetworkManager
 * activates it over the connection that holds the default route, and this
 * returns once it has taken the request. The status then follows it: 1
 * while it is being made, 2 once it is up, 0 when it failed. Fails with
 * kZNStatusNoEngine when the engine is off or does not answer, and with
 * kZNStatusEngineRefused when NetworkManager refuses (or holds no
 * connection for the service); ZNNetworkConnectionCopyFailureReason says
 * why. */
TW_EXPORT Boolean ZNNetworkConnectionStart(ZNNetworkConnectionRef connection) TW_NOEXCEPT;
/* In words: why the controller's last operation failed (NetworkManager
 * refused, or could not be reached), or why a connection it started ended
 * other than on request; NULL when none of these happened.
 * Ownership: copy. */
TW_EXPORT PVStringRef ZNNetworkConnectionCopyFailureReason(ZNNetworkConnectionRef connection) TW_NOEXCEPT;
/* The status of each service's live connection, read at once (one look at
 * the engine or at the registry), as a dictionary from each of the service
 * identifiers to its status number. NULL when it cannot be read (ZNError).
 * Ownership: create. */
TW_EXPORT PVDictionaryRef ZNNetworkConnectionCopyStatuses(PVArrayRef serviceIDs) TW_NOEXCEPT;
/* Records a service's connection status in the registry of the process's
 * store directory (what a VPN daemon would report). */
TW_EXPORT Boolean ZNNetworkConnectionSetStatusForServiceID(PVStringRef serviceID, int status) TW_NOEXCEPT;

/* ---- constants ---------------------------------------------------------- */

/* Interface types, entity names and protocol types. An interface type is the
 * same text as the entity name of its kind; each constant is still an object
 * of its own. */
TW_EXPORT extern const PVStringRef kZNEntNetIPSec; /* "IPSec" */
TW_EXPORT extern const PVStringRef kZNEntNetIPv4; /* "IPv4" */
TW_EXPORT extern const PVStringRef kZNEntNetDNS; /* "DNS" */
TW_EXPORT extern const PVStringRef kZNEntNetL2TP; /* "L2TP" */
TW_EXPORT extern const PVStringRef kZNEntNetPPP; /* "PPP" */
TW_EXPORT extern const PVStringRef kZNEntNetPPTP; /* "PPTP" */
TW_EXPORT extern const PVStringRef kZNEntNetVPN; /* "VPN" */
TW_EXPORT extern const PVStringRef kZNNetworkInterfaceTypeIPSec; /* "IPSec" */
TW_EXPORT extern const PVStringRef kZNNetworkInterfaceTypePPP; /* "PPP" */
TW_EXPORT extern const PVStringRef kZNNetworkInterfaceTypeVPN; /* "VPN" */
TW_EXPORT extern const PVStringRef kZNNetworkInterfaceTypeL2TP; /* "L2TP" */
TW_EXPORT extern const PVStringRef kZNNetworkInterfaceTypePPTP; /* "PPTP" */
TW_EXPORT extern const PVStringRef kZNNetworkInterfaceTypeIPv4; /* "IPv4" */
TW_EXPORT extern const PVStringRef kZNNetworkProtocolTypeIPv4; /* "IPv4" */
TW_EXPORT extern const PVStringRef kZNNetworkProtocolTypeDNS; /* "DNS" */
TW_EXPORT extern const PVStringRef kZNNetworkProtocolTypeProxies; /* "Proxies" */

/* Values the library writes or compares. */
TW_EXPORT extern const PVStringRef kZNValNetIPSecAuthenticationMethodSharedSecret; /* "SharedSecret" */
TW_EXPORT extern const PVStringRef kZNValNetIPSecAuthenticationMethodCertificate; /* "Certificate" */
TW_EXPORT extern const PVStringRef kZNValNetIPSecAuthenticationMethodHybrid; /* "Hybrid" */
TW_EXPORT extern const PVStringRef kZNValNetIPSecSharedSecretEncryptionCoffer; /* "Coffer" */
TW_EXPORT extern const PVStringRef kZNValNetIPSecXAuthPasswordEncryptionPrompt; /* "Prompt" */
TW_EXPORT extern const PVStringRef kZNValNetPPPAuthProtocolEAP; /* "EAP" */
TW_EXPORT extern const PVStringRef kZNValNetVPNAuthenticationMethodCertificate; /* "Certificate" */

/* IPSec configuration keys. */
TW_EXPORT extern const PVStringRef kZNPropNetIPSecOnDemandEnabled; /* "OnDemandEnabled" */
TW_EXPORT extern const PVStringRef kZNPropNetIPSecAuthenticationMethod; /* "AuthenticationMethod" */
TW_EXPORT extern const PVStringRef kZNPropNetIPSecLocalCertificate; /* "LocalCertificate" */
TW_EXPORT extern const PVStringRef kZNPropNetIPSecLocalIdentifier; /* "LocalIdentifier" */
TW_EXPORT extern const PVStringRef kZNPropNetIPSecLocalIdentifierType; /* "LocalIdentifierType" */
TW_EXPORT extern const PVStringRef kZNPropNetIPSecXAuthName; /* "XAuthName" */
TW_EXPORT extern const PVStringRef kZNPropNetIPSecXAuthPassword; /* "XAuthPassword" */
TW_EXPORT extern const PVStringRef kZNPropNetIPSecXAuthPasswordEncryption; /* "XAuthPasswordEncryption" */
TW_EXPORT extern const PVStringRef kZNPropNetIPSecSharedSecret; /* "SharedSecret" */
TW_EXPORT extern const PVStringRef kZNPropNetIPSecSharedSecretEncryption; /* "SharedSecretEncryption" */
TW_EXPORT extern const PVStringRef kZNPropNetIPSecXAuthEnabled; /* "XAuthEnabled" */
TW_EXPORT extern const PVStringRef kZNPropNetIPSecOnDemandMatchDomainsAlways; /* "OnDemandMatchDomainsAlways" */
TW_EXPORT extern const PVStringRef kZNPropNetIPSecOnDemandMatchDomainsOnRetry; /* "OnDemandMatchDomainsOnRetry" */
TW_EXPORT extern const PVStringRef kZNPropNetIPSecOnDemandMatchDomainsNever; /* "OnDemandMatchDomainsNever" */

/* L2TP keys (kept in the IPSec configuration by the library). */
TW_EXPORT extern const PVStringRef kZNPropNetL2TPIPSecSharedSecret; /* "IPSecSharedSecret" */
TW_EXPORT extern const PVStringRef kZNPropNetL2TPIPSecSharedSecretEncryption; /* "IPSecSharedSecretEncryption" */
TW_EXPORT extern const PVStringRef kZNPropNetL2TPTransport; /* "Transport" */

/* PPP configuration keys. */
TW_EXPORT extern const PVStringRef kZNPropNetPPPAuthEAPPlugins; /* "AuthEAPPlugins" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPAuthName; /* "AuthName" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPAuthPassword; /* "AuthPassword" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPOverridePrimary; /* "OverridePrimary" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPACSPEnabled; /* "ACSPEnabled" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPConnectTime; /* "ConnectTime" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPDeviceLastCause; /* "DeviceLastCause" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPDialOnDemand; /* "DialOnDemand" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPDisconnectOnFastUserSwitch; /* "DisconnectOnFastUserSwitch" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPDisconnectOnIdle; /* "DisconnectOnIdle" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPDisconnectOnIdleTimer; /* "DisconnectOnIdleTimer" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPDisconnectOnLogout; /* "DisconnectOnLogout" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPDisconnectOnSleep; /* "DisconnectOnSleep" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPDisconnectTime; /* "DisconnectTime" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPIdleReminderTimer; /* "IdleReminderTimer" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPIdleReminder; /* "IdleReminder" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPLastCause; /* "LastCause" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPLogfile; /* "Logfile" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPPlugins; /* "Plugins" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPRetryConnectTime; /* "RetryConnectTime" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPSessionTimer; /* "SessionTimer" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPStatus; /* "Status" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPUseSessionTimer; /* "UseSessionTimer" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPVerboseLogging; /* "VerboseLogging" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPAuthPasswordEncryption; /* "AuthPasswordEncryption" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPAuthPrompt; /* "AuthPrompt" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPAuthProtocol; /* "AuthProtocol" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPCommAlternateRemoteAddress; /* "CommAlternateRemoteAddress" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPCommConnectDelay; /* "CommConnectDelay" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPCommDisplayTerminalWindow; /* "CommDisplayTerminalWindow" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPCommRedialCount; /* "CommRedialCount" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPCommRedialEnabled; /* "CommRedialEnabled" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPCommRedialInterval; /* "CommRedialInterval" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPCommRemoteAddress; /* "CommRemoteAddress" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPCommTerminalScript; /* "CommTerminalScript" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPCommUseTerminalScript; /* "CommUseTerminalScript" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPCCPEnabled; /* "CCPEnabled" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPCCPMPPE40Enabled; /* "CCPMPPE40Enabled" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPCCPMPPE128Enabled; /* "CCPMPPE128Enabled" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPIPCPCompressionVJ; /* "IPCPCompressionVJ" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPIPCPUsePeerDNS; /* "IPCPUsePeerDNS" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPLCPEchoEnabled; /* "LCPEchoEnabled" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPLCPEchoFailure; /* "LCPEchoFailure" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPLCPEchoInterval; /* "LCPEchoInterval" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPLCPCompressionACField; /* "LCPCompressionACField" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPLCPCompressionPField; /* "LCPCompressionPField" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPLCPMRU; /* "LCPMRU" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPLCPMTU; /* "LCPMTU" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPLCPReceiveACCM; /* "LCPReceiveACCM" */
TW_EXPORT extern const PVStringRef kZNPropNetPPPLCPTransmitACCM; /* "LCPTransmitACCM" */

/* Proxies protocol keys. */
TW_EXPORT extern const PVStringRef kZNPropNetProxiesExceptionsList; /* "ExceptionsList" */
TW_EXPORT extern const PVStringRef kZNPropNetProxiesExcludeSimpleHostnames; /* "ExcludeSimpleHostnames" */
TW_EXPORT extern const PVStringRef kZNPropNetProxiesFTPEnable; /* "FTPEnable" */
TW_EXPORT extern const PVStringRef kZNPropNetProxiesFTPPassive; /* "FTPPassive" */
TW_EXPORT extern const PVStringRef kZNPropNetProxiesFTPPort; /* "FTPPort" */
TW_EXPORT extern const PVStringRef kZNPropNetProxiesFTPProxy; /* "FTPProxy" */
TW_EXPORT extern const PVStringRef kZNPropNetProxiesGopherEnable; /* "GopherEnable" */
TW_EXPORT extern const PVStringRef kZNPropNetProxiesGopherPort; /* "GopherPort" */
TW_EXPORT extern const PVStringRef kZNPropNetProxiesGopherProxy; /* "GopherProxy" */
TW_EXPORT extern const PVStringRef kZNPropNetProxiesHTTPEnable; /* "HTTPEnable" */
TW_EXPORT extern const PVStringRef kZNPropNetProxiesHTTPPort; /* "HTTPPort" */
TW_EXPORT extern const PVStringRef kZNPropNetProxiesHTTPProxy; /* "HTTPProxy" */
TW_EXPORT extern const PVStringRef kZNPropNetProxiesHTTPSEnable; /* "HTTPSEnable" */
TW_EXPORT extern const PVStringRef kZNPropNetProxiesHTTPSPort; /* "HTTPSPort" */
TW_EXPORT extern const PVStringRef kZNPropNetProxiesHTTPSProxy; /* "HTTPSProxy" */
TW_EXPORT extern const PVStringRef kZNPropNetProxiesRTSPEnable; /* "RTSPEnable" */
TW_EXPORT extern const PVStringRef kZNPropNetProxiesRTSPPort; /* "RTSPPort" */
TW_EXPORT extern const PVStringRef kZNPropNetProxiesRTSPProxy; /* "RTSPProxy" */
TW_EXPORT extern const PVStringRef kZNPropNetProxiesSOCKSEnable; /* "SOCKSEnable" */
TW_EXPORT extern const PVStringRef kZNPropNetProxiesSOCKSPort; /* "SOCKSPort" */
TW_EXPORT extern const PVStringRef kZNPropNetProxiesSOCKSProxy; /* "SOCKSProxy" */
TW_EXPORT extern const PVStringRef kZNPropNetProxiesProxyAutoConfigEnable; /* "ProxyAutoConfigEnable" */
TW_EXPORT extern const PVStringRef kZNPropNetProxiesProxyAutoConfigURLString; /* "ProxyAutoConfigURLString" */
TW_EXPORT extern const PVStringRef kZNPropNetProxiesProxyAutoDiscoveryEnable; /* "ProxyAutoDiscoveryEnable" */

/* Generic VPN configuration keys. */
TW_EXPORT extern const PVStringRef kZNPropNetVPNOnDemandEnabled; /* "OnDemandEnabled" */
TW_EXPORT extern const PVStringRef kZNPropNetVPNAuthenticationMethod; /* "AuthenticationMethod" */
TW_EXPORT extern const PVStringRef kZNPropNetVPNLocalCertificate; /* "LocalCertificate" */
TW_EXPORT extern const PVStringRef kZNPropNetVPNOnDemandMatchDomainsAlways; /* "OnDemandMatchDomainsAlways" */
TW_EXPORT extern const PVStringRef kZNPropNetVPNOnDemandMatchDomainsOnRetry; /* "OnDemandMatchDomainsOnRetry" */
TW_EXPORT extern const PVStringRef kZNPropNetVPNOnDemandMatchDomainsNever; /* "OnDemandMatchDomainsNever" */

/* Service keys. */
TW_EXPORT extern const PVStringRef kZNPropUserDefinedName; /* "UserDefinedName" */

TW_EXTERN_C_END

#endif /* TARNWICK_PLATFORM_PREFS_H */
