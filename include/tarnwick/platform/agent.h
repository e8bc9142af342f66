/*
 * The secret agent: hands NetworkManager the secrets of Tarnwick's
 * connections, from the Coffer.
 *
 * Every secret of a connection Tarnwick makes is agent-owned, so
 * NetworkManager keeps none and asks a registered secret agent when it
 * needs them (to connect, or when a client with the right to read them asks
 * it). The agent exports org.freedesktop.NetworkManager.SecretAgent at
 * /org/freedesktop/NetworkManager/SecretAgent on the system bus
 * ($DBUS_SYSTEM_BUS_ADDRESS when set), and registers with
 * org.freedesktop.NetworkManager.AgentManager as "org.tarnwick.agent":
 *
 *  - It answers only NetworkManager: the bus client that owns the name
 *    org.freedesktop.NetworkManager now. Any other caller gets the error
 *    org.freedesktop.NetworkManager.SecretAgent.PermissionDenied.
 *  - GetSecrets is answered for the connections of the services of the
 *    process's store (ZNStoreGetDirectory), recognised by their UUID, and
 *    only for their "vpn" setting: each secret the connection's plugin
 *    takes (password, ipsec-psk, IPSec secret, Xauth password, or what
 *    vendor-plugins.conf names) comes from the credential that answers it,
 *    read through the copyCredential call-back, at the time of the request.
 *    A secret the Coffer lacks is left out. Any other connection, a request
 *    for new secrets (the stored ones were refused: there are no others),
 *    and a service whose secrets are all absent get
 *    org.freedesktop.NetworkManager.SecretAgent.NoSecrets.
 *  - CancelGetSecrets is answered: no request is ever pending.
 *  - SaveSecrets and DeleteSecrets are answered and change nothing: the
 *    Coffer changes through the library alone.
 *  - When NetworkManager restarts, the agent registers with it again.
 *
 * The note call-back hears what the agent does, one line at a time; no note
 * ever holds a secret.
 */
#ifndef TARNWICK_PLATFORM_AGENT_H
#define TARNWICK_PLATFORM_AGENT_H

#include "tarnwick/platform/prefs.h"

TW_EXTERN_C_BEGIN

typedef struct ZNSecretAgent *ZNSecretAgentRef;

/* The credential of a service that answers one of its connection's
 * secrets. */
typedef uint32_t ZNSecretAgentCredential;
enum {
  kZNSecretAgentAccountPassword = 0,
  kZNSecretAgentSharedSecret = 1,
  kZNSecretAgentProxyPassword = 2
};

/* The service's credential as stored, NULL when there is none. `service`
 * is borrowed for the call. Ownership of the result: create (the agent
 * releases it). */
typedef PVStringRef (*ZNSecretAgentCopyCredentialCallBack)(ZNNetworkServiceRef service,
                                                           ZNSecretAgentCredential credential,
                                                           void *context);
typedef void (*ZNSecretAgentNoteCallBack)(const char *note, void *context);

/* An agent that reads credentials through `copyCredential` and tells what
 * it does through `note` (may be NULL). Connects to nothing yet.
 * Ownership: create. */
TW_EXPORT ZNSecretAgentRef ZNSecretAgentCreate(ZNSecretAgentCopyCredentialCallBack copyCredential,
                                               ZNSecretAgentNoteCallBack note,
                                               void *context) TW_NOEXCEPT;

/* Serves on the system bus until SIGTERM or SIGINT reaches the process,
 * then unregisters and returns true. The calling thread blocks both
 * signals while it runs (block them in every other thread as well). False,
 * with ZNError kZNStatusNoEngine, when the system bus cannot be reached or
 * goes away; NetworkManager itself may come and go. */
TW_EXPORT Boolean ZNSecretAgentRun(ZNSecretAgentRef agent) TW_NOEXCEPT;

TW_EXTERN_C_END

#endif /* TARNWICK_PLATFORM_AGENT_H */
