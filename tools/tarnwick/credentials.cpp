#include "credentials.hpp"

#include <cctype>

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

// Each secret's words, and its field in the JSON output.
struct SecretNames {
  Secret which;
  const char *name;
  const char *field;
};

constexpr SecretNames kSecretNames[] = {
    {Secret::accountPassword, "account password", "accountPassword"},
    {Secret::proxyPassword, "proxy password", "proxyPassword"},
    {Secret::sharedSecret, "shared secret", "sharedSecret"},
};

const SecretNames &namesOf(Secret which) {
  for (const SecretNames &names : kSecretNames) {
    if (names.which == which) return names;
  }
  return kSecretNames[0];
}

}  // namespace

const char *secretName(Secret which) { return namesOf(which).name; }

const char *secretField(Secret which) { return namesOf(which).field; }

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
  // Words a secret's key holds, in any configuration the library's or a
  // vendor's; the keys ending in "Encryption" only say where one is kept.
  std::string lower;
  for (char c : key) lower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  bool secretWord = lower.find("password") != std::string::npos ||
                    lower.find("secret") != std::string::npos ||
                    lower.find("passphrase") != std::string::npos;
  bool where = lower.size() >= 10 && lower.compare(lower.size() - 10, 10, "encryption") == 0;
  return secretWord && !where;
}

}  // namespace tarnwick
