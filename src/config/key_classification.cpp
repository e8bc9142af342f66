// Decides from a key alone which layer or protocol holds it.
//
// Seven key sets, each made on first use and kept for the life of the
// process. The configuration-type sets match by identity (no call-backs),
// so a caller must pass the key constants themselves; the protocol-type sets
// match by equal text. There is no lock: the library is driven from one
// thread at a time, and two threads racing through the first use at worst
// each make a set and one of them is kept.
#include <atomic>
#include <initializer_list>

#include "config/internal.hpp"
#include "tarnwick/platform/ref.hpp"

namespace {

using SetSlot = std::atomic<PVSetRef>;

// Makes the set into an empty slot; a slot that already holds one is kept.
template <typename Build>
PVSetRef buildIfEmpty(SetSlot &slot, Build build) {
  PVSetRef set = slot.load(std::memory_order_acquire);
  if (!set) {
    set = build();
    slot.store(set, std::memory_order_release);
  }
  return set;
}

// The configuration keys are listed by address: some constants are
// variables, read when the set is made.
template <size_t N>
PVSetRef identitySet(const PVStringRef *const (&keys)[N]) {
  PVTypeRef values[N];
  for (size_t i = 0; i < N; ++i) values[i] = *keys[i];
  return PVSetCreate(values, static_cast<PVIndex>(N), nullptr);
}

template <size_t N>
PVStringRef constantWithText(const PVStringRef *const (&keys)[N], PVStringRef text) {
  for (const PVStringRef *key : keys) {
    if (PVEqual(*key, text)) return *key;
  }
  return nullptr;
}

PVSetRef valueSet(std::initializer_list<PVTypeRef> keys) {
  return PVSetCreate(keys.begin(), static_cast<PVIndex>(keys.size()), &kPVTypeSetCallBacks);
}

SetSlot eapKeys{nullptr};
SetSlot ipsecKeys{nullptr};
SetSlot pppKeys{nullptr};
SetSlot vpnKeys{nullptr};
SetSlot payloadKeys{nullptr};
SetSlot ipv4Keys{nullptr};
SetSlot proxiesKeys{nullptr};

// EAP settings have their own configuration type, but no key is known to
// belong to it: the set is empty, and EAP keys reach the layer only through
// the installer's EAP dictionary.
PVSetRef eapSet() {
  return buildIfEmpty(eapKeys, [] { return PVSetCreate(nullptr, 0, nullptr); });
}

// The L2TP shared-secret and transport keys belong with IPSec: on an L2TP
// service they land in the PPP layer's extended IPSec configuration.
const PVStringRef *const kIPSecKeys[] = {
    &kZNPropNetIPSecLocalIdentifier,
    &kZNPropNetIPSecLocalIdentifierType,
    &kZNPropNetIPSecAuthenticationMethod,
    &kZNPropNetIPSecSharedSecret,
    &kZNPropNetIPSecSharedSecretEncryption,
    &kZNPropNetIPSecLocalCertificate,
    &kZNPropNetL2TPIPSecSharedSecret,
    &kZNPropNetL2TPIPSecSharedSecretEncryption,
    &kZNPropNetL2TPTransport,
    &kZNPropNetIPSecXAuthName,
    &kZNPropNetIPSecXAuthPassword,
    &kZNPropNetIPSecXAuthPasswordEncryption,
    &kZNPropNetIPSecXAuthEnabled,
    &kZNPropNetIPSecOnDemandEnabled,
    &kZNPropNetIPSecOnDemandMatchDomainsAlways,
    &kZNPropNetIPSecOnDemandMatchDomainsOnRetry,
    &kZNPropNetIPSecOnDemandMatchDomainsNever,
    &kJXVPNPropNetIPSecOnDemandSupported,
    &kJXVPNPromptForPinKey,
};

PVSetRef ipsecSet() {
  return buildIfEmpty(ipsecKeys, [] { return identitySet(kIPSecKeys); });
}

const PVStringRef *const kPPPKeys[] = {
    &kZNPropNetPPPOverridePrimary,
    &kZNPropNetPPPACSPEnabled,
    &kZNPropNetPPPConnectTime,
    &kZNPropNetPPPDeviceLastCause,
    &kZNPropNetPPPDialOnDemand,
    &kZNPropNetPPPDisconnectOnFastUserSwitch,
    &kZNPropNetPPPDisconnectOnIdle,
    &kZNPropNetPPPDisconnectOnIdleTimer,
    &kZNPropNetPPPDisconnectOnLogout,
    &kZNPropNetPPPDisconnectOnSleep,
    &kZNPropNetPPPDisconnectTime,
    &kZNPropNetPPPIdleReminderTimer,
    &kZNPropNetPPPIdleReminder,
    &kZNPropNetPPPLastCause,
    &kZNPropNetPPPLogfile,
    &kZNPropNetPPPPlugins,
    &kZNPropNetPPPRetryConnectTime,
    &kZNPropNetPPPSessionTimer,
    &kZNPropNetPPPStatus,
    &kZNPropNetPPPUseSessionTimer,
    &kZNPropNetPPPVerboseLogging,
    &kZNPropNetPPPAuthEAPPlugins,
    &kZNPropNetPPPAuthName,
    &kZNPropNetPPPAuthPassword,
    &kZNPropNetPPPAuthPasswordEncryption,
    &kZNPropNetPPPAuthPrompt,
    &kZNPropNetPPPAuthProtocol,
    &kZNPropNetPPPCommAlternateRemoteAddress,
    &kZNPropNetPPPCommConnectDelay,
    &kZNPropNetPPPCommDisplayTerminalWindow,
    &kZNPropNetPPPCommRedialCount,
    &kZNPropNetPPPCommRedialEnabled,
    &kZNPropNetPPPCommRedialInterval,
    &kZNPropNetPPPCommRemoteAddress,
    &kZNPropNetPPPCommTerminalScript,
    &kZNPropNetPPPCommUseTerminalScript,
    &kZNPropNetPPPCCPEnabled,
    &kZNPropNetPPPCCPMPPE40Enabled,
    &kZNPropNetPPPCCPMPPE128Enabled,
    &kZNPropNetPPPIPCPCompressionVJ,
    &kZNPropNetPPPIPCPUsePeerDNS,
    &kZNPropNetPPPLCPEchoEnabled,
    &kZNPropNetPPPLCPEchoFailure,
    &kZNPropNetPPPLCPEchoInterval,
    &kZNPropNetPPPLCPCompressionACField,
    &kZNPropNetPPPLCPCompressionPField,
    &kZNPropNetPPPLCPMRU,
    &kZNPropNetPPPLCPMTU,
    &kZNPropNetPPPLCPReceiveACCM,
    &kZNPropNetPPPLCPTransmitACCM,
};

PVSetRef pppSet() {
  return buildIfEmpty(pppKeys, [] { return identitySet(kPPPKeys); });
}

// The on-demand-supported key is in here too, but the IPSec set is asked
// first, so it always classifies as IPSec: one object under two names
// cannot tell its layers apart.
const PVStringRef *const kVPNKeys[] = {
    &kZNPropNetVPNAuthenticationMethod,
    &kZNPropNetVPNLocalCertificate,
    &kZNPropNetVPNOnDemandEnabled,
    &kZNPropNetVPNOnDemandMatchDomainsAlways,
    &kZNPropNetVPNOnDemandMatchDomainsOnRetry,
    &kZNPropNetVPNOnDemandMatchDomainsNever,
    &kJXVPNPropNetVPNOnDemandSupported,
};

PVSetRef vpnSet() {
  return buildIfEmpty(vpnKeys, [] { return identitySet(kVPNKeys); });
}

// "PayloadIdentifier" is left out: it is written to the payload protocol by
// name, never through the classifier, and services matched by it rely on
// that.
PVSetRef payloadSet() {
  return buildIfEmpty(payloadKeys, [] {
    auto uuid = pv::Ref<PVStringRef>::adopt(PVStringCreateWithCString("PayloadUUID"));
    return valueSet({uuid.get(), kJXPayloadOrganizationKey, kJXVPNPayloadRootKey});
  });
}

PVSetRef ipv4Set() {
  return buildIfEmpty(ipv4Keys, [] {
    auto overridePrimary =
        pv::Ref<PVStringRef>::adopt(PVStringCreateWithCString("OverridePrimary"));
    return valueSet({overridePrimary.get()});
  });
}

// The proxy-type key is listed twice and the three proxy-type values are
// listed as keys; both are kept as they have always been.
PVSetRef proxiesSet() {
  return buildIfEmpty(proxiesKeys, [] {
    return valueSet({
        kZNPropNetProxiesExceptionsList,
        kZNPropNetProxiesExcludeSimpleHostnames,
        kZNPropNetProxiesFTPEnable,
        kZNPropNetProxiesFTPPassive,
        kZNPropNetProxiesFTPPort,
        kZNPropNetProxiesFTPProxy,
        kZNPropNetProxiesGopherEnable,
        kZNPropNetProxiesGopherPort,
        kZNPropNetProxiesGopherProxy,
        kZNPropNetProxiesHTTPEnable,
        kZNPropNetProxiesHTTPPort,
        kZNPropNetProxiesHTTPProxy,
        kZNPropNetProxiesHTTPSEnable,
        kZNPropNetProxiesHTTPSPort,
        kZNPropNetProxiesHTTPSProxy,
        kZNPropNetProxiesRTSPEnable,
        kZNPropNetProxiesRTSPPort,
        kZNPropNetProxiesRTSPProxy,
        kZNPropNetProxiesSOCKSEnable,
        kZNPropNetProxiesSOCKSPort,
        kZNPropNetProxiesSOCKSProxy,
        kZNPropNetProxiesProxyAutoConfigEnable,
        kZNPropNetProxiesProxyAutoConfigURLString,
        kZNPropNetProxiesProxyAutoDiscoveryEnable,
        kJXVPNPropNetProxiesHTTPProxyTypeKey,
        kJXVPNPropNetProxiesHTTPProxyAuthenticatedKey,
        kJXVPNPropNetProxiesHTTPProxyUsernameKey,
        kJXVPNPropNetProxiesHTTPProxyPasswordKey,
        kJXVPNPropNetProxiesHTTPProxyTypeKey,
        kJXVPNPropNetProxiesHTTPProxyTypeNone,
        kJXVPNPropNetProxiesHTTPProxyTypeAutomatic,
        kJXVPNPropNetProxiesHTTPProxyTypeManual,
    });
  });
}

}  // namespace

extern "C" {

PVStringRef __JXVPNGetConfigurationTypeFromKey(PVStringRef key) noexcept {
  PVSetRef eap = eapSet();
  PVSetRef ipsec = ipsecSet();
  PVSetRef ppp = pppSet();
  PVSetRef vpn = vpnSet();
  if (PVSetContainsValue(eap, key)) return kZNValNetPPPAuthProtocolEAP;
  if (PVSetContainsValue(ipsec, key)) return kZNEntNetIPSec;
  if (PVSetContainsValue(ppp, key)) return kZNEntNetPPP;
  if (PVSetContainsValue(vpn, key)) return kZNEntNetVPN;
  return nullptr;
}

// The sets are made payload, IPv4, proxies but asked IPv4, proxies, payload;
// both orders are kept.
PVStringRef __JXVPNGetProtocolConfigurationTypeFromKey(PVStringRef key) noexcept {
  PVSetRef payload = payloadSet();
  PVSetRef ipv4 = ipv4Set();
  PVSetRef proxies = proxiesSet();
  if (PVSetContainsValue(ipv4, key)) return kZNEntNetIPv4;
  if (PVSetContainsValue(proxies, key)) return kZNNetworkProtocolTypeProxies;
  if (PVSetContainsValue(payload, key)) return kJXVPNProtocolTypePayload;
  return nullptr;
}

PVStringRef JXVPNGetConfigurationKeyConstant(PVStringRef key,
                                             PVStringRef configurationType) noexcept {
  if (!key) return nullptr;
  PVStringRef found = nullptr;
  if (!configurationType || PVEqual(configurationType, kZNEntNetIPSec)) {
    found = constantWithText(kIPSecKeys, key);
  }
  if (!found && (!configurationType || PVEqual(configurationType, kZNEntNetPPP))) {
    found = constantWithText(kPPPKeys, key);
  }
  if (!found && (!configurationType || PVEqual(configurationType, kZNEntNetVPN))) {
    found = constantWithText(kVPNKeys, key);
  }
  return found;
}

PVStringRef JXVPNGetProtocolTypeForKey(PVStringRef key) noexcept {
  return __JXVPNGetProtocolConfigurationTypeFromKey(key);
}

}  // extern "C"
