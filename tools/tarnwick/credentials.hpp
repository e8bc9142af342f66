// A service's credentials as the tool handles them: stored in the Coffer
// and read back to be sure, reported only as stored or absent, and the
// configuration keys that would hold a secret in plain.
#pragma once

#include <string>
#include <vector>

#include "store.hpp"

namespace tarnwick {

enum class Secret { accountPassword, proxyPassword, sharedSecret };

// "account password", "proxy password", "shared secret".
const char *secretName(Secret which);
// "accountPassword", "proxyPassword", "sharedSecret": its JSON field.
const char *secretField(Secret which);

// The stored secret, or null.
Ref<PVStringRef> copySecret(ZNNetworkServiceRef service, Secret which);
// Stores the secret and reads it back: fails with the credential store's
// exit code when the Coffer did not keep it.
void storeSecret(ZNNetworkServiceRef service, Secret which, PVStringRef value);
void removeSecret(ZNNetworkServiceRef service, Secret which);

// The persistent references of the client identities the service's
// configuration names (the IPSec local certificate, and a vendor VPN's own).
std::vector<Ref<PVDataRef>> localCertificates(ZNNetworkServiceRef service);
// True when the Coffer holds the item the reference names.
bool cofferHolds(PVDataRef persistentReference);

// True for a configuration key whose value is a secret in plain or in one
// of the shared-secret encodings ("AuthPassword", "IPSecSharedSecretObf",
// a vendor's "Password"); such values are never printed.
bool isSecretKey(const std::string &key);

}  // namespace tarnwick
