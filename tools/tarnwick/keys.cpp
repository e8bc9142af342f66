#include "keys.hpp"

#include <algorithm>
#include <iterator>

#include "values.hpp"

namespace tarnwick {
namespace {

// The configuration keys of the IPSec and PPP layers (the L2TP keys live
// with IPSec), as the library's and the platform's constants.
const PVStringRef *const kConfigurationKeys[] = {
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

// The generic VPN layer's keys; each shares its text with an IPSec key.
const PVStringRef *const kVPNKeys[] = {
    &kZNPropNetVPNAuthenticationMethod,
    &kZNPropNetVPNLocalCertificate,
    &kZNPropNetVPNOnDemandEnabled,
    &kZNPropNetVPNOnDemandMatchDomainsAlways,
    &kZNPropNetVPNOnDemandMatchDomainsOnRetry,
    &kZNPropNetVPNOnDemandMatchDomainsNever,
    &kJXVPNPropNetVPNOnDemandSupported,
};

// The keys the protocol classifier knows (it compares text): the Proxies
// keys, "OverridePrimary" of IPv4 and the payload protocol's keys.
const char *const kProtocolKeys[] = {"ExceptionsList",
                                     "ExcludeSimpleHostnames",
                                     "FTPEnable",
                                     "FTPPassive",
                                     "FTPPort",
                                     "FTPProxy",
                                     "GopherEnable",
                                     "GopherPort",
                                     "GopherProxy",
                                     "HTTPEnable",
                                     "HTTPPort",
                                     "HTTPProxy",
                                     "HTTPSEnable",
                                     "HTTPSPort",
                                     "HTTPSProxy",
                                     "RTSPEnable",
                                     "RTSPPort",
                                     "RTSPProxy",
                                     "SOCKSEnable",
                                     "SOCKSPort",
                                     "SOCKSProxy",
                                     "ProxyAutoConfigEnable",
                                     "ProxyAutoConfigURLString",
                                     "ProxyAutoDiscoveryEnable",
                                     "HTTPProxyType",
                                     "HTTPProxyAuthenticated",
                                     "HTTPProxyUsername",
                                     "HTTPProxyPassword",
                                     "None",
                                     "Automatic",
                                     "Manual",
                                     "OverridePrimary",
                                     "PayloadUUID",
                                     "PayloadOrganization",
                                     "PayloadRoot"};

template <size_t N>
PVStringRef constantFor(const PVStringRef *const (&table)[N], const std::string &text) {
  for (const PVStringRef *constant : table) {
    if (textOf(*constant) == text) return *constant;
  }
  return nullptr;
}

}  // namespace

ResolvedKey resolveKey(ZNNetworkServiceRef service, const std::string &text) {
  ResolvedKey resolved;
  resolved.isProtocolKey = std::find(std::begin(kProtocolKeys), std::end(kProtocolKeys), text) !=
                           std::end(kProtocolKeys);
  bool vendorVPN = PVEqual(JXVPNServiceGetType(service), kZNNetworkInterfaceTypeVPN);
  if (vendorVPN) resolved.key = constantFor(kVPNKeys, text);
  if (!resolved.key) resolved.key = constantFor(kConfigurationKeys, text);
  if (!resolved.key) {
    resolved.made = makeString(text);
    resolved.key = resolved.made.get();
  }
  return resolved;
}

}  // namespace tarnwick
