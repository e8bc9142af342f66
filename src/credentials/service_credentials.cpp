// A service's secrets in the Coffer: the account password, the HTTP proxy
// password, the IPSec shared secret and the client certificate's reference.
//
// Items are named from the service (identifier or name, plus the account
// setting) and never carry a label, so that other readers of the Coffer
// find them under these names. Nothing here logs.
#include "credentials/service_credentials.hpp"

#include <initializer_list>

#include "tarnwick/platform/constant_string.hpp"
#include "tarnwick/platform/ref.hpp"

namespace {

TW_DEFINE_LOCAL_CONSTANT_STRING(kXAuthPasswordDescription, "IPSec XAuth Password")
TW_DEFINE_LOCAL_CONSTANT_STRING(kPPPPasswordDescription, "PPP Password")
TW_DEFINE_LOCAL_CONSTANT_STRING(kSharedSecretDescription, "IPSec Shared Secret")

bool isIPSec(PVStringRef serviceType) { return PVEqual(serviceType, kZNEntNetIPSec); }

PVStringRef retainedOrNull(PVStringRef string) {
  return string ? static_cast<PVStringRef>(PVRetain(string)) : nullptr;
}

// The service identifier followed by `suffix`.
PVStringRef createItemService(ZNNetworkServiceRef service, const char *suffix) {
  PVStringRef identifier = ZNNetworkServiceGetServiceID(service);
  if (!identifier) return nullptr;
  return PVStringCreateWithFormat("%s%s", PVStringGetCStringPtr(identifier), suffix);
}

// The account setting of the account password and the shared secret.
PVStringRef accountName(ZNNetworkServiceRef service, PVStringRef serviceType) {
  PVStringRef key = isIPSec(serviceType) ? kZNPropNetIPSecXAuthName : kZNPropNetPPPAuthName;
  return static_cast<PVStringRef>(JXVPNServiceGetConfigurationProperty(service, key));
}

struct CofferItem {
  pv::Ref<PVStringRef> service;
  PVStringRef account = nullptr;
  PVStringRef description = nullptr;
};

// No label is passed to the Coffer, although the naming offers one.
CofferItem passwordItem(ZNNetworkServiceRef service, JXVPNPasswordType type) {
  PVStringRef itemService = nullptr, account = nullptr, label = nullptr, description = nullptr;
  __JXVPNServiceGetCofferParameters(service, type, &itemService, &account, &label, &description);
  return {pv::Ref<PVStringRef>::adopt(itemService), account, description};
}

// Every service type keeps its shared secret under ".SS"; false for a
// service without a type.
bool nameSharedSecret(ZNNetworkServiceRef service, CofferItem &item) {
  PVStringRef serviceType = JXVPNServiceGetType(service);
  if (!serviceType) return false;
  item.service = pv::Ref<PVStringRef>::adopt(createItemService(service, ".SS"));
  item.account = accountName(service, serviceType);
  item.description = kSharedSecretDescription;
  return true;
}

void removeConfigurationProperties(ZNNetworkServiceRef service,
                                   std::initializer_list<PVTypeRef> keys) {
  auto array =
      pv::Ref<PVArrayRef>::adopt(PVArrayCreate(keys.begin(), static_cast<PVIndex>(keys.size())));
  if (array) JXVPNServiceRemoveConfigurationProperties(service, array.get());
}

bool isVendorVPN(ZNNetworkServiceRef service) {
  return PVEqual(JXVPNServiceGetType(service), kZNNetworkInterfaceTypeVPN);
}

}  // namespace

extern "C" {

void __JXVPNServiceGetCofferParameters(ZNNetworkServiceRef service, JXVPNPasswordType type,
                                       PVStringRef *outItemService, PVStringRef *outAccount,
                                       PVStringRef *outLabel,
                                       PVStringRef *outDescription) noexcept {
  if (type == kJXVPNPasswordTypeProxy) {
    // Named by the user-visible name, so that proxy passwords already stored
    // are found: services of one name share it, and a rename loses it.
    *outItemService = retainedOrNull(ZNNetworkServiceGetName(service));
    *outAccount = static_cast<PVStringRef>(JXVPNServiceGetProtocolConfigurationProperty(
        service, kJXVPNPropNetProxiesHTTPProxyUsernameKey));
    return;
  }
  PVStringRef serviceType = JXVPNServiceGetType(service);
  if (!serviceType) return;
  *outAccount = accountName(service, serviceType);
  if (isIPSec(serviceType)) {
    *outDescription = kXAuthPasswordDescription;
    *outItemService = createItemService(service, ".XAUTH");
  } else {
    *outDescription = kPPPPasswordDescription;
    *outItemService = retainedOrNull(ZNNetworkServiceGetServiceID(service));
  }
  *outLabel = ZNNetworkServiceGetName(service);
}

PVStringRef JXVPNServiceCopyPassword(ZNNetworkServiceRef service) noexcept {
  return JXVPNServiceCopyPasswordWithType(service, kJXVPNPasswordTypeAccount);
}

PVStringRef JXVPNServiceCopyPasswordWithType(ZNNetworkServiceRef service,
                                             JXVPNPasswordType type) noexcept {
  CofferItem item = passwordItem(service, type);
  return JXCofferCopyValue(item.service.get(), item.account, nullptr, item.description);
}

PVTypeRef JXVPNServiceSetPassword(ZNNetworkServiceRef service, PVStringRef password) noexcept {
  return JXVPNServiceSetPasswordWithType(service, kJXVPNPasswordTypeAccount, password);
}

PVTypeRef JXVPNServiceSetPasswordWithType(ZNNetworkServiceRef service, JXVPNPasswordType type,
                                          PVStringRef password) noexcept {
  CofferItem item = passwordItem(service, type);
  return JXCofferSetValue(item.service.get(), item.account, nullptr, item.description, password);
}

void JXVPNServiceRemovePassword(ZNNetworkServiceRef service) noexcept {
  JXVPNServiceRemovePasswordWithType(service, kJXVPNPasswordTypeAccount);
}

void JXVPNServiceRemovePasswordWithType(ZNNetworkServiceRef service,
                                        JXVPNPasswordType type) noexcept {
  CofferItem item = passwordItem(service, type);
  JXCofferRemoveValue(item.service.get(), item.account, nullptr, item.description);
}

PVStringRef JXVPNServiceCopySharedSecret(ZNNetworkServiceRef service) noexcept {
  CofferItem item;
  if (!nameSharedSecret(service, item)) return nullptr;
  return JXCofferCopyValue(item.service.get(), item.account, nullptr, item.description);
}

// The configuration is pointed at the Coffer even when nothing was stored
// (an empty secret included): installation stores the payload's secrets
// through here and counts on the configuration naming the Coffer after it.
Boolean JXVPNServiceSetSharedSecret(ZNNetworkServiceRef service, PVStringRef secret) noexcept {
  CofferItem item;
  if (!nameSharedSecret(service, item)) return false;
  PVRelease(JXCofferSetValue(item.service.get(), item.account, nullptr, item.description, secret));
  // The setter answers true whatever these writes do; their results are not looked at.
  (void)JXVPNServiceSetConfigurationProperty(service, kZNPropNetIPSecSharedSecretEncryption,
                                             kZNValNetIPSecSharedSecretEncryptionCoffer);
  PVTypeRef method =
      JXVPNServiceGetConfigurationProperty(service, kZNPropNetIPSecAuthenticationMethod);
  if (!method || !PVEqual(method, kZNValNetIPSecAuthenticationMethodHybrid)) {
    (void)JXVPNServiceSetConfigurationProperty(service, kZNPropNetIPSecAuthenticationMethod,
                                               kZNValNetIPSecAuthenticationMethodSharedSecret);
  }
  // No plain copy of the secret may stay in the preferences.
  removeConfigurationProperties(service, {kZNPropNetIPSecSharedSecret});
  return true;
}

// Leaves the plain secret and the method alone, unlike the setter, and
// drops the local identifier type with the encryption mark: a service
// whose secret is removed keeps the method its payload gave it.
void JXVPNServiceRemoveSharedSecret(ZNNetworkServiceRef service) noexcept {
  CofferItem item;
  if (!nameSharedSecret(service, item)) return;
  JXCofferRemoveValue(item.service.get(), item.account, nullptr, item.description);
  removeConfigurationProperties(
      service, {kZNPropNetIPSecSharedSecretEncryption, kZNPropNetIPSecLocalIdentifierType});
}

// The IPSec local certificate, whatever the service type.
Boolean JXVPNServiceSetCertificate(ZNNetworkServiceRef service, PVTypeRef certificate) noexcept {
  return JXVPNServiceSetConfigurationProperty(service, kZNPropNetIPSecLocalCertificate,
                                              certificate);
}

Boolean JXVPNServiceSetCertificatePersistantID(ZNNetworkServiceRef service,
                                               PVDataRef persistentReference) noexcept {
  if (!service || !persistentReference) return false;
  if (isVendorVPN(service)) {
    return JXVPNServiceSetConfigurationPropertyForType(service, kZNPropNetVPNLocalCertificate,
                                                       persistentReference, kZNEntNetVPN);
  }
  return JXVPNServiceSetConfigurationProperty(service, kZNPropNetIPSecLocalCertificate,
                                              persistentReference);
}

// Deletes only the identity's item and keeps the reference in the
// configuration; the issuers stay in the Coffer, where other identities
// imported from the same authority may share them.
Boolean JXVPNServiceRemoveCertificate(ZNNetworkServiceRef service) noexcept {
  if (!service) return false;
  PVTypeRef reference =
      isVendorVPN(service)
          ? JXVPNServiceGetConfigurationPropertyForType(service, kZNPropNetVPNLocalCertificate,
                                                        kZNEntNetVPN)
          : JXVPNServiceGetConfigurationProperty(service, kZNPropNetIPSecLocalCertificate);
  if (!reference) return false;
  return JXCofferRemoveWithPersistentID(static_cast<PVDataRef>(reference));
}

}  // extern "C"
