#include "credentials.hpp"

#include <algorithm>
#include <iterator>

#include "failure.hpp"
#include "values.hpp"

namespace tarnwick {
namespace {

JXVPNPasswordType passwordType(Secret which) {
  return which == Secret::proxyPassword ? kJXVPNPasswordTypeProxy : kJXVPNPasswordTypeAccount;
}

void appendData(std::vector<Ref<PVDataRef>> &references, PVTypeRef value) {
  if (!value || PVGetTypeID(value) != PVDataGetTypeID()) return;
  auto data = static_cast<PVDataRef>(value);
  for (const auto &known : references) {
    if (PVEqual(known.get(), data)) return;
  }
  references.push_back(Ref<PVDataRef>::retain(data));
}

}  // namespace

const char *secretName(Secret which) {
  switch (which) {
    case Secret::accountPassword:
      return "account password";
    case Secret::proxyPassword:
      return "proxy password";
    case Secret::sharedSecret:
      return "shared secret";
  }
  return "secret";
}

Ref<PVStringRef> copySecret(ZNNetworkServiceRef service, Secret which) {
  if (which == Secret::sharedSecret) {
    return Ref<PVStringRef>::adopt(JXVPNServiceCopySharedSecret(service));
  }
  return Ref<PVStringRef>::adopt(JXVPNServiceCopyPasswordWithType(service, passwordType(which)));
}

void storeSecret(ZNNetworkServiceRef service, Secret which, PVStringRef value) {
  if (which == Secret::sharedSecret) {
    JXVPNServiceSetSharedSecret(service, value);
  } else {
    // The result is only the new item's reference, and NULL for an update:
    // reading the secret back is what tells whether it was kept.
    PVRelease(JXVPNServiceSetPasswordWithType(service, passwordType(which), value));
  }
  auto stored = copySecret(service, which);
  if (!stored || !PVEqual(stored.get(), value)) {
    throw Failure(Exit::credentialStore, std::string("the Coffer did not keep the ") +
                                             secretName(which) + " of \"" + serviceName(service) +
                                             "\"");
  }
}

void removeSecret(ZNNetworkServiceRef service, Secret which) {
  if (which == Secret::sharedSecret) {
    JXVPNServiceRemoveSharedSecret(service);
  } else {
    JXVPNServiceRemovePasswordWithType(service, passwordType(which));
  }
}

std::vector<Ref<PVDataRef>> localCertificates(ZNNetworkServiceRef service) {
  std::vector<Ref<PVDataRef>> references;
  appendData(references,
             JXVPNServiceGetConfigurationProperty(service, kZNPropNetIPSecLocalCertificate));
  if (PVEqual(JXVPNServiceGetType(service), kZNNetworkInterfaceTypeVPN)) {
    appendData(references, JXVPNServiceGetConfigurationPropertyForType(
                               service, kZNPropNetVPNLocalCertificate, kZNEntNetVPN));
  }
  return references;
}

bool cofferHolds(PVDataRef persistentReference) {
  const PVTypeRef keys[] = {kVltValuePersistentRef};
  const PVTypeRef values[] = {persistentReference};
  auto query = Ref<PVDictionaryRef>::adopt(PVDictionaryCreate(keys, values, 1));
  return VltItemCopyMatching(query.get(), nullptr) == kVltSuccess;
}

bool isSecretKey(const std::string &key) {
  // "SharedSecret" is also a value of the authentication method; as a key
  // it is the IPSec secret itself.
  static const char *const secretKeys[] = {"AuthPassword",         "XAuthPassword",
                                           "SharedSecret",         "IPSecSharedSecret",
                                           "ExportedSharedSecret", "IPSecSharedSecretObf",
                                           "HTTPProxyPassword",    "_certificatePassphrase"};
  return std::find(std::begin(secretKeys), std::end(secretKeys), key) != std::end(secretKeys);
}

}  // namespace tarnwick
