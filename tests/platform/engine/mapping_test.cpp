#include "platform/engine/mapping.hpp"

#include <gtest/gtest.h>

#include "platform/engine/name_uuid.hpp"
#include "support/test_support.hpp"

namespace engine {
namespace {

using tw::test::dict;
using tw::test::Ref;

const VendorTable kNoVendors;
constexpr char kStore[] = "/var/lib/tarnwick";

Ref<PVNumberRef> num(int64_t n) { return Ref<PVNumberRef>::adopt(PVNumberCreateWithInt64(n)); }

ServiceView view(ServiceKind kind, const char *name = "Office") {
  ServiceView service;
  service.id = "0f8c6a52-1d2e-4b7a-9c3e-5a6b7c8d9e0f";
  service.name = name;
  service.kind = kind;
  return service;
}

StringMap vpnData(const Mapping &mapping) {
  const Value *data = mapping.settings.find("vpn", "data");
  return data ? std::get<StringMap>(*data) : StringMap{};
}

std::string serviceType(const Mapping &mapping) {
  const std::string *type = mapping.settings.findString("vpn", "service-type");
  return type ? *type : "";
}

TEST(Mapping, EachKindMapsToItsPluginAndItsKeys) {
  auto ppp = dict({{kZNPropNetPPPCommRemoteAddress, "l2tp.example.com"},
                   {kZNPropNetPPPAuthName, "alice"},
                   {kZNPropNetPPPAuthPassword, "never-mapped"}});
  auto psk =
      dict({{kZNPropNetIPSecAuthenticationMethod, kZNValNetIPSecAuthenticationMethodSharedSecret},
            {kZNPropNetIPSecSharedSecretEncryption, kZNValNetIPSecSharedSecretEncryptionCoffer}});
  ServiceView l2tp = view(ServiceKind::l2tp);
  l2tp.ppp = ppp.get();
  l2tp.ipsec = psk.get();
  Mapping mapped = mapService(l2tp, kNoVendors, kStore);
  ASSERT_TRUE(mapped.expressible()) << mapped.reason;
  EXPECT_EQ(mapped.plugin, "l2tp");
  EXPECT_EQ(serviceType(mapped), "org.freedesktop.NetworkManager.l2tp");
  EXPECT_EQ(vpnData(mapped), (StringMap{{"gateway", "l2tp.example.com"},
                                        {"user", "alice"},
                                        {"password-flags", "1"},
                                        {"ipsec-enabled", "yes"},
                                        {"ipsec-psk-flags", "1"}}));
  // What the secret agent answers each secret from.
  using Secrets = std::map<std::string, Credential>;
  EXPECT_EQ(mapped.secrets, (Secrets{{"password", Credential::accountPassword},
                                     {"ipsec-psk", Credential::sharedSecret}}));

  // Plain L2TP: no IPSec at all.
  l2tp.ipsec = nullptr;
  EXPECT_FALSE(vpnData(mapService(l2tp, kNoVendors, kStore)).contains("ipsec-enabled"));

  ServiceView pptp = view(ServiceKind::pptp);
  pptp.ppp = ppp.get();
  mapped = mapService(pptp, kNoVendors, kStore);
  EXPECT_EQ(serviceType(mapped), "org.freedesktop.NetworkManager.pptp");
  EXPECT_EQ(
      vpnData(mapped),
      (StringMap{{"gateway", "l2tp.example.com"}, {"user", "alice"}, {"password-flags", "1"}}));

  auto xauth =
      dict({{"RemoteAddress", "gw.example.com"},
            {kZNPropNetIPSecAuthenticationMethod, kZNValNetIPSecAuthenticationMethodSharedSecret},
            {kZNPropNetIPSecLocalIdentifier, "staff"},
            {kZNPropNetIPSecLocalIdentifierType, "KeyID"},
            {kZNPropNetIPSecXAuthEnabled, num(1)},
            {kZNPropNetIPSecXAuthName, "bob"}});
  ServiceView ipsec = view(ServiceKind::ipsec);
  ipsec.ipsec = xauth.get();
  mapped = mapService(ipsec, kNoVendors, kStore);
  ASSERT_TRUE(mapped.expressible()) << mapped.reason;
  EXPECT_EQ(serviceType(mapped), "org.freedesktop.NetworkManager.vpnc");
  EXPECT_EQ(vpnData(mapped), (StringMap{{"IPSec gateway", "gw.example.com"},
                                        {"IPSec ID", "staff"},
                                        {"IPSec secret-flags", "1"},
                                        {"Xauth username", "bob"},
                                        {"Xauth password-flags", "1"}}));
  EXPECT_EQ(mapped.secrets, (Secrets{{"IPSec secret", Credential::sharedSecret},
                                     {"Xauth password", Credential::accountPassword}}));
}

TEST(Mapping, PPPOptionsBecomePluginOptions) {
  auto ppp = dict({{kZNPropNetPPPCommRemoteAddress, "vpn.example.com"},
                   {kZNPropNetPPPCCPEnabled, kPVBooleanFalse},
                   {kZNPropNetPPPCCPMPPE128Enabled, kPVBooleanTrue},
                   {kZNPropNetPPPCCPMPPE40Enabled, num(1)},
                   {kZNPropNetPPPIPCPCompressionVJ, num(0)},
                   {kZNPropNetPPPLCPEchoEnabled, kPVBooleanTrue},
                   {kZNPropNetPPPLCPEchoInterval, num(30)},
                   {kZNPropNetPPPLCPEchoFailure, num(4)},
                   {kZNPropNetPPPLCPMTU, num(1400)},
                   {kZNPropNetPPPLCPMRU, num(1380)}});
  StringMap expected = {{"gateway", "vpn.example.com"}, {"password-flags", "1"},
                        {"require-mppe", "yes"},        {"require-mppe-128", "yes"},
                        {"require-mppe-40", "yes"},     {"nobsdcomp", "yes"},
                        {"nodeflate", "yes"},           {"no-vj-comp", "yes"},
                        {"lcp-echo-interval", "30"},    {"lcp-echo-failure", "4"}};
  ServiceView pptp = view(ServiceKind::pptp);
  pptp.ppp = ppp.get();
  EXPECT_EQ(vpnData(mapService(pptp, kNoVendors, kStore)), expected);
  // Only the l2tp plugin takes the MTU and MRU.
  ServiceView l2tp = view(ServiceKind::l2tp);
  l2tp.ppp = ppp.get();
  expected["mtu"] = "1400";
  expected["mru"] = "1380";
  EXPECT_EQ(vpnData(mapService(l2tp, kNoVendors, kStore)), expected);

  // Echo intervals count only when echoes are on.
  auto quiet = dict({{kZNPropNetPPPLCPEchoEnabled, kPVBooleanFalse}}, ppp.get());
  pptp.ppp = quiet.get();
  EXPECT_FALSE(vpnData(mapService(pptp, kNoVendors, kStore)).contains("lcp-echo-interval"));
}

TEST(Mapping, WhatNoPluginCanExpressIsLeftOutWithItsReason) {
  auto server = dict({{kZNPropNetPPPCommRemoteAddress, "vpn.example.com"}});
  auto xauth = dict({{"RemoteAddress", "gw.example.com"},
                     {kZNPropNetIPSecLocalIdentifier, "staff"},
                     {kZNPropNetIPSecXAuthEnabled, num(1)}});
  auto certificate =
      dict({{kZNPropNetIPSecAuthenticationMethod, kZNValNetIPSecAuthenticationMethodCertificate}},
           xauth.get());
  auto certificateReference =
      dict({{kZNPropNetIPSecLocalCertificate, tw::test::bytes("ref")}}, xauth.get());
  auto hybrid =
      dict({{kZNPropNetIPSecAuthenticationMethod, kZNValNetIPSecAuthenticationMethodHybrid}},
           xauth.get());
  auto noXAuth = dict({{kZNPropNetIPSecXAuthEnabled, num(0)}}, xauth.get());
  auto noGroup = dict({{"RemoteAddress", "gw.example.com"}, {kZNPropNetIPSecXAuthEnabled, num(1)}});
  auto noGateway =
      dict({{kZNPropNetIPSecLocalIdentifier, "staff"}, {kZNPropNetIPSecXAuthEnabled, num(1)}});
  auto addressIdentifier = dict({{kZNPropNetIPSecLocalIdentifierType, "Address"}}, xauth.get());
  auto l2tpIdentifier = dict({{kZNPropNetIPSecLocalIdentifier, "office"}});
  auto eap = dict({{kZNPropNetPPPAuthProtocol, tw::test::array({tw::test::text("EAP").get()})}},
                  server.get());

  const struct {
    const char *what;
    ServiceKind kind;
    PVDictionaryRef ppp, ipsec, vpn;
    const char *reason;
  } cases[] = {
      {"IPSec certificate", ServiceKind::ipsec, nullptr, certificate.get(), nullptr,
       "client certificate"},
      {"IPSec certificate reference", ServiceKind::ipsec, nullptr, certificateReference.get(),
       nullptr, "client certificate"},
      {"IPSec hybrid", ServiceKind::ipsec, nullptr, hybrid.get(), nullptr, "hybrid"},
      {"IPSec without XAuth", ServiceKind::ipsec, nullptr, noXAuth.get(), nullptr, "without XAuth"},
      {"IPSec without group", ServiceKind::ipsec, nullptr, noGroup.get(), nullptr, "group name"},
      {"IPSec without server", ServiceKind::ipsec, nullptr, noGateway.get(), nullptr,
       "RemoteAddress"},
      {"IPSec address identifier", ServiceKind::ipsec, nullptr, addressIdentifier.get(), nullptr,
       "KeyID"},
      {"PPTP without server", ServiceKind::pptp, nullptr, nullptr, nullptr, "CommRemoteAddress"},
      {"L2TP certificate", ServiceKind::l2tp, server.get(), certificate.get(), nullptr,
       "only as files"},
      {"L2TP local identifier", ServiceKind::l2tp, server.get(), l2tpIdentifier.get(), nullptr,
       "local identifier"},
      {"PPP EAP", ServiceKind::pptp, eap.get(), nullptr, nullptr, "EAP"},
      {"vendor without plugin", ServiceKind::vendor, nullptr, nullptr, nullptr,
       "no plugin named for it in vendor-plugins.conf"},
  };
  for (const auto &c : cases) {
    ServiceView service = view(c.kind);
    service.ppp = c.ppp;
    service.ipsec = c.ipsec;
    service.vpn = c.vpn;
    service.vendorType = "com.example.vendor";
    Mapping mapped = mapService(service, kNoVendors, kStore);
    EXPECT_FALSE(mapped.expressible()) << c.what;
    EXPECT_NE(mapped.reason.find(c.reason), std::string::npos) << c.what << ": " << mapped.reason;
    EXPECT_TRUE(mapped.settings.settings.empty()) << c.what << ": nothing half-exported";
  }
}

TEST(Mapping, SecretsAreAgentOwnedAndNeverCarried) {
  auto ppp = dict({{kZNPropNetPPPCommRemoteAddress, "vpn.example.com"},
                   {kZNPropNetPPPAuthPassword, "ppp-secret-1"}});
  auto ipsec = dict({{kZNPropNetIPSecSharedSecret, "psk-secret-2"},
                     {kZNPropNetL2TPIPSecSharedSecret, "psk-secret-3"},
                     {kZNPropNetIPSecXAuthPassword, "xauth-secret-4"}});
  auto proxies = dict({{"HTTPProxyPassword", "proxy-secret-5"},
                       {kZNPropNetProxiesHTTPEnable, num(1)},
                       {kZNPropNetProxiesHTTPProxy, "proxy.example.com"}});
  ServiceView l2tp = view(ServiceKind::l2tp);
  l2tp.ppp = ppp.get();
  l2tp.ipsec = ipsec.get();
  l2tp.proxies = proxies.get();
  Mapping mapped = mapService(l2tp, kNoVendors, kStore);
  ASSERT_TRUE(mapped.expressible()) << mapped.reason;
  std::string everything = mapped.settings.canonical();
  for (const char *secret :
       {"ppp-secret-1", "psk-secret-2", "psk-secret-3", "xauth-secret-4", "proxy-secret-5"}) {
    EXPECT_EQ(everything.find(secret), std::string::npos) << secret;
  }
  EXPECT_EQ(mapped.settings.find("vpn", "secrets"), nullptr);
  int flags = 0;
  for (const auto &[key, value] : vpnData(mapped)) {
    if (key.ends_with("-flags")) {
      ++flags;
      EXPECT_EQ(value, "1") << key;
    }
  }
  EXPECT_EQ(flags, 2);  // the password and the pre-shared key
}

TEST(Mapping, EveryConnectionIsNamedAndRecognisedByItsService) {
  auto ppp = dict({{kZNPropNetPPPCommRemoteAddress, "vpn.example.com"}});
  ServiceView named = view(ServiceKind::pptp, "Harbour Legacy");
  named.ppp = ppp.get();
  const ConnectionSettings settings = mapService(named, kNoVendors, kStore).settings;
  EXPECT_EQ(*settings.findString("connection", "id"), "Harbour Legacy");
  EXPECT_EQ(*settings.findString("connection", "uuid"), nameUuid(named.id));
  EXPECT_EQ(*settings.findString("connection", "type"), "vpn");
  EXPECT_EQ(std::get<bool>(*settings.find("connection", "autoconnect")), false);
  EXPECT_EQ(std::get<StringMap>(*settings.find("user", "data")),
            (StringMap{{kServiceIDUserDataKey, named.id}, {kStoreUserDataKey, kStore}}));
  EXPECT_EQ(*settings.findString("ipv4", "method"), "auto");

  ServiceView unnamed = view(ServiceKind::pptp, "");
  unnamed.ppp = ppp.get();
  EXPECT_EQ(*mapService(unnamed, kNoVendors, kStore).settings.findString("connection", "id"),
            unnamed.id);
}

TEST(Mapping, OverridePrimaryDecidesTheDefaultRoute) {
  auto all = dict({{"OverridePrimary", num(1)}});
  auto split = dict({{"OverridePrimary", kPVBooleanFalse}});
  auto ppp = dict({{kZNPropNetPPPCommRemoteAddress, "vpn.example.com"}});
  auto pppSplit = dict({{kZNPropNetPPPOverridePrimary, num(0)}}, ppp.get());
  ServiceView service = view(ServiceKind::pptp);
  auto neverDefault = [&]() -> std::optional<bool> {
    Mapping mapped = mapService(service, kNoVendors, kStore);
    const Value *value = mapped.settings.find("ipv4", "never-default");
    if (!value) return std::nullopt;
    return std::get<bool>(*value);
  };
  service.ppp = ppp.get();
  EXPECT_EQ(neverDefault(), std::nullopt);  // NetworkManager's own default stays
  service.ipv4 = all.get();
  EXPECT_EQ(neverDefault(), false);
  service.ipv4 = split.get();
  EXPECT_EQ(neverDefault(), true);
  // The IPv4 protocol's value wins over the PPP layer's.
  service.ppp = pppSplit.get();
  service.ipv4 = all.get();
  EXPECT_EQ(neverDefault(), false);
  service.ipv4 = nullptr;
  EXPECT_EQ(neverDefault(), true);
}

TEST(Mapping, ProxiesBecomeAutoConfiguration) {
  auto ppp = dict({{kZNPropNetPPPCommRemoteAddress, "vpn.example.com"}});
  ServiceView service = view(ServiceKind::pptp);
  service.ppp = ppp.get();
  auto proxy = [&](const char *key) -> std::optional<Value> {
    Mapping mapped = mapService(service, kNoVendors, kStore);
    const Value *value = mapped.settings.find("proxy", key);
    return value ? std::optional(*value) : std::nullopt;
  };

  EXPECT_EQ(proxy("method"), std::nullopt);  // no proxies, no proxy setting

  auto pacURL =
      dict({{kZNPropNetProxiesProxyAutoConfigEnable, num(1)},
            {kZNPropNetProxiesProxyAutoConfigURLString, "http://wpad.example.com/proxy.pac"},
            {kZNPropNetProxiesHTTPEnable, num(1)},
            {kZNPropNetProxiesHTTPProxy, "ignored.example.com"}});
  service.proxies = pacURL.get();
  EXPECT_EQ(std::get<int32_t>(*proxy("method")), 1);
  EXPECT_EQ(std::get<std::string>(*proxy("pac-url")), "http://wpad.example.com/proxy.pac");
  EXPECT_EQ(proxy("pac-script"), std::nullopt);

  auto discovery = dict({{kZNPropNetProxiesProxyAutoDiscoveryEnable, num(1)}});
  service.proxies = discovery.get();
  EXPECT_EQ(std::get<int32_t>(*proxy("method")), 1);
  EXPECT_EQ(proxy("pac-url"), std::nullopt);

  auto fixed =
      dict({{kZNPropNetProxiesHTTPEnable, num(1)},
            {kZNPropNetProxiesHTTPProxy, "proxy.example.com"},
            {kZNPropNetProxiesHTTPPort, num(3128)},
            {kZNPropNetProxiesHTTPSEnable, num(1)},
            {kZNPropNetProxiesHTTPSProxy, "secure.example.com"},
            {kZNPropNetProxiesHTTPSPort, num(8443)},
            {kZNPropNetProxiesFTPEnable, num(0)},
            {kZNPropNetProxiesFTPProxy, "ftp.example.com"},
            {kZNPropNetProxiesSOCKSEnable, num(1)},
            {kZNPropNetProxiesSOCKSProxy, "socks.example.com"},
            {kZNPropNetProxiesSOCKSPort, num(1080)},
            {kZNPropNetProxiesExcludeSimpleHostnames, num(1)},
            {kZNPropNetProxiesExceptionsList,
             tw::test::array({tw::test::text("*.local").get(), tw::test::text("a\"b").get()})}});
  service.proxies = fixed.get();
  EXPECT_EQ(std::get<int32_t>(*proxy("method")), 1);
  EXPECT_EQ(std::get<std::string>(*proxy("pac-script")),
            "function FindProxyForURL(url, host) {\n"
            "  if (isPlainHostName(host)) return \"DIRECT\";\n"
            "  if (shExpMatch(host, \"*.local\")) return \"DIRECT\";\n"
            "  if (shExpMatch(host, \"a\\\"b\")) return \"DIRECT\";\n"
            "  if (url.substring(0, 6) == \"https:\") return \"PROXY secure.example.com:8443\";\n"
            "  if (url.substring(0, 5) == \"http:\") return \"PROXY proxy.example.com:3128\";\n"
            "  return \"SOCKS socks.example.com:1080\";\n"
            "}\n");
}

TEST(Mapping, VendorVPNsMapThroughTheAdministratorsTable) {
  VendorTable table = VendorTable::parse(
      "# vendor VPNs\n"
      "[com.example.vendor]\n"
      "service-type = org.freedesktop.NetworkManager.openconnect\n"
      "data.gateway = Vendor.Gateway\n"
      "data.port = Vendor.Port\n"
      "data.protocol = \"anyconnect\"\n"
      "data.username = VPN.AuthName\n"
      "data.missing = Vendor.NotThere\n"
      "secret = password\n"
      "secret.group-password = shared-secret\n"
      "\n"
      "[com.example.broken]\n"
      "service-type = org.freedesktop.NetworkManager.openconnect\n"
      "data.gateway = Gateway\n"
      "[com.example.typo]\n"
      "servicetype = x\n"
      "[com.example.empty]\n"
      "[com.example.unknown-secret]\n"
      "service-type = org.freedesktop.NetworkManager.openconnect\n"
      "secret.pin = token-code\n");
  auto vpn = dict({{kZNPropNetPPPAuthName, "alice"}});
  auto vendor = dict({{"Gateway", "access.example.com"}, {"Port", num(443)}});
  ServiceView service = view(ServiceKind::vendor);
  service.vpn = vpn.get();
  service.vendor = vendor.get();
  service.vendorType = "com.example.vendor";
  Mapping mapped = mapService(service, table, kStore);
  ASSERT_TRUE(mapped.expressible()) << mapped.reason;
  EXPECT_EQ(mapped.plugin, "org.freedesktop.NetworkManager.openconnect");
  EXPECT_EQ(serviceType(mapped), "org.freedesktop.NetworkManager.openconnect");
  EXPECT_EQ(vpnData(mapped), (StringMap{{"gateway", "access.example.com"},
                                        {"port", "443"},
                                        {"protocol", "anyconnect"},
                                        {"username", "alice"},
                                        {"password-flags", "1"},
                                        {"group-password-flags", "1"}}));
  EXPECT_EQ(mapped.secrets,
            (std::map<std::string, Credential>{{"password", Credential::accountPassword},
                                               {"group-password", Credential::sharedSecret}}));

  auto certificate = dict({{kZNPropNetVPNLocalCertificate, tw::test::bytes("ref")}}, vpn.get());
  service.vpn = certificate.get();
  EXPECT_NE(mapService(service, table, kStore).reason.find("client certificate"),
            std::string::npos);

  const std::pair<const char *, const char *> broken[] = {
      {"com.example.broken", "line 14: a data key takes VPN.KEY, Vendor.KEY or \"TEXT\""},
      {"com.example.typo", "line 16: unknown key \"servicetype\""},
      {"com.example.empty", "[com.example.empty] names no service-type"},
      {"com.example.unknown-secret",
       "line 20: a secret takes account-password, shared-secret or proxy-password"},
  };
  for (const auto &[subtype, reason] : broken) {
    service.vendorType = subtype;
    Mapping refused = mapService(service, table, kStore);
    EXPECT_FALSE(refused.expressible()) << subtype;
    EXPECT_TRUE(refused.secrets.empty()) << subtype;
    EXPECT_NE(refused.reason.find(reason), std::string::npos) << refused.reason;
  }
}

}  // namespace
}  // namespace engine
