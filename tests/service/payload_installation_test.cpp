// Installing payloads: what each type's configuration becomes, what is
// stripped, the client identity, names, and every abandon path.
#include "service/session_fixture.hpp"
#include "support/pkcs12_fixtures.hpp"

namespace tw::test {
namespace {

class PayloadInstallation : public SessionTest {
 protected:
  Ref<ZNNetworkServiceRef> install(PVTypeRef payload) {
    return Ref<ZNNetworkServiceRef>::adopt(
        JXVPNServiceCreateWithPayloadAtom(static_cast<PVDictionaryRef>(payload), prefs()));
  }
  Ref<ZNNetworkServiceRef> install(std::initializer_list<std::pair<DictItem, DictItem>> payload) {
    return install(dict(payload).get());
  }
  static PVDictionaryRef configuration(ZNNetworkServiceRef service, PVStringRef type) {
    return JXVPNServiceGetConfiguration(service, type);
  }
  static Ref<PVDataRef> container() { return bytes(pkcs12Fixtures().chainContainer); }
};

bool has(PVDictionaryRef dictionary, PVStringRef key) {
  return PVDictionaryContainsKey(dictionary, key);
}
std::string at(PVDictionaryRef dictionary, PVStringRef key) {
  return textOf(PVDictionaryGetValue(dictionary, key));
}

// Every secret the IPSec dictionary can carry, with a local identity.
Ref<PVDictionaryRef> ipsecWithSecrets(
    std::initializer_list<std::pair<DictItem, DictItem>> more = {}) {
  return dict(more, dict({{kZNPropNetIPSecXAuthName, "alice"},
                          {kZNPropNetIPSecXAuthPassword, "xauth secret"},
                          {kJXVPNExportedIPSecSharedSecretKey, bytes("exported")},
                          {kJXVPNEncryptedIPSecSharedSecretKey, bytes("obfuscated")},
                          {kZNPropNetIPSecLocalCertificate, bytes("old reference")},
                          {kZNPropNetIPSecLocalIdentifier, "alice@example.com"},
                          {kZNPropNetIPSecLocalIdentifierType, "UserFQDN"}})
                        .get());
}

TEST_F(PayloadInstallation, IPSecWithoutCertificateUsesTheSharedSecretAndDropsSecrets) {
  auto service = install({{kJXVPNTypeKey, kZNEntNetIPSec},
                          {kZNEntNetPPP, dict({{kZNPropNetPPPAuthName, "ignored"}})},
                          {kZNEntNetIPSec, ipsecWithSecrets()}});
  ASSERT_TRUE(service);
  EXPECT_EQ(configuration(service.get(), kZNEntNetPPP), nullptr);
  PVDictionaryRef ipsec = configuration(service.get(), kZNEntNetIPSec);
  EXPECT_EQ(at(ipsec, kZNPropNetIPSecAuthenticationMethod), "SharedSecret");
  for (PVStringRef gone : {kJXVPNExportedIPSecSharedSecretKey, kJXVPNEncryptedIPSecSharedSecretKey,
                           kZNPropNetIPSecXAuthPassword, kZNPropNetIPSecLocalCertificate}) {
    EXPECT_FALSE(has(ipsec, gone)) << textOf(gone);
  }
  // A shared-secret configuration keeps its local identifier.
  EXPECT_EQ(at(ipsec, kZNPropNetIPSecLocalIdentifier), "alice@example.com");
  EXPECT_EQ(at(ipsec, kZNPropNetIPSecXAuthName), "alice");
  EXPECT_EQ(textOf(ZNNetworkServiceGetName(service.get())), "IPSec");
  EXPECT_TRUE(capturedLog().empty());
}

TEST_F(PayloadInstallation, L2TPDropsThePPPPasswordAndGetsTheSharedSecretMethod) {
  auto service =
      install({{kJXVPNTypeKey, kZNEntNetL2TP},
               {kZNEntNetPPP,
                dict({{kZNPropNetPPPAuthName, "bob"}, {kZNPropNetPPPAuthPassword, "ppp secret"}})},
               {kZNEntNetIPSec, dict({{kZNPropNetIPSecSharedSecret, "s"}})},
               {kZNNetworkProtocolTypeProxies,
                dict({{kJXVPNPropNetProxiesHTTPProxyUsernameKey, "proxy user"},
                      {kJXVPNPropNetProxiesHTTPProxyPasswordKey, "proxy pw"}})}});
  ASSERT_TRUE(service);
  PVDictionaryRef ppp = configuration(service.get(), kZNEntNetPPP);
  EXPECT_EQ(at(ppp, kZNPropNetPPPAuthName), "bob");
  EXPECT_FALSE(has(ppp, kZNPropNetPPPAuthPassword));
  // No IPSec layer: the settings ride on the PPP layer as an extended configuration.
  ZNNetworkInterfaceRef outer = ZNNetworkServiceGetInterface(service.get());
  PVDictionaryRef ipsec = ZNNetworkInterfaceGetExtendedConfiguration(outer, kZNEntNetIPSec);
  EXPECT_EQ(at(ipsec, kZNPropNetIPSecAuthenticationMethod), "SharedSecret");
  // A certificate named inside the IPSec dictionary wins over the shared secret.
  auto named = install({{kJXVPNTypeKey, kZNEntNetL2TP},
                        {kZNEntNetIPSec, dict({{kJXVPNPayloadCertificateUUIDKey, "c"}})}});
  EXPECT_EQ(at(configuration(named.get(), kZNEntNetIPSec), kZNPropNetIPSecAuthenticationMethod),
            "Certificate");
  PVDictionaryRef proxies =
      JXVPNServiceGetProtocolConfiguration(service.get(), kZNNetworkProtocolTypeProxies);
  EXPECT_EQ(at(proxies, kJXVPNPropNetProxiesHTTPProxyUsernameKey), "proxy user");
  EXPECT_FALSE(has(proxies, kJXVPNPropNetProxiesHTTPProxyPasswordKey));
}

TEST_F(PayloadInstallation, PPTPKeepsTheIPSecMethodAsGiven) {
  auto service =
      install({{kJXVPNTypeKey, kZNEntNetPPTP},
               {kZNEntNetIPSec,
                ipsecWithSecrets({{kZNPropNetIPSecAuthenticationMethod, "Hybrid"}}).get()}});
  PVDictionaryRef ipsec = configuration(service.get(), kZNEntNetIPSec);
  EXPECT_EQ(at(ipsec, kZNPropNetIPSecAuthenticationMethod), "Hybrid");
  // Secrets are only stripped with the shared-secret method; another
  // method only loses the local certificate.
  EXPECT_TRUE(has(ipsec, kZNPropNetIPSecXAuthPassword));
  EXPECT_FALSE(has(ipsec, kZNPropNetIPSecLocalCertificate));

  auto withoutMethod =
      install(dict({{kJXVPNTypeKey, kZNEntNetPPTP}, {kZNEntNetIPSec, ipsecWithSecrets()}}).get());
  EXPECT_TRUE(
      has(configuration(withoutMethod.get(), kZNEntNetIPSec), kZNPropNetIPSecLocalCertificate));
}

TEST_F(PayloadInstallation, VendorVPNIgnoresPPPAndStoresVendorConfigWithASubtype) {
  auto vendor = text("com.example.vpn");
  auto service = install({{kJXVPNTypeKey, kZNEntNetVPN},
                          {kJXVPNSubTypeKey, vendor},
                          {kZNEntNetPPP, dict({{kZNPropNetPPPAuthName, "ignored"}})},
                          {kZNEntNetVPN, dict({{kZNPropNetVPNOnDemandEnabled, kPVBooleanFalse},
                                               {text("RemoteAddress").get(), "vpn.example.com"}})},
                          {kJXVPNVendorConfigKey, dict({{"Realm", "corp"}})}});
  ASSERT_TRUE(service);
  EXPECT_EQ(chainTypes(service.get()), "VPN/com.example.vpn/IPv4");
  EXPECT_EQ(configuration(service.get(), kZNEntNetPPP), nullptr);
  PVDictionaryRef vpn = configuration(service.get(), kZNEntNetVPN);
  EXPECT_EQ(at(vpn, text("RemoteAddress").get()), "vpn.example.com");
  // Presence alone marks on-demand support: the true value itself.
  EXPECT_EQ(PVDictionaryGetValue(vpn, kJXVPNPropNetVPNOnDemandSupported), kPVBooleanTrue);
  EXPECT_FALSE(has(vpn, kZNPropNetVPNAuthenticationMethod));
  EXPECT_EQ(at(configuration(service.get(), vendor.get()), text("Realm").get()), "corp");
  // The name falls back to the type, never the subtype.
  EXPECT_EQ(textOf(ZNNetworkServiceGetName(service.get())), "VPN");
}

TEST_F(PayloadInstallation, VendorConfigNeedsBothAVPNDictionaryAndASubtype) {
  auto vendor = text("com.example.vpn");
  auto vendorConfig = dict({{"Realm", "corp"}});
  auto noVPN = install({{kJXVPNTypeKey, kZNEntNetVPN},
                        {kJXVPNSubTypeKey, vendor},
                        {kJXVPNVendorConfigKey, vendorConfig}});
  EXPECT_FALSE(has(configuration(noVPN.get(), vendor.get()), text("Realm").get()));
  auto noSubtype = install(
      {{kJXVPNTypeKey, vendor}, {kZNEntNetVPN, dict({})}, {kJXVPNVendorConfigKey, vendorConfig}});
  EXPECT_FALSE(has(configuration(noSubtype.get(), vendor.get()), text("Realm").get()));
}

TEST_F(PayloadInstallation, IPSecTypeWithSubtypeBuildsTheSubtypeChainButDecidesByType) {
  auto service = install({{kJXVPNTypeKey, kZNEntNetIPSec},
                          {kJXVPNSubTypeKey, "com.example.vpn"},
                          {kZNEntNetIPSec, ipsecWithSecrets()}});
  EXPECT_EQ(chainTypes(service.get()), "VPN/com.example.vpn/IPv4");
  EXPECT_EQ(at(configuration(service.get(), kZNEntNetIPSec), kZNPropNetIPSecAuthenticationMethod),
            "SharedSecret");
  EXPECT_EQ(textOf(ZNNetworkServiceGetName(service.get())), "IPSec");
}

TEST_F(PayloadInstallation, TopLevelCertificateUUIDGivesBothLayersTheCertificateMethod) {
  auto service = install({{kJXVPNTypeKey, kZNEntNetVPN},
                          {kJXVPNSubTypeKey, "com.example.vpn"},
                          {kJXVPNPayloadCertificateUUIDKey, "cert-uuid"},
                          {kZNEntNetIPSec, ipsecWithSecrets()},
                          {kZNEntNetVPN, dict({})}});
  PVDictionaryRef ipsec = configuration(service.get(), kZNEntNetIPSec);
  EXPECT_EQ(at(ipsec, kZNPropNetIPSecAuthenticationMethod), "Certificate");
  EXPECT_FALSE(has(ipsec, kZNPropNetIPSecLocalIdentifier));
  EXPECT_FALSE(has(ipsec, kZNPropNetIPSecLocalIdentifierType));
  EXPECT_TRUE(has(ipsec, kZNPropNetIPSecXAuthPassword));  // kept with a certificate
  EXPECT_EQ(at(configuration(service.get(), kZNEntNetVPN), kZNPropNetVPNAuthenticationMethod),
            "Certificate");
}

TEST_F(PayloadInstallation, ClientIdentityBecomesTheLocalCertificate) {
  auto identity = container();
  auto service =
      install({{kJXVPNTypeKey, kZNEntNetIPSec},
               {kJXVPNCertificateDataKey, identity},
               {kJXVPNCertificatePassphraseKey, pkcs12Fixtures().passphrase.c_str()},
               {kZNEntNetIPSec,
                ipsecWithSecrets({{kZNPropNetIPSecOnDemandEnabled, kPVBooleanFalse}}).get()}});
  ASSERT_TRUE(service);
  PVDictionaryRef ipsec = configuration(service.get(), kZNEntNetIPSec);
  EXPECT_EQ(at(ipsec, kZNPropNetIPSecAuthenticationMethod), "Certificate");
  EXPECT_FALSE(has(ipsec, kZNPropNetIPSecLocalIdentifier));
  EXPECT_EQ(PVDictionaryGetValue(ipsec, kJXVPNPropNetIPSecOnDemandSupported), kPVBooleanTrue);
  // Importing again finds the items already stored: the same references.
  auto again = Ref<PVArrayRef>::adopt(
      JXCofferSetPKCS12Container(identity.get(), text(pkcs12Fixtures().passphrase).get()));
  ASSERT_GT(PVArrayGetCount(again.get()), 0);
  EXPECT_TRUE(PVEqual(PVDictionaryGetValue(ipsec, kZNPropNetIPSecLocalCertificate),
                      PVArrayGetValueAtIndex(again.get(), 0)));
}

// A refused container or a missing passphrase: the method stays as given
// and installation goes on.
TEST_F(PayloadInstallation, FailedIdentityImportKeepsTheMethodAndInstalls) {
  auto identity = container();
  for (const char *passphrase : {"wrong passphrase", static_cast<const char *>(nullptr)}) {
    for (PVStringRef method : {kZNValNetIPSecAuthenticationMethodCertificate,
                               kZNValNetIPSecAuthenticationMethodSharedSecret}) {
      auto ipsec = ipsecWithSecrets({{kZNPropNetIPSecAuthenticationMethod, method}});
      auto payload = dict({{kJXVPNTypeKey, kZNEntNetIPSec},
                           {kJXVPNCertificateDataKey, identity},
                           {kZNEntNetIPSec, ipsec}});
      if (passphrase) payload = dict({{kJXVPNCertificatePassphraseKey, passphrase}}, payload.get());
      auto service = install(payload.get());
      ASSERT_TRUE(service);
      PVDictionaryRef stored = configuration(service.get(), kZNEntNetIPSec);
      bool certificate = method == kZNValNetIPSecAuthenticationMethodCertificate;
      EXPECT_EQ(at(stored, kZNPropNetIPSecAuthenticationMethod), textOf(method));
      EXPECT_EQ(has(stored, kZNPropNetIPSecLocalIdentifier), !certificate);
      EXPECT_EQ(at(stored, kZNPropNetIPSecLocalCertificate),
                certificate ? "(not a string)" : "(null)");
      // Nothing stripped: the secrets go only with the shared-secret rule.
      EXPECT_TRUE(has(stored, kZNPropNetIPSecXAuthPassword));
    }
  }
}

TEST_F(PayloadInstallation, NameFallsBackFromUserDefinedToDisplayNameToType) {
  auto user = install({{kJXVPNTypeKey, kZNEntNetL2TP},
                       {kZNPropUserDefinedName, "User"},
                       {"PayloadDisplayName", "Display"}});
  auto display = install({{kJXVPNTypeKey, kZNEntNetPPTP}, {"PayloadDisplayName", "Display"}});
  auto typeOnly = install({{kJXVPNTypeKey, kZNEntNetPPTP}});
  EXPECT_EQ(textOf(ZNNetworkServiceGetName(user.get())), "User");
  EXPECT_EQ(textOf(ZNNetworkServiceGetName(display.get())), "Display");
  EXPECT_EQ(textOf(ZNNetworkServiceGetName(typeOnly.get())), "PPTP");
}

// Built twice, so that the second is a deep copy of the first.
Ref<PVDictionaryRef> richPayload() {
  return dict(
      {{kJXVPNTypeKey, kZNEntNetL2TP},
       {kZNPropUserDefinedName, "Office"},
       {"OverridePrimary", kPVBooleanTrue},
       {kZNEntNetPPP, dict({{kZNPropNetPPPAuthName, "bob"}, {kZNPropNetPPPAuthPassword, "ppp"}})},
       {kZNEntNetIPSec, ipsecWithSecrets({{kZNPropNetIPSecOnDemandEnabled, kPVBooleanTrue}})},
       {kZNEntNetIPv4, dict({{"Addresses", "10.0.0.2"}})},
       {kZNValNetPPPAuthProtocolEAP, dict({{"EAPType", "TLS"}})},
       {kZNNetworkProtocolTypeProxies, dict({{kJXVPNPropNetProxiesHTTPProxyPasswordKey, "p"}})}});
}

TEST_F(PayloadInstallation, LeavesThePayloadUnchangedAndCommitsNothing) {
  auto payload = richPayload();
  auto service = install(payload.get());
  ASSERT_TRUE(service);
  EXPECT_TRUE(PVEqual(payload.get(), richPayload().get()));
  EXPECT_EQ(at(JXVPNServiceGetProtocolConfiguration(service.get(), kZNEntNetIPv4),
               text("Addresses").get()),
            "10.0.0.2");
  EXPECT_EQ(
      JXVPNServiceGetProtocolConfigurationProperty(service.get(), text("OverridePrimary").get()),
      kPVBooleanTrue);
  EXPECT_EQ(at(configuration(service.get(), kZNValNetPPPAuthProtocolEAP), text("EAPType").get()),
            "TLS");

  auto fresh = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
  auto committed = Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyAll(fresh.get()));
  EXPECT_EQ(PVArrayGetCount(committed.get()), 0);
}

struct AbandonCase {
  const char *operation;
  long nth;
  const char *message;  // or NULL
};

// Every write of the rich payload, failing in turn: the service is gone.
TEST_F(PayloadInstallation, EveryFailedWriteAbandonsTheService) {
  const AbandonCase cases[] = {
      {"ZNNetworkInterfaceSetConfiguration", 1, nullptr},          // PPP
      {"ZNNetworkProtocolSetConfiguration", 1, nullptr},           // Proxies
      {"ZNNetworkInterfaceSetExtendedConfiguration", 1, nullptr},  // EAP
      {"ZNNetworkProtocolSetConfiguration", 2, nullptr},           // IPv4
      {"ZNNetworkProtocolSetConfiguration", 3, nullptr},           // OverridePrimary
      {"ZNNetworkInterfaceSetExtendedConfiguration", 2, nullptr},  // IPSec
      {"ZNNetworkServiceSetName", 1, "3: VPN: ZNNetworkServiceSetName failed."},
      {"ZNNetworkSetAddService", 1,
       "3: VPN: couldn't add service failure planned through the testing interface"},
      {"ZNNetworkServiceCreate", 1, "3: VPN: couldn't create service"},
  };
  auto payload = richPayload();
  for (const AbandonCase &c : cases) {
    SCOPED_TRACE(std::string(c.operation) + " #" + std::to_string(c.nth));
    PTCaptureStart();
    PTFailNthCall(c.operation, c.nth);
    EXPECT_FALSE(install(payload.get()));
    EXPECT_EQ(capturedLog(),
              c.message ? std::vector<std::string>{c.message} : std::vector<std::string>{});
    EXPECT_EQ(serviceNames(prefs(), true), "");
  }
}

// The VPN merge and the vendor merge may fail; the service stays.
TEST_F(PayloadInstallation, FailedVPNOrVendorMergeIsTolerated) {
  auto payload = [](const char *name) {
    return dict({{kJXVPNTypeKey, kZNEntNetVPN},
                 {kZNPropUserDefinedName, name},
                 {kJXVPNSubTypeKey, "com.example.vpn"},
                 {kZNEntNetVPN, dict({{"Server", "a"}})},
                 {kJXVPNVendorConfigKey, dict({{"Realm", "corp"}})}});
  };
  PTFailNthCall("ZNNetworkInterfaceSetConfiguration", 1);  // the VPN layer
  auto vpnFailed = install(payload("first").get());
  ASSERT_TRUE(vpnFailed);
  EXPECT_EQ(PTCallCount("ZNNetworkInterfaceSetConfiguration"), 1);  // vendor config skipped

  PTFailNthCall("ZNNetworkInterfaceSetConfiguration", 2);  // the vendor layer
  auto vendorFailed = install(payload("second").get());
  ASSERT_TRUE(vendorFailed);
  EXPECT_EQ(at(configuration(vendorFailed.get(), kZNEntNetVPN), text("Server").get()), "a");
  EXPECT_TRUE(capturedLog().empty());
}

// Wrong kinds under every key the installer reads: the step is skipped or
// the installation ends as the platform's refusal says, never a crash.
TEST_F(PayloadInstallation, BadInputEndsInNullOrASkippedStep) {
  auto number = Ref<PVNumberRef>::adopt(PVNumberCreateWithInt64(7));
  auto list = array({kZNEntNetPPP});
  PVTypeRef n = number.get();
  EXPECT_FALSE(install(nullptr));
  EXPECT_FALSE(install(text("not a dictionary").get()));
  EXPECT_FALSE(install(list.get()));
  EXPECT_FALSE(install({{kZNEntNetIPSec, dict({})}}));
  EXPECT_EQ(capturedLog(),
            std::vector<std::string>(3, "3: VPN: couldn't extract VPN type from payload"));

  PTCaptureStart();
  EXPECT_FALSE(install({{kJXVPNTypeKey, n}}));
  EXPECT_FALSE(install({{kJXVPNTypeKey, kZNEntNetIPSec}, {kJXVPNSubTypeKey, n}}));
  EXPECT_FALSE(install({{kJXVPNTypeKey, kZNEntNetIPSec}, {kZNPropUserDefinedName, n}}));
  EXPECT_EQ(capturedLog(), (std::vector<std::string>{"3: VPN: couldn't create vpn interface",
                                                     "3: VPN: couldn't create vpn interface",
                                                     "3: VPN: ZNNetworkServiceSetName failed."}));

  // Sections of the wrong kind are skipped (VendorConfig applies without a
  // copyable VPN dictionary); a container that is no data is not imported.
  auto skipped = install({{kJXVPNTypeKey, kZNEntNetVPN},
                          {kJXVPNSubTypeKey, "com.example.vpn"},
                          {kZNEntNetPPP, n},
                          {kZNNetworkProtocolTypeProxies, list},
                          {kZNValNetPPPAuthProtocolEAP, n},
                          {kZNEntNetIPv4, n},
                          {kZNEntNetVPN, n},
                          {kJXVPNVendorConfigKey, dict({{"Realm", "corp"}})},
                          {kJXVPNCertificateDataKey, "not data"},
                          {kJXVPNCertificatePassphraseKey, n},
                          {kZNEntNetIPSec, dict({})}});
  ASSERT_TRUE(skipped);
  EXPECT_EQ(at(configuration(skipped.get(), text("com.example.vpn").get()), text("Realm").get()),
            "corp");
  EXPECT_FALSE(has(configuration(skipped.get(), kZNEntNetIPSec), kZNPropNetIPSecLocalCertificate));
  auto wrongVendor = install({{kJXVPNTypeKey, kZNEntNetVPN},
                              {kJXVPNSubTypeKey, "com.example.vpn"},
                              {kZNEntNetVPN, dict({})},
                              {kJXVPNVendorConfigKey, n},
                              {kZNEntNetIPSec, list}});
  EXPECT_TRUE(wrongVendor);
}

}  // namespace
}  // namespace tw::test
