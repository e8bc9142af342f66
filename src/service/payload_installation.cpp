// Installing a payload: one dictionary describing a VPN configuration
// becomes a new, named, disabled service in every set of the session.
//
// The payload itself is never changed: each sub-dictionary is copied,
// the copy changed and merged, then released. Secrets the preferences must
// not hold are left out of the copies (the caller keeps them in the Coffer).
// A failed write abandons the service: it is removed from the session and
// released. A few failures are tolerated, each marked below with what
// relies on it.
#include "service/internal.hpp"
#include "tarnwick/platform/constant_string.hpp"
#include "tarnwick/platform/log.h"
#include "tarnwick/platform/ref.hpp"

namespace {

TW_DEFINE_LOCAL_CONSTANT_STRING(kOverridePrimaryKey, "OverridePrimary")
TW_DEFINE_LOCAL_CONSTANT_STRING(kPayloadDisplayNameKey, "PayloadDisplayName")

using MutableDictionary = pv::Ref<PVMutableDictionaryRef>;

PVTypeRef valueOf(PVDictionaryRef dictionary, PVStringRef key) {
  return PVDictionaryGetValue(dictionary, key);
}

// A mutable copy of the payload's entry under `key`; empty when the entry
// is absent or no copy can be made (not a dictionary included).
MutableDictionary copyOfEntry(PVDictionaryRef payload, PVStringRef key) {
  auto entry = static_cast<PVDictionaryRef>(valueOf(payload, key));
  if (!entry) return {};
  return MutableDictionary::adopt(PVDictionaryCreateMutableCopy(entry));
}

// The payload's own sub-dictionary, or failing that the payload, names a
// certificate.
bool namesCertificate(PVDictionaryRef payload, PVStringRef section) {
  auto own = static_cast<PVDictionaryRef>(valueOf(payload, section));
  return PVDictionaryContainsKey(own, kJXVPNPayloadCertificateUUIDKey) ||
         PVDictionaryContainsKey(payload, kJXVPNPayloadCertificateUUIDKey);
}

struct Installation {
  PVDictionaryRef payload;
  PVStringRef type;
  PVStringRef subtype;  // may be NULL
  ZNNetworkServiceRef service;

  bool is(PVStringRef entity) const { return PVEqual(type, entity); }

  bool applyPPP() const {
    if (is(kZNEntNetIPSec) || is(kZNEntNetVPN)) return true;
    MutableDictionary ppp = copyOfEntry(payload, kZNEntNetPPP);
    if (!ppp) return true;
    // Always true here (IPSec returned above); the repeated test stays so
    // that this step reads as the other layers' do.
    if (!is(kZNEntNetIPSec)) PVDictionaryRemoveValue(ppp.get(), kZNPropNetPPPAuthPassword);
    return JXVPNServiceMergeConfiguration(service, kZNEntNetPPP, ppp.get());
  }

  bool applyProxies() const {
    MutableDictionary proxies = copyOfEntry(payload, kZNNetworkProtocolTypeProxies);
    if (!proxies) return true;
    PVDictionaryRemoveValue(proxies.get(), kJXVPNPropNetProxiesHTTPProxyPasswordKey);
    return JXVPNServiceMergeProtocolConfiguration(service, kZNNetworkProtocolTypeProxies,
                                                  proxies.get());
  }

  // The EAP and IPv4 entries go in as they are; an absent one merges nothing.
  bool applyEAPAndIPv4() const {
    auto eap = static_cast<PVDictionaryRef>(valueOf(payload, kZNValNetPPPAuthProtocolEAP));
    if (!JXVPNServiceMergeConfiguration(service, kZNValNetPPPAuthProtocolEAP, eap)) return false;
    auto ipv4 = static_cast<PVDictionaryRef>(valueOf(payload, kZNEntNetIPv4));
    return JXVPNServiceMergeProtocolConfiguration(service, kZNEntNetIPv4, ipv4);
  }

  bool applyOverridePrimary() const {
    PVTypeRef value = valueOf(payload, kOverridePrimaryKey);
    return !value ||
           JXVPNServiceSetProtocolConfigurationProperty(service, kOverridePrimaryKey, value);
  }

  // Imports the client identity; a missing passphrase or a failed import
  // leaves the method as the payload had it, and installation goes on.
  void chooseCertificateFromContainer(PVMutableDictionaryRef ipsec, PVTypeRef container) const {
    auto passphrase = static_cast<PVStringRef>(valueOf(payload, kJXVPNCertificatePassphraseKey));
    if (!passphrase) return;
    PVArrayRef references = importIdentity(container, passphrase);
    if (!references) return;
    // An empty import stores no local certificate; the method still follows.
    if (PVArrayGetCount(references) > 0) {
      PVDictionarySetValue(ipsec, kZNPropNetIPSecLocalCertificate,
                           PVArrayGetValueAtIndex(references, 0));
    }
    PVDictionarySetValue(ipsec, kZNPropNetIPSecAuthenticationMethod,
                         kZNValNetIPSecAuthenticationMethodCertificate);
  }

  // The array of references is kept, never released, as the library always
  // has; it stays in a function of its own that the sanitizer run's leak
  // suppression can name.
  [[gnu::noinline]] static PVArrayRef importIdentity(PVTypeRef container, PVStringRef passphrase) {
    return JXCofferSetPKCS12Container(static_cast<PVDataRef>(container), passphrase);
  }

  void chooseIPSecAuthentication(PVMutableDictionaryRef ipsec) const {
    if (PVTypeRef container = valueOf(payload, kJXVPNCertificateDataKey)) {
      chooseCertificateFromContainer(ipsec, container);
    } else if (namesCertificate(payload, kZNEntNetIPSec)) {
      PVDictionarySetValue(ipsec, kZNPropNetIPSecAuthenticationMethod,
                           kZNValNetIPSecAuthenticationMethodCertificate);
    } else if (is(kZNEntNetIPSec) || is(kZNEntNetL2TP)) {
      PVDictionarySetValue(ipsec, kZNPropNetIPSecAuthenticationMethod,
                           kZNValNetIPSecAuthenticationMethodSharedSecret);
      PVDictionaryRemoveValue(ipsec, kJXVPNExportedIPSecSharedSecretKey);
      PVDictionaryRemoveValue(ipsec, kJXVPNEncryptedIPSecSharedSecretKey);
      PVDictionaryRemoveValue(ipsec, kZNPropNetIPSecXAuthPassword);
    }
  }

  bool applyIPSec() const {
    MutableDictionary ipsec = copyOfEntry(payload, kZNEntNetIPSec);
    if (!ipsec) return true;
    chooseIPSecAuthentication(ipsec.get());
    PVTypeRef method = valueOf(ipsec.get(), kZNPropNetIPSecAuthenticationMethod);
    if (method && PVEqual(method, kZNValNetIPSecAuthenticationMethodCertificate)) {
      PVDictionaryRemoveValue(ipsec.get(), kZNPropNetIPSecLocalIdentifier);
      PVDictionaryRemoveValue(ipsec.get(), kZNPropNetIPSecLocalIdentifierType);
    } else if (method) {
      PVDictionaryRemoveValue(ipsec.get(), kZNPropNetIPSecLocalCertificate);
    }
    // Presence alone marks on-demand support, even a false value.
    if (PVDictionaryContainsKey(ipsec.get(), kZNPropNetIPSecOnDemandEnabled)) {
      PVDictionarySetValue(ipsec.get(), kJXVPNPropNetIPSecOnDemandSupported, kPVBooleanTrue);
    }
    return JXVPNServiceMergeConfiguration(service, kZNEntNetIPSec, ipsec.get());
  }

  // Never abandons: a failed VPN merge only skips the vendor configuration,
  // and the vendor merge's result is not looked at, so that a payload whose
  // vendor settings cannot be written still installs a service to fix.
  void applyVPN() const {
    if (!valueOf(payload, kZNEntNetVPN)) return;
    MutableDictionary vpn = copyOfEntry(payload, kZNEntNetVPN);
    if (vpn) {
      if (namesCertificate(payload, kZNEntNetVPN)) {
        PVDictionarySetValue(vpn.get(), kZNPropNetVPNAuthenticationMethod,
                             kZNValNetVPNAuthenticationMethodCertificate);
      }
      if (PVDictionaryContainsKey(vpn.get(), kZNPropNetVPNOnDemandEnabled)) {
        PVDictionarySetValue(vpn.get(), kJXVPNPropNetVPNOnDemandSupported, kPVBooleanTrue);
      }
      if (!JXVPNServiceMergeConfiguration(service, kZNEntNetVPN, vpn.get())) return;
    }
    auto vendor = static_cast<PVDictionaryRef>(valueOf(payload, kJXVPNVendorConfigKey));
    if (vendor && subtype) JXVPNServiceMergeConfiguration(service, subtype, vendor);
  }

  // The first present of the payload's names, the service's own, the type
  // (never the subtype).
  bool applyName() const {
    PVTypeRef name = valueOf(payload, kZNPropUserDefinedName);
    if (!name) name = valueOf(payload, kPayloadDisplayNameKey);
    if (!name) name = JXVPNServiceGetConfigurationProperty(service, kZNPropUserDefinedName);
    if (!name) name = type;
    if (ZNNetworkServiceSetName(service, static_cast<PVStringRef>(name))) return true;
    SysLogWrite(kSysLogLevelError, "VPN: ZNNetworkServiceSetName failed.");
    return false;
  }

  // False when the service is to be abandoned.
  bool apply() const {
    if (!applyPPP() || !applyProxies() || !applyEAPAndIPv4() || !applyOverridePrimary() ||
        !applyIPSec()) {
      return false;
    }
    applyVPN();
    return applyName();
  }
};

}  // namespace

extern "C" {

ZNNetworkServiceRef JXVPNServiceCreateWithPayloadAtom(PVDictionaryRef payload,
                                                      ZNPreferencesRef preferences) noexcept {
  if (!payload) return nullptr;
  auto type = static_cast<PVStringRef>(valueOf(payload, kJXVPNTypeKey));
  if (!type) {
    SysLogWrite(kSysLogLevelError, "VPN: couldn't extract VPN type from payload");
    return nullptr;
  }
  auto subtype = static_cast<PVStringRef>(valueOf(payload, kJXVPNSubTypeKey));
  ZNNetworkServiceRef service = __JXVPNServiceCreate(subtype ? subtype : type, preferences);
  if (!service) return nullptr;

  Installation installation{payload, type, subtype, service};
  if (installation.apply() && __JXVPNServiceAddToAllSets(service, preferences)) return service;
  tw::service::abandon(service);
  return nullptr;
}

}  // extern "C"
