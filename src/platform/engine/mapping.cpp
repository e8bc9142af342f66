// The mapping table. Where each key name comes from:
//  - vpn.service-type, the connection, ipv4 and proxy keys and the secret
//    flags: nm-settings-dbus(5), nm-settings-nmcli(5) and connections
//    that nmcli writes;
//  - the vpn.data keys: the plugins themselves, which refuse a key they do
//    not know when a connection is activated ("property ... invalid or not
//    supported" from the l2tp and pptp plugins; the vpnc plugin hands every
//    key it knows to vpnc as "IPSec gateway", "IPSec ID", ...).
//
//   service                          plugin  vpn.data
//   L2TP (PPP over L2TP)             l2tp    gateway, user, password-flags=1, the PPP options;
//     with an IPSec shared secret            ipsec-enabled=yes, ipsec-psk-flags=1
//   PPTP (PPP over PPTP)             pptp    gateway, user, password-flags=1, the PPP options
//   IPSec, shared secret and XAuth   vpnc    IPSec gateway, IPSec ID, IPSec secret-flags=1,
//                                            Xauth username, Xauth password-flags=1
//   vendor VPN                       as vendor-plugins.conf names it
//
//   Each *-flags=1 secret is answered by the secret agent from a credential:
//   password and Xauth password from the account password, ipsec-psk and
//   IPSec secret from the shared secret, a vendor plugin's as its table says.
//
//   PPP options: CCPMPPE128Enabled -> require-mppe, require-mppe-128;
//   CCPMPPE40Enabled -> require-mppe, require-mppe-40; CCPEnabled false ->
//   nobsdcomp, nodeflate; IPCPCompressionVJ false -> no-vj-comp;
//   LCPEchoEnabled -> lcp-echo-interval (LCPEchoInterval), lcp-echo-failure
//   (LCPEchoFailure); l2tp only: LCPMTU -> mtu, LCPMRU -> mru.
//
//   Every service: connection.id (the service's name), connection.uuid (a
//   name-based UUID of its identifier), connection.type vpn,
//   connection.autoconnect false, user.data org.tarnwick.service-id and
//   org.tarnwick.store,
//   ipv4.method auto; OverridePrimary (IPv4 protocol, else PPP layer) ->
//   ipv4.never-default (its negation); Proxies -> proxy.method 1 with
//   proxy.pac-url (ProxyAutoConfigURLString), or with nothing for
//   ProxyAutoDiscoveryEnable, or with proxy.pac-script made from the fixed
//   proxies (HTTP, HTTPS, FTP, Gopher, RTSP, SOCKS, ExceptionsList,
//   ExcludeSimpleHostnames).
//
// On-demand rules and the keys not named here have no NetworkManager
// equivalent and do not change how the connection is made; they stay in
// the store. What changes how it authenticates and has no equivalent
// (client certificates, EAP, hybrid IPSec, an L2TP local identifier) makes
// the service inexpressible.
#include "platform/engine/mapping.hpp"

#include <optional>
#include <vector>

#include "platform/engine/name_uuid.hpp"
#include "platform/engine/pac_script.hpp"
#include "platform/values/object.hpp"
#include "tarnwick/platform/prefs.h"
#include "tarnwick/platform/ref.hpp"

namespace engine {
namespace {

PV_DEFINE_LOCAL_CONSTANT_STRING(kRemoteAddress, "RemoteAddress")
PV_DEFINE_LOCAL_CONSTANT_STRING(kOverridePrimary, "OverridePrimary")
PV_DEFINE_LOCAL_CONSTANT_STRING(kKeyIDType, "KeyID")

const std::string kAgentOwned = "1";  // NM_SETTING_SECRET_FLAG_AGENT_OWNED

// Reads a configuration dictionary that may be absent.
class Config {
 public:
  explicit Config(PVDictionaryRef dictionary) : dictionary_(dictionary) {}

  PVTypeRef value(PVStringRef key) const {
    return dictionary_ ? PVDictionaryGetValue(dictionary_, key) : nullptr;
  }
  bool has(PVStringRef key) const { return value(key) != nullptr; }
  // A string's text; "" when absent or no string.
  std::string text(PVStringRef key) const {
    PVTypeRef v = value(key);
    return isA(v, PVStringGetTypeID()) ? PVStringGetCStringPtr(static_cast<PVStringRef>(v)) : "";
  }
  std::optional<int64_t> number(PVStringRef key) const {
    PVTypeRef v = value(key);
    int64_t n = 0;
    if (isA(v, PVNumberGetTypeID()) &&
        PVNumberGetValue(static_cast<PVNumberRef>(v), kPVNumberSInt64Type, &n)) {
      return n;
    }
    if (isA(v, PVBooleanGetTypeID())) return PVBooleanGetValue(static_cast<PVBooleanRef>(v));
    return std::nullopt;
  }
  // True for boolean true or a non-zero number; `otherwise` when absent.
  bool flag(PVStringRef key, bool otherwise = false) const {
    std::optional<int64_t> n = number(key);
    return n ? *n != 0 : otherwise;
  }
  bool equals(PVStringRef key, PVStringRef expected) const {
    PVTypeRef v = value(key);
    return v && PVEqual(v, expected);
  }
  std::vector<std::string> texts(PVStringRef key) const {
    std::vector<std::string> out;
    PVTypeRef v = value(key);
    if (!isA(v, PVArrayGetTypeID())) return out;
    auto array = static_cast<PVArrayRef>(v);
    for (PVIndex i = 0; i < PVArrayGetCount(array); ++i) {
      PVTypeRef item = PVArrayGetValueAtIndex(array, i);
      if (isA(item, PVStringGetTypeID())) {
        out.emplace_back(PVStringGetCStringPtr(static_cast<PVStringRef>(item)));
      }
    }
    return out;
  }
  // The value as vpn.data text: a string as it is, a number in decimal, a
  // boolean as yes or no; nothing for other values.
  std::optional<std::string> dataText(PVStringRef key) const {
    PVTypeRef v = value(key);
    if (isA(v, PVStringGetTypeID())) return text(key);
    if (isA(v, PVBooleanGetTypeID())) return flag(key) ? "yes" : "no";
    if (std::optional<int64_t> n = number(key)) return std::to_string(*n);
    return std::nullopt;
  }

 private:
  static bool isA(PVTypeRef v, PVTypeID type) { return v && PVGetTypeID(v) == type; }
  PVDictionaryRef dictionary_;
};

struct Builder {
  Mapping mapping;
  StringMap data;

  void cannot(std::string why) {
    if (mapping.reason.empty()) mapping.reason = std::move(why);
  }
  void agentOwned(const std::string &secret, Credential credential) {
    data[secret + "-flags"] = kAgentOwned;
    mapping.secrets[secret] = credential;
  }
};

// A client identity stays in the Coffer: its private key never becomes the
// file that every plugin here wants.
bool usesCertificate(const Config &ipsec) {
  return ipsec.equals(kZNPropNetIPSecAuthenticationMethod,
                      kZNValNetIPSecAuthenticationMethodCertificate) ||
         ipsec.has(kZNPropNetIPSecLocalCertificate);
}

void mapPPP(Builder &b, const Config &ppp, bool l2tp) {
  std::string server = ppp.text(kZNPropNetPPPCommRemoteAddress);
  if (server.empty()) b.cannot("no server address (CommRemoteAddress)");
  b.data["gateway"] = server;
  if (std::string user = ppp.text(kZNPropNetPPPAuthName); !user.empty()) b.data["user"] = user;
  b.agentOwned("password", Credential::accountPassword);

  for (const auto &protocol : ppp.texts(kZNPropNetPPPAuthProtocol)) {
    if (protocol == "EAP") b.cannot("PPP authentication by EAP: the plugin has no setting for it");
  }
  if (!ppp.texts(kZNPropNetPPPAuthEAPPlugins).empty()) {
    b.cannot("PPP EAP plug-ins: the plugin has no setting for them");
  }
  if (ppp.flag(kZNPropNetPPPCCPMPPE128Enabled)) {
    b.data["require-mppe"] = "yes";
    b.data["require-mppe-128"] = "yes";
  }
  if (ppp.flag(kZNPropNetPPPCCPMPPE40Enabled)) {
    b.data["require-mppe"] = "yes";
    b.data["require-mppe-40"] = "yes";
  }
  if (!ppp.flag(kZNPropNetPPPCCPEnabled, true)) {
    b.data["nobsdcomp"] = "yes";
    b.data["nodeflate"] = "yes";
  }
  if (!ppp.flag(kZNPropNetPPPIPCPCompressionVJ, true)) b.data["no-vj-comp"] = "yes";
  if (ppp.flag(kZNPropNetPPPLCPEchoEnabled)) {
    if (auto interval = ppp.dataText(kZNPropNetPPPLCPEchoInterval)) {
      b.data["lcp-echo-interval"] = *interval;
    }
    if (auto failure = ppp.dataText(kZNPropNetPPPLCPEchoFailure)) {
      b.data["lcp-echo-failure"] = *failure;
    }
  }
  if (l2tp) {
    if (auto mtu = ppp.dataText(kZNPropNetPPPLCPMTU)) b.data["mtu"] = *mtu;
    if (auto mru = ppp.dataText(kZNPropNetPPPLCPMRU)) b.data["mru"] = *mru;
  }
}

void mapL2TP(Builder &b, const ServiceView &service) {
  b.mapping.plugin = "l2tp";
  mapPPP(b, Config(service.ppp), true);
  Config ipsec(service.ipsec);
  if (usesCertificate(ipsec)) {
    b.cannot(
        "IPSec with a client certificate: the l2tp plugin takes a certificate and its private key "
        "only as files, and the key never leaves the Coffer");
  }
  if (ipsec.equals(kZNPropNetIPSecAuthenticationMethod, kZNValNetIPSecAuthenticationMethodHybrid)) {
    b.cannot("hybrid IPSec authentication: the l2tp plugin has no setting for it");
  }
  if (ipsec.has(kZNPropNetIPSecLocalIdentifier)) {
    b.cannot("an IPSec local identifier: the l2tp plugin has no setting for it");
  }
  bool sharedSecret = ipsec.equals(kZNPropNetIPSecAuthenticationMethod,
                                   kZNValNetIPSecAuthenticationMethodSharedSecret) ||
                      ipsec.has(kZNPropNetIPSecSharedSecretEncryption) ||
                      ipsec.has(kZNPropNetIPSecSharedSecret) ||
                      ipsec.has(kZNPropNetL2TPIPSecSharedSecret);
  if (sharedSecret) {
    b.data["ipsec-enabled"] = "yes";
    b.agentOwned("ipsec-psk", Credential::sharedSecret);
  }
}

void mapIPSec(Builder &b, const ServiceView &service) {
  b.mapping.plugin = "vpnc";
  Config ipsec(service.ipsec);
  if (usesCertificate(ipsec))
    b.cannot("IPSec with a client certificate: the vpnc plugin cannot carry one");
  if (ipsec.equals(kZNPropNetIPSecAuthenticationMethod, kZNValNetIPSecAuthenticationMethodHybrid)) {
    b.cannot(
        "hybrid IPSec authentication: the vpnc plugin takes its CA certificate only as a file");
  }
  if (!ipsec.flag(kZNPropNetIPSecXAuthEnabled)) {
    b.cannot("IPSec without XAuth: no installed plugin carries it (the vpnc plugin is for XAuth)");
  }
  std::string server = ipsec.text(kRemoteAddress);
  if (server.empty()) b.cannot("no server address (RemoteAddress)");
  std::string group = ipsec.text(kZNPropNetIPSecLocalIdentifier);
  if (group.empty()) b.cannot("no group name (LocalIdentifier), which the vpnc plugin needs");
  if (ipsec.has(kZNPropNetIPSecLocalIdentifierType) &&
      !ipsec.equals(kZNPropNetIPSecLocalIdentifierType, kKeyIDType)) {
    b.cannot("a local identifier other than a group name (KeyID): the vpnc plugin takes only that");
  }
  b.data["IPSec gateway"] = server;
  b.data["IPSec ID"] = group;
  b.agentOwned("IPSec secret", Credential::sharedSecret);
  if (std::string user = ipsec.text(kZNPropNetIPSecXAuthName); !user.empty()) {
    b.data["Xauth username"] = user;
  }
  b.agentOwned("Xauth password", Credential::accountPassword);
}

void mapVendor(Builder &b, const ServiceView &service, const VendorTable &vendors) {
  const VendorPlugin *plugin = vendors.find(service.vendorType);
  if (!plugin) {
    b.cannot("vendor VPN " + service.vendorType + ": no plugin named for it in " +
             kVendorTableName);
    return;
  }
  if (!plugin->error.empty()) {
    b.cannot(plugin->error);
    return;
  }
  b.mapping.plugin = plugin->serviceType;
  Config vpn(service.vpn);
  if (vpn.equals(kZNPropNetVPNAuthenticationMethod, kZNValNetVPNAuthenticationMethodCertificate) ||
      vpn.has(kZNPropNetVPNLocalCertificate)) {
    b.cannot("a client certificate: its private key never leaves the Coffer for a plugin's file");
  }
  for (const auto &[key, source] : plugin->data) {
    if (source.layer == VendorSource::literal) {
      b.data[key] = source.text;
      continue;
    }
    auto name = pv::Ref<PVStringRef>::adopt(PVStringCreateWithCString(source.text.c_str()));
    Config layer(source.layer == VendorSource::vpn ? service.vpn : service.vendor);
    if (auto text = layer.dataText(name.get())) b.data[key] = *text;
  }
  for (const auto &[secret, credential] : plugin->secrets) b.agentOwned(secret, credential);
}

std::string hostAndPort(const Config &proxies, PVStringRef host, PVStringRef port) {
  std::string text = proxies.text(host);
  if (auto number = proxies.number(port)) text.append(":").append(std::to_string(*number));
  return text;
}

void mapProxies(Builder &b, const Config &proxies) {
  std::string pacURL = proxies.text(kZNPropNetProxiesProxyAutoConfigURLString);
  if (proxies.flag(kZNPropNetProxiesProxyAutoConfigEnable) && !pacURL.empty()) {
    b.mapping.settings.set("proxy", "method", int32_t(1));
    b.mapping.settings.set("proxy", "pac-url", pacURL);
    return;
  }
  FixedProxies fixed;
  const struct {
    PVStringRef enable, host, port;
    const char *scheme;
  } routes[] = {
      {kZNPropNetProxiesHTTPSEnable, kZNPropNetProxiesHTTPSProxy, kZNPropNetProxiesHTTPSPort,
       "https"},
      {kZNPropNetProxiesHTTPEnable, kZNPropNetProxiesHTTPProxy, kZNPropNetProxiesHTTPPort, "http"},
      {kZNPropNetProxiesFTPEnable, kZNPropNetProxiesFTPProxy, kZNPropNetProxiesFTPPort, "ftp"},
      {kZNPropNetProxiesGopherEnable, kZNPropNetProxiesGopherProxy, kZNPropNetProxiesGopherPort,
       "gopher"},
      {kZNPropNetProxiesRTSPEnable, kZNPropNetProxiesRTSPProxy, kZNPropNetProxiesRTSPPort, "rtsp"},
  };
  for (const auto &route : routes) {
    if (proxies.flag(route.enable) && !proxies.text(route.host).empty()) {
      fixed.routes.push_back({route.scheme, hostAndPort(proxies, route.host, route.port)});
    }
  }
  if (proxies.flag(kZNPropNetProxiesSOCKSEnable) &&
      !proxies.text(kZNPropNetProxiesSOCKSProxy).empty()) {
    fixed.socks = hostAndPort(proxies, kZNPropNetProxiesSOCKSProxy, kZNPropNetProxiesSOCKSPort);
  }
  if (!fixed.routes.empty() || !fixed.socks.empty()) {
    fixed.bypass = proxies.texts(kZNPropNetProxiesExceptionsList);
    fixed.bypassPlainHostNames = proxies.flag(kZNPropNetProxiesExcludeSimpleHostnames);
    b.mapping.settings.set("proxy", "method", int32_t(1));
    b.mapping.settings.set("proxy", "pac-script", pacScript(fixed));
  } else if (proxies.flag(kZNPropNetProxiesProxyAutoDiscoveryEnable)) {
    b.mapping.settings.set("proxy", "method", int32_t(1));
  }
}

void mapIPv4(Builder &b, const ServiceView &service) {
  b.mapping.settings.set("ipv4", "method", std::string("auto"));
  Config ipv4(service.ipv4);
  Config ppp(service.ppp);
  std::optional<int64_t> overridePrimary = ipv4.number(kOverridePrimary);
  if (!overridePrimary) overridePrimary = ppp.number(kZNPropNetPPPOverridePrimary);
  if (overridePrimary) b.mapping.settings.set("ipv4", "never-default", *overridePrimary == 0);
}

}  // namespace

Mapping mapService(const ServiceView &service, const VendorTable &vendors,
                   const std::string &store) {
  Builder b;
  switch (service.kind) {
    case ServiceKind::l2tp:
      mapL2TP(b, service);
      break;
    case ServiceKind::pptp:
      b.mapping.plugin = "pptp";
      mapPPP(b, Config(service.ppp), false);
      break;
    case ServiceKind::ipsec:
      mapIPSec(b, service);
      break;
    case ServiceKind::vendor:
      mapVendor(b, service, vendors);
      break;
  }
  if (!b.mapping.expressible()) {
    b.mapping.settings = {};
    b.mapping.secrets.clear();
    return std::move(b.mapping);
  }
  ConnectionSettings &s = b.mapping.settings;
  s.set("connection", "id", service.name.empty() ? service.id : service.name);
  s.set("connection", "uuid", nameUuid(service.id));
  s.set("connection", "type", std::string("vpn"));
  s.set("connection", "autoconnect", false);
  s.set("user", "data", StringMap{{kServiceIDUserDataKey, service.id}, {kStoreUserDataKey, store}});
  const std::string &plugin = b.mapping.plugin;
  s.set(
      "vpn", "service-type",
      plugin.find('.') == std::string::npos ? "org.freedesktop.NetworkManager." + plugin : plugin);
  s.set("vpn", "data", std::move(b.data));
  mapIPv4(b, service);
  mapProxies(b, Config(service.proxies));
  return std::move(b.mapping);
}

}  // namespace engine
