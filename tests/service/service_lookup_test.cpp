// Finding services by payload identity and on-demand support, removal with
// secrets and live connection, and the pending certificate test.
#include "service/session_fixture.hpp"

namespace tw::test {
namespace {

class ServiceLookup : public SessionTest {
 protected:
  // A service of `type` carrying `payload` in its payload protocol (none
  // when NULL).
  Ref<ZNNetworkServiceRef> withPayload(PVStringRef type, const char *name,
                                       PVDictionaryRef payload) {
    auto service = create(type, name);
    if (payload) {
      EXPECT_TRUE(
          JXVPNServiceSetProtocolConfiguration(service.get(), kJXVPNProtocolTypePayload, payload));
    }
    return service;
  }
  std::string matching(PVDictionaryRef criteria) {
    auto found = Ref<PVArrayRef>::adopt(JXVPNServiceCopyMatching(criteria, prefs()));
    if (found) {
      EXPECT_NE(PVArrayGetCount(found.get()), 0) << "never an empty array";
    }
    return serviceNames(found.get(), true);
  }
};

TEST_F(ServiceLookup, MatchesEachPresentCriterionAgainstThePayloadProtocol) {
  auto a = withPayload(
      kZNEntNetL2TP, "a",
      dict({{kJXPayloadIdentifierKey, "com.example.a"}, {"PayloadUUID", "uuid-a"}}).get());
  auto b =
      withPayload(kZNEntNetIPSec, "b", dict({{kJXPayloadIdentifierKey, "com.example.b"}}).get());
  auto bare = withPayload(kZNEntNetPPTP, "bare", nullptr);
  // A service of no VPN type never matches.
  makeService(Chain::PPPOverModem);
  const std::string A = idOf(a.get()), B = idOf(b.get()), Bare = idOf(bare.get());

  EXPECT_EQ(matching(nullptr), A + "," + B + "," + Bare);
  EXPECT_EQ(matching(dict({}).get()), A + "," + B);
  EXPECT_EQ(matching(dict({{"Unrelated", "x"}}).get()), A + "," + B);
  EXPECT_EQ(matching(dict({{kJXVPNTypeKey, kZNEntNetL2TP}}).get()), A);
  // The outer PPP layer of an L2TP service does not count as its type.
  EXPECT_EQ(matching(dict({{kJXVPNTypeKey, kZNEntNetPPP}}).get()), "");
  EXPECT_EQ(matching(dict({{kJXPayloadIdentifierKey, "com.example.b"}}).get()), B);
  // A present criterion never matches a service that lacks it.
  EXPECT_EQ(matching(dict({{"PayloadUUID", "uuid-a"}}).get()), A);
  EXPECT_EQ(matching(dict({{kJXVPNTypeKey, kZNEntNetL2TP},
                           {kJXPayloadIdentifierKey, "com.example.a"},
                           {"PayloadUUID", "uuid-other"}})
                         .get()),
            "");
  EXPECT_EQ(JXVPNServiceCopyMatching(nullptr, nullptr), nullptr);
}

TEST_F(ServiceLookup, OnDemandNeedsTheTrueValueItself) {
  auto one = Ref<PVNumberRef>::adopt(PVNumberCreateWithInt64(1));
  auto ipsec = create(kZNEntNetIPSec, "ipsec");
  auto numbered = create(kZNEntNetL2TP, "numbered");
  auto vendor = create(text("com.example.vpn").get(), "vendor");
  auto vendorInIPSec = create(text("com.example.vpn").get(), "vendor, wrong layer");
  EXPECT_EQ(JXVPNServiceCopyOnDemandSupported(prefs()), nullptr);

  ASSERT_TRUE(JXVPNServiceSetConfigurationProperty(ipsec.get(), kJXVPNPropNetIPSecOnDemandSupported,
                                                   kPVBooleanTrue));
  ASSERT_TRUE(JXVPNServiceSetConfigurationProperty(numbered.get(),
                                                   kJXVPNPropNetIPSecOnDemandSupported, one.get()));
  ASSERT_TRUE(JXVPNServiceSetConfigurationPropertyForType(
      vendor.get(), kJXVPNPropNetVPNOnDemandSupported, kPVBooleanTrue, kZNEntNetVPN));
  // A vendor service is read from its VPN layer only.
  ASSERT_TRUE(JXVPNServiceSetConfigurationProperty(
      vendorInIPSec.get(), kJXVPNPropNetIPSecOnDemandSupported, kPVBooleanTrue));

  auto found = Ref<PVArrayRef>::adopt(JXVPNServiceCopyOnDemandSupported(prefs()));
  EXPECT_EQ(serviceNames(found.get(), true), idOf(ipsec.get()) + "," + idOf(vendor.get()));
  EXPECT_EQ(JXVPNServiceCopyOnDemandSupported(nullptr), nullptr);
}

// An L2TP service with an account password, a shared secret and a proxy
// password in the Coffer.
struct StoredSecrets {
  Ref<ZNNetworkServiceRef> service;
  std::string accountItem, secretItem, proxyItem;
};

class ServiceRemoval : public SessionTest {
 protected:
  StoredSecrets withSecrets(const std::string &name) {
    auto service = create(kZNEntNetL2TP, name.c_str());
    JXVPNServiceSetConfigurationProperty(service.get(), kZNPropNetPPPAuthName, text("alice").get());
    JXVPNServiceSetProtocolConfigurationProperty(
        service.get(), kJXVPNPropNetProxiesHTTPProxyUsernameKey, text("proxy user").get());
    PVRelease(JXVPNServiceSetPassword(service.get(), text("account").get()));
    JXVPNServiceSetSharedSecret(service.get(), text("shared").get());
    PVRelease(JXVPNServiceSetPasswordWithType(service.get(), kJXVPNPasswordTypeProxy,
                                              text("proxy").get()));
    std::string id = idOf(service.get());
    return {service, id, id + ".SS", name};
  }
  static bool stored(const std::string &itemService) {
    auto secret = Ref<PVStringRef>::adopt(
        JXCofferCopyValue(text(itemService).get(), nullptr, nullptr, nullptr));
    return static_cast<bool>(secret);
  }
  static void setStatus(ZNNetworkServiceRef service, int status) {
    ASSERT_TRUE(
        ZNNetworkConnectionSetStatusForServiceID(ZNNetworkServiceGetServiceID(service), status));
  }
  static int status(const std::string &serviceID) {
    auto connection = Ref<ZNNetworkConnectionRef>::adopt(ZNNetworkConnectionCreateWithServiceID(
        kPVAllocatorDefault, text(serviceID).get(), nullptr, nullptr));
    return ZNNetworkConnectionGetStatus(connection.get());
  }
};

TEST_F(ServiceRemoval, DeletesTheThreeSecretsInOrderThenTheService) {
  // The Nth delete failing leaves exactly the Nth secret behind.
  for (int failing = 0; failing <= 3; ++failing) {
    StoredSecrets s = withSecrets("Office " + std::to_string(failing));
    ASSERT_TRUE(stored(s.accountItem) && stored(s.secretItem) && stored(s.proxyItem));
    if (failing) PTFailNthCall("VltItemDelete", failing);
    EXPECT_TRUE(JXVPNServiceRemove(s.service.get()));
    EXPECT_EQ((std::vector<bool>{stored(s.accountItem), stored(s.secretItem), stored(s.proxyItem)}),
              (std::vector<bool>{failing == 1, failing == 2, failing == 3}));
  }
  EXPECT_EQ(serviceNames(prefs(), true), "");
}

TEST_F(ServiceRemoval, StopsOnlyAConnectingOrConnectedService) {
  for (int before : {kZNNetworkConnectionDisconnected, kZNNetworkConnectionConnecting,
                     kZNNetworkConnectionConnected, kZNNetworkConnectionDisconnecting}) {
    auto service = create(kZNEntNetIPSec, ("status " + std::to_string(before)).c_str());
    std::string id = idOf(service.get());
    setStatus(service.get(), before);
    PTReset();
    EXPECT_TRUE(JXVPNServiceRemove(service.get()));
    bool active = before == 1 || before == 2;
    EXPECT_EQ(PTCallCount("ZNNetworkConnectionStop"), active ? 1 : 0);
    EXPECT_EQ(status(id), active ? kZNNetworkConnectionDisconnected : before);
  }
}

TEST_F(ServiceRemoval, FailedRemovalStillStopsTheConnection) {
  StoredSecrets s = withSecrets("Office");
  std::string id = idOf(s.service.get());
  setStatus(s.service.get(), kZNNetworkConnectionConnected);
  PTFailNthCall("ZNNetworkServiceRemove", 1);
  EXPECT_FALSE(JXVPNServiceRemove(s.service.get()));
  EXPECT_EQ(status(id), kZNNetworkConnectionDisconnected);
  EXPECT_FALSE(stored(s.secretItem));
  EXPECT_EQ(serviceNames(prefs(), true), id);
}

TEST_F(ServiceRemoval, ServiceWithoutIdentifierRemovesNothing) {
  StoredSecrets s = withSecrets("Office");
  PTReset();
  PTFailNthCall("ZNNetworkServiceGetServiceID", 1);
  EXPECT_FALSE(JXVPNServiceRemove(s.service.get()));
  EXPECT_EQ(PTCofferCallCount(), 0);
  EXPECT_EQ(PTCallCount("ZNNetworkServiceRemove"), 0);
  EXPECT_TRUE(stored(s.secretItem));
}

using CertificatePending = SessionTest;

TEST_F(CertificatePending, TrueOnlyForTheCertificateMethodWithoutACertificate) {
  auto vendorType = text("com.example.vpn");
  auto reference = bytes("persistent reference");
  struct Case {
    PVStringRef type;
    bool vpnLayer;  // method and certificate in the VPN layer, else by key class
    PVStringRef method;
    bool withCertificate;
    bool pending;
  };
  const Case cases[] = {
      {kZNEntNetL2TP, false, kZNValNetIPSecAuthenticationMethodCertificate, false, true},
      {kZNEntNetL2TP, false, kZNValNetIPSecAuthenticationMethodCertificate, true, false},
      {kZNEntNetL2TP, false, kZNValNetIPSecAuthenticationMethodSharedSecret, false, false},
      {kZNEntNetIPSec, false, nullptr, false, false},
      {vendorType.get(), true, kZNValNetVPNAuthenticationMethodCertificate, false, true},
      {vendorType.get(), true, kZNValNetVPNAuthenticationMethodCertificate, true, false},
      // A vendor service is judged by its VPN layer alone.
      {vendorType.get(), false, kZNValNetIPSecAuthenticationMethodCertificate, false, false},
  };
  int n = 0;
  for (const Case &c : cases) {
    auto service = create(c.type, ("case " + std::to_string(n++)).c_str());
    auto set = [&](PVStringRef ipsecKey, PVStringRef vpnKey, PVTypeRef value) {
      ASSERT_TRUE(c.vpnLayer
                      ? JXVPNServiceSetConfigurationPropertyForType(service.get(), vpnKey, value,
                                                                    kZNEntNetVPN)
                      : JXVPNServiceSetConfigurationProperty(service.get(), ipsecKey, value));
    };
    if (c.method)
      set(kZNPropNetIPSecAuthenticationMethod, kZNPropNetVPNAuthenticationMethod, c.method);
    if (c.withCertificate) {
      set(kZNPropNetIPSecLocalCertificate, kZNPropNetVPNLocalCertificate, reference.get());
    }
    EXPECT_EQ(JXVPNServiceCertificatePending(service.get()), c.pending) << n;
  }
}

}  // namespace
}  // namespace tw::test
