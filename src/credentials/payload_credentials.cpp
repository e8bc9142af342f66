// Reads the credentials a payload carries: the value, the configuration key
// it belongs to and whether the configuration uses it. The payload is only
// read; nothing is stored here.
#include "tarnwick.h"

namespace {

PVTypeRef valueOf(PVDictionaryRef dictionary, PVStringRef key) {
  return dictionary ? PVDictionaryGetValue(dictionary, key) : nullptr;
}

bool holds(PVDictionaryRef dictionary, PVStringRef key) {
  return PVDictionaryContainsKey(dictionary, key);
}

bool isKind(PVTypeRef value, PVTypeID kind) { return value && PVGetTypeID(value) == kind; }

// An entity dictionary of the payload; anything else under its key counts
// as absent.
PVDictionaryRef entity(PVDictionaryRef payload, PVStringRef key) {
  PVTypeRef value = valueOf(payload, key);
  return isKind(value, PVDictionaryGetTypeID()) ? static_cast<PVDictionaryRef>(value) : nullptr;
}

PVTypeRef vpnType(PVDictionaryRef payload) { return valueOf(payload, kJXVPNTypeKey); }

// A configuration that authenticates by certificate uses neither the XAuth
// password nor a shared secret.
bool usesCertificate(PVDictionaryRef ipsec) {
  return PVEqual(valueOf(ipsec, kZNPropNetIPSecAuthenticationMethod),
                 kZNValNetIPSecAuthenticationMethodCertificate) ||
         holds(ipsec, kJXVPNPayloadCertificateUUIDKey) ||
         holds(ipsec, kJXVPNPayloadCertificateIdentityUUIDKey);
}

// A token card's code is asked for at connection time; no password applies.
bool promptsForTokenCode(PVDictionaryRef payload) {
  PVTypeRef plugins = valueOf(entity(payload, kZNEntNetPPP), kZNPropNetPPPAuthEAPPlugins);
  bool isRsa =
      isKind(plugins, PVArrayGetTypeID()) &&
      PVArrayContainsValue(static_cast<PVArrayRef>(plugins), kJXVPNPropNetPPPAuthEAPPluginRSA);
  PVTypeRef encryption =
      valueOf(entity(payload, kZNEntNetIPSec), kZNPropNetIPSecXAuthPasswordEncryption);
  return PVEqual(encryption, kZNValNetIPSecXAuthPasswordEncryptionPrompt) && isRsa;
}

PVTypeRef retained(PVTypeRef value) { return value ? PVRetain(value) : nullptr; }

// Secrets may come as data holding UTF-8 text; null when it is not UTF-8.
PVTypeRef copyAsText(PVTypeRef value) {
  if (!isKind(value, PVDataGetTypeID())) return retained(value);
  auto data = static_cast<PVDataRef>(value);
  return PVStringCreateWithBytes(PVDataGetBytePtr(data), PVDataGetLength(data),
                                 kPVStringEncodingUTF8);
}

struct Credential {
  PVStringRef key = nullptr;
  PVTypeRef value = nullptr;  // borrowed from the payload
  bool applies = false;
};

void report(const Credential &credential, PVStringRef *ioKey, Boolean *outApplies) {
  if (ioKey) *ioKey = credential.key;
  if (outApplies) *outApplies = credential.applies;
}

Credential accountUserName(PVDictionaryRef payload) {
  PVTypeRef type = vpnType(payload);
  if (PVEqual(type, kZNEntNetIPSec)) {
    Credential result{kZNPropNetIPSecXAuthName};
    PVDictionaryRef ipsec = entity(payload, kZNEntNetIPSec);
    PVTypeRef method = valueOf(ipsec, kZNPropNetIPSecAuthenticationMethod);
    if (ipsec && method && PVEqual(method, kZNValNetIPSecAuthenticationMethodSharedSecret)) {
      result.value = valueOf(ipsec, kZNPropNetIPSecXAuthName);
      result.applies = true;
    }
    return result;
  }
  if (PVEqual(type, kZNEntNetVPN)) return {};
  return {kZNPropNetPPPAuthName, valueOf(entity(payload, kZNEntNetPPP), kZNPropNetPPPAuthName),
          true};
}

Credential proxyUserName(PVDictionaryRef payload, PVStringRef key) {
  Credential result{key};
  PVDictionaryRef proxies = entity(payload, kZNNetworkProtocolTypeProxies);
  if (!proxies) return result;
  result.value = valueOf(proxies, kJXVPNPropNetProxiesHTTPProxyUsernameKey);
  PVTypeRef authenticated = valueOf(proxies, kJXVPNPropNetProxiesHTTPProxyAuthenticatedKey);
  if (!authenticated) {
    result.applies = result.value != nullptr;
  } else if (isKind(authenticated, PVNumberGetTypeID())) {
    // Only the low byte counts: 256 reads as false.
    int number = 0;
    PVNumberGetValue(static_cast<PVNumberRef>(authenticated), kPVNumberIntType, &number);
    result.applies = static_cast<Boolean>(number) != 0;
  }
  // Any other kind, a boolean included, never applies: payloads that say
  // true rather than 1 have always installed without the proxy user name.
  return result;
}

Credential accountPassword(PVDictionaryRef payload) {
  if (promptsForTokenCode(payload)) return {};
  PVTypeRef type = vpnType(payload);
  if (PVEqual(type, kZNEntNetIPSec)) {
    Credential result{kZNPropNetIPSecXAuthPassword};
    PVDictionaryRef ipsec = entity(payload, kZNEntNetIPSec);
    if (!ipsec || usesCertificate(ipsec)) return result;
    result.value = valueOf(ipsec, kZNPropNetIPSecXAuthPassword);
    result.applies = true;
    return result;
  }
  if (PVEqual(type, kZNEntNetVPN)) return {};
  return {kZNPropNetPPPAuthPassword,
          valueOf(entity(payload, kZNEntNetPPP), kZNPropNetPPPAuthPassword), true};
}

// Unlike the user name, a proxy password applies only when authentication
// is left unsaid and a user name is given: a password without its user is
// of no use to the proxy.
Credential proxyPassword(PVDictionaryRef payload, PVStringRef key) {
  Credential result{key};
  PVDictionaryRef proxies = entity(payload, kZNNetworkProtocolTypeProxies);
  if (!proxies) return result;
  result.value = valueOf(proxies, kJXVPNPropNetProxiesHTTPProxyPasswordKey);
  result.applies = !valueOf(proxies, kJXVPNPropNetProxiesHTTPProxyAuthenticatedKey) &&
                   valueOf(proxies, kJXVPNPropNetProxiesHTTPProxyUsernameKey);
  return result;
}

// The first source the IPSec dictionary carries, as a new value.
PVTypeRef copySharedSecret(PVDictionaryRef ipsec) {
  if (PVTypeRef plain = valueOf(ipsec, kZNPropNetL2TPIPSecSharedSecret)) return copyAsText(plain);
  if (PVTypeRef plain = valueOf(ipsec, kZNPropNetIPSecSharedSecret)) return copyAsText(plain);
  if (PVTypeRef exported = valueOf(ipsec, kJXVPNExportedIPSecSharedSecretKey)) {
    return JXVPNCreateImportedIPSecSharedSecret(static_cast<PVDataRef>(exported));
  }
  if (PVTypeRef encrypted = valueOf(ipsec, kJXVPNEncryptedIPSecSharedSecretKey)) {
    return JXVPNCreateDecryptedIPSecSharedSecret(static_cast<PVDataRef>(encrypted));
  }
  return nullptr;
}

}  // namespace

extern "C" {

PVTypeRef JXVPNCopyPayloadUserName(PVDictionaryRef payload, PVStringRef *ioKey,
                                   Boolean *outApplies) noexcept {
  if (!payload) return nullptr;
  PVStringRef requested = ioKey ? *ioKey : nullptr;
  Credential credential{requested};
  if (!requested) {
    credential = accountUserName(payload);
  } else if (PVEqual(requested, kJXVPNPropNetProxiesHTTPProxyUsernameKey)) {
    credential = proxyUserName(payload, requested);
  }
  report(credential, ioKey, outApplies);
  return retained(credential.value);
}

PVTypeRef JXVPNCopyPayloadPassword(PVDictionaryRef payload, PVStringRef *ioKey,
                                   Boolean *outApplies) noexcept {
  // The slot is read before anything else, untested: callers always pass one.
  PVStringRef requested = *ioKey;
  if (!payload) return nullptr;
  Credential credential{requested};
  if (!requested) {
    credential = accountPassword(payload);
  } else if (PVEqual(requested, kJXVPNPropNetProxiesHTTPProxyPasswordKey)) {
    credential = proxyPassword(payload, requested);
  }
  report(credential, ioKey, outApplies);
  return copyAsText(credential.value);
}

PVTypeRef JXVPNCopyPayloadSharedSecret(PVDictionaryRef payload, PVStringRef *ioKey,
                                       Boolean *outApplies) noexcept {
  if (!payload) return nullptr;
  PVTypeRef type = vpnType(payload);
  if (!type || !(PVEqual(type, kZNEntNetIPSec) || PVEqual(type, kZNEntNetL2TP))) {
    report({}, ioKey, outApplies);
    return nullptr;
  }
  // The key is the IPSec one even when the value comes from the L2TP key.
  Credential credential{kZNPropNetIPSecSharedSecret};
  PVDictionaryRef ipsec = entity(payload, kZNEntNetIPSec);
  if (!ipsec || usesCertificate(ipsec)) {
    report(credential, ioKey, outApplies);
    return nullptr;
  }
  // Applies even without a value: the user must then be asked for it.
  credential.applies = true;
  report(credential, ioKey, outApplies);
  return copySharedSecret(ipsec);
}

PVTypeRef JXVPNCopyPayloadPIN(PVDictionaryRef payload, PVStringRef *ioKey,
                              Boolean *outApplies) noexcept {
  if (!payload) return nullptr;
  PVDictionaryRef ipsec = entity(payload, kZNEntNetIPSec);
  bool prompts = PVEqual(vpnType(payload), kZNEntNetIPSec) && ipsec &&
                 PVEqual(valueOf(ipsec, kJXVPNPromptForPinKey), kPVBooleanTrue);
  report({nullptr, nullptr, prompts}, ioKey, outApplies);
  return nullptr;  // a PIN never travels in a payload
}

}  // extern "C"
