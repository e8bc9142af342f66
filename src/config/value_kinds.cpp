// The kind of value each known key of a configuration holds: what a caller
// that reads keys and values as text (a command line, a payload check)
// needs to convert a value and to tell a misspelt key from a real one.
#include <string>
#include <string_view>
#include <unordered_map>

#include "config/internal.hpp"

namespace {

struct KeyKind {
  const char *configurationType;
  const char *key;
  JXVPNValueKind kind;
};

constexpr JXVPNValueKind S = kJXVPNValueKindString;
constexpr JXVPNValueKind N = kJXVPNValueKindNumber;
constexpr JXVPNValueKind F = kJXVPNValueKindFlag;
constexpr JXVPNValueKind D = kJXVPNValueKindData;
constexpr JXVPNValueKind A = kJXVPNValueKindStringArray;

constexpr KeyKind kKeyKinds[] = {
    // The IPSec layer, or the IPSec extended configuration of an L2TP service.
    {"IPSec", "RemoteAddress", S}, {"IPSec", "LocalIdentifier", S},
    {"IPSec", "LocalIdentifierType", S}, {"IPSec", "AuthenticationMethod", S},
    {"IPSec", "SharedSecret", S}, {"IPSec", "SharedSecretEncryption", S},
    {"IPSec", "LocalCertificate", D}, {"IPSec", "IPSecSharedSecret", S},
    {"IPSec", "IPSecSharedSecretEncryption", S}, {"IPSec", "Transport", S},
    {"IPSec", "XAuthName", S}, {"IPSec", "XAuthPassword", S},
    {"IPSec", "XAuthPasswordEncryption", S}, {"IPSec", "XAuthEnabled", F},
    {"IPSec", "OnDemandEnabled", F}, {"IPSec", "OnDemandMatchDomainsAlways", A},
    {"IPSec", "OnDemandMatchDomainsOnRetry", A}, {"IPSec", "OnDemandMatchDomainsNever", A},
    {"IPSec", "OnDemandSupported", F}, {"IPSec", "PromptForVPNPIN", F},
    {"IPSec", "ExportedSharedSecret", D}, {"IPSec", "IPSecSharedSecretObf", D},
    {"IPSec", "PayloadCertificateUUID", S}, {"IPSec", "PayloadCertificateIdentityUUID", S},
    // The PPP layer.
    {"PPP", "OverridePrimary", F}, {"PPP", "ACSPEnabled", F}, {"PPP", "ConnectTime", N},
    {"PPP", "DeviceLastCause", N}, {"PPP", "DialOnDemand", F},
    {"PPP", "DisconnectOnFastUserSwitch", F}, {"PPP", "DisconnectOnIdle", F},
    {"PPP", "DisconnectOnIdleTimer", N}, {"PPP", "DisconnectOnLogout", F},
    {"PPP", "DisconnectOnSleep", F}, {"PPP", "DisconnectTime", N},
    {"PPP", "IdleReminderTimer", N}, {"PPP", "IdleReminder", F}, {"PPP", "LastCause", N},
    {"PPP", "Logfile", S}, {"PPP", "Plugins", A}, {"PPP", "RetryConnectTime", N},
    {"PPP", "SessionTimer", N}, {"PPP", "Status", N}, {"PPP", "UseSessionTimer", F},
    {"PPP", "VerboseLogging", F}, {"PPP", "AuthEAPPlugins", A}, {"PPP", "AuthName", S},
    {"PPP", "AuthPassword", S}, {"PPP", "AuthPasswordEncryption", S}, {"PPP", "AuthPrompt", S},
    {"PPP", "AuthProtocol", A}, {"PPP", "CommAlternateRemoteAddress", S},
    {"PPP", "CommConnectDelay", N}, {"PPP", "CommDisplayTerminalWindow", F},
    {"PPP", "CommRedialCount", N}, {"PPP", "CommRedialEnabled", F},
    {"PPP", "CommRedialInterval", N}, {"PPP", "CommRemoteAddress", S},
    {"PPP", "CommTerminalScript", S}, {"PPP", "CommUseTerminalScript", F},
    {"PPP", "CCPEnabled", F}, {"PPP", "CCPMPPE40Enabled", F}, {"PPP", "CCPMPPE128Enabled", F},
    {"PPP", "IPCPCompressionVJ", F}, {"PPP", "IPCPUsePeerDNS", F}, {"PPP", "LCPEchoEnabled", F},
    {"PPP", "LCPEchoFailure", N}, {"PPP", "LCPEchoInterval", N},
    {"PPP", "LCPCompressionACField", F}, {"PPP", "LCPCompressionPField", F},
    {"PPP", "LCPMRU", N}, {"PPP", "LCPMTU", N}, {"PPP", "LCPReceiveACCM", N},
    {"PPP", "LCPTransmitACCM", N},
    // The VPN layer of a vendor VPN.
    {"VPN", "RemoteAddress", S}, {"VPN", "AuthName", S}, {"VPN", "AuthPassword", S},
    {"VPN", "AuthenticationMethod", S}, {"VPN", "LocalCertificate", D},
    {"VPN", "OnDemandEnabled", F}, {"VPN", "OnDemandMatchDomainsAlways", A},
    {"VPN", "OnDemandMatchDomainsOnRetry", A}, {"VPN", "OnDemandMatchDomainsNever", A},
    {"VPN", "OnDemandSupported", F}, {"VPN", "PayloadCertificateUUID", S},
    {"VPN", "DisconnectOnSleep", F}, {"VPN", "DisconnectOnIdle", F},
    {"VPN", "DisconnectOnIdleTimer", N},
    // The L2TP layer.
    {"L2TP", "Transport", S}, {"L2TP", "IPSecSharedSecret", S},
    {"L2TP", "IPSecSharedSecretEncryption", S},
    // Protocols.
    {"IPv4", "OverridePrimary", F}, {"IPv4", "ConfigMethod", S}, {"IPv4", "Addresses", A},
    {"IPv4", "SubnetMasks", A}, {"IPv4", "DestAddresses", A}, {"IPv4", "Router", S},
    {"DNS", "ServerAddresses", A}, {"DNS", "SearchDomains", A}, {"DNS", "DomainName", S},
    {"DNS", "SupplementalMatchDomains", A},
    {"Proxies", "ExceptionsList", A}, {"Proxies", "ExcludeSimpleHostnames", F},
    {"Proxies", "FTPEnable", F}, {"Proxies", "FTPPassive", F}, {"Proxies", "FTPPort", N},
    {"Proxies", "FTPProxy", S}, {"Proxies", "GopherEnable", F}, {"Proxies", "GopherPort", N},
    {"Proxies", "GopherProxy", S}, {"Proxies", "HTTPEnable", F}, {"Proxies", "HTTPPort", N},
    {"Proxies", "HTTPProxy", S}, {"Proxies", "HTTPSEnable", F}, {"Proxies", "HTTPSPort", N},
    {"Proxies", "HTTPSProxy", S}, {"Proxies", "RTSPEnable", F}, {"Proxies", "RTSPPort", N},
    {"Proxies", "RTSPProxy", S}, {"Proxies", "SOCKSEnable", F}, {"Proxies", "SOCKSPort", N},
    {"Proxies", "SOCKSProxy", S}, {"Proxies", "ProxyAutoConfigEnable", F},
    {"Proxies", "ProxyAutoConfigURLString", S}, {"Proxies", "ProxyAutoDiscoveryEnable", F},
    {"Proxies", "HTTPProxyType", S}, {"Proxies", "HTTPProxyAuthenticated", F},
    {"Proxies", "HTTPProxyUsername", S}, {"Proxies", "HTTPProxyPassword", S},
    {"com.velmora.payload", "PayloadIdentifier", S}, {"com.velmora.payload", "PayloadUUID", S},
    {"com.velmora.payload", "PayloadOrganization", S}, {"com.velmora.payload", "PayloadRoot", S},
};

// "TYPE\nKEY": no type or key holds a line break.
const std::unordered_map<std::string, JXVPNValueKind> &kindsByTypeAndKey() {
  static const auto *kinds = [] {
    auto *map = new std::unordered_map<std::string, JXVPNValueKind>();
    for (const KeyKind &entry : kKeyKinds) {
      map->emplace(std::string(entry.configurationType) + "\n" + entry.key, entry.kind);
    }
    return map;
  }();
  return *kinds;
}

}  // namespace

extern "C" {

JXVPNValueKind JXVPNGetValueKindForKey(PVStringRef key, PVStringRef configurationType) noexcept {
  if (!key || !configurationType || PVGetTypeID(key) != PVStringGetTypeID() ||
      PVGetTypeID(configurationType) != PVStringGetTypeID()) {
    return kJXVPNValueKindUnknown;
  }
  try {
    const auto &kinds = kindsByTypeAndKey();
    auto found = kinds.find(std::string(PVStringGetCStringPtr(configurationType)) + "\n" +
                            PVStringGetCStringPtr(key));
    return found == kinds.end() ? kJXVPNValueKindUnknown : found->second;
  } catch (...) {
    return kJXVPNValueKindUnknown;
  }
}

}  // extern "C"
