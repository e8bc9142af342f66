#include <gtest/gtest.h>

#include <string>

#include "support/services.hpp"
#include "tarnwick/platform/testing.h"

namespace tw::test {
namespace {

std::string adoptText(PVStringRef value) { return textOf(Ref<PVStringRef>::adopt(value).get()); }

// A VPN chain and the setting that names its account.
struct Kind {
  Chain chain;
  PVStringRef account;
};
const Kind kEveryKind[] = {{Chain::IPSec, kZNPropNetIPSecXAuthName},
                           {Chain::L2TP, kZNPropNetPPPAuthName},
                           {Chain::PPTP, kZNPropNetPPPAuthName},
                           {Chain::Vendor, kZNPropNetPPPAuthName}};

// A stored item and its persistent reference.
Ref<PVDataRef> storeItem(const char *service) {
  PVTypeRef reference = nullptr;
  EXPECT_EQ(addCofferPassword(service, "x", nullptr, nullptr, &reference), kVltSuccess);
  return Ref<PVDataRef>::adopt(static_cast<PVDataRef>(reference));
}

std::string serviceID(ZNNetworkServiceRef service) {
  return textOf(ZNNetworkServiceGetServiceID(service));
}

PVTypeRef property(ZNNetworkServiceRef service, PVStringRef key) {
  return JXVPNServiceGetConfigurationProperty(service, key);
}

void setProperty(ZNNetworkServiceRef service, PVStringRef key, const char *value) {
  ASSERT_TRUE(JXVPNServiceSetConfigurationProperty(service, key, text(value).get()));
}

PVTypeRef vpnLocalCertificate(ZNNetworkServiceRef service) {
  return JXVPNServiceGetConfigurationPropertyForType(service, kZNPropNetVPNLocalCertificate,
                                                     kZNEntNetVPN);
}

using ServiceCredentials = ServiceTest;

// Every password type but the proxy's is the account password.
TEST_F(ServiceCredentials, AccountPasswordAndSharedSecretAreNamedAfterTheService) {
  for (const Kind &kind : kEveryKind) {
    SCOPED_TRACE(static_cast<int>(kind.chain));
    ZNNetworkServiceRef service = makeService(kind.chain, "Office");
    std::string id = serviceID(service);
    setProperty(service, kind.account, "alice");
    PVRelease(JXVPNServiceSetPasswordWithType(service, 7, text("pw").get()));
    EXPECT_TRUE(JXVPNServiceSetSharedSecret(service, text("psk").get()));

    bool ipsec = kind.chain == Chain::IPSec;
    std::string password = ipsec ? id + ".XAUTH" : id;
    std::string description = ipsec ? "IPSec XAuth Password" : "PPP Password";
    EXPECT_EQ(cofferItem(password), "alice|" + description + "|-|after-first-unlock|pw");
    EXPECT_EQ(cofferItem(id + ".SS"), "alice|IPSec Shared Secret|-|after-first-unlock|psk");
    EXPECT_EQ(adoptText(JXVPNServiceCopyPassword(service)), "pw");
    EXPECT_EQ(adoptText(JXVPNServiceCopyPasswordWithType(service, 12)), "pw");
    EXPECT_EQ(adoptText(JXVPNServiceCopySharedSecret(service)), "psk");

    // Either remover: type 12 is the account password too.
    ipsec ? JXVPNServiceRemovePasswordWithType(service, 12) : JXVPNServiceRemovePassword(service);
    EXPECT_EQ(cofferItem(password), "(none)");
    EXPECT_NE(cofferItem(id + ".SS"), "(none)");
    JXVPNServiceRemoveSharedSecret(service);
    EXPECT_EQ(cofferItem(id + ".SS"), "(none)");
  }
}

TEST_F(ServiceCredentials, ProxyPasswordIsNamedAfterTheServiceName) {
  ZNNetworkServiceRef office = makeService(Chain::IPSec, "Office");
  ZNNetworkServiceRef sameName = makeService(Chain::L2TP, "Office");
  for (ZNNetworkServiceRef service : {office, sameName}) {
    ASSERT_TRUE(JXVPNServiceSetProtocolConfigurationProperty(
        service, kJXVPNPropNetProxiesHTTPProxyUsernameKey, text("proxy-user").get()));
  }
  auto proxy = kJXVPNPasswordTypeProxy;
  PVRelease(JXVPNServiceSetPasswordWithType(office, proxy, text("proxy-pw").get()));
  EXPECT_EQ(cofferItem("Office"), "proxy-user|-|-|after-first-unlock|proxy-pw");
  // Services of one name share it; the account password is another item.
  EXPECT_EQ(adoptText(JXVPNServiceCopyPasswordWithType(sameName, proxy)), "proxy-pw");
  EXPECT_EQ(JXVPNServiceCopyPassword(office), nullptr);
  // A rename loses it.
  ASSERT_TRUE(ZNNetworkServiceSetName(office, text("Home").get()));
  EXPECT_EQ(JXVPNServiceCopyPasswordWithType(office, proxy), nullptr);
  JXVPNServiceRemovePasswordWithType(sameName, proxy);
  EXPECT_EQ(cofferItem("Office"), "(none)");
}

TEST_F(ServiceCredentials, SettingSharedSecretPointsTheConfigurationAtTheCoffer) {
  PVStringRef sharedSecret = kZNValNetIPSecAuthenticationMethodSharedSecret;
  PVStringRef hybrid = kZNValNetIPSecAuthenticationMethodHybrid;
  struct {
    PVStringRef method;
    const char *secret;  // nullptr: no secret at all
    PVStringRef expectedMethod;
  } cases[] = {
      {nullptr, "psk", sharedSecret},
      {kZNValNetIPSecAuthenticationMethodCertificate, "psk", sharedSecret},
      {hybrid, "psk", hybrid},
      // Nothing to store, yet the configuration is marked all the same.
      {nullptr, "", sharedSecret},
      {hybrid, nullptr, hybrid},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(textOf(c.method) + " / " + (c.secret ? c.secret : "no secret"));
    ZNNetworkServiceRef service = makeService(Chain::IPSec);
    if (c.method)
      JXVPNServiceSetConfigurationProperty(service, kZNPropNetIPSecAuthenticationMethod, c.method);
    setProperty(service, kZNPropNetIPSecSharedSecret, "plain");
    auto secret = c.secret ? text(c.secret) : Ref<PVStringRef>();
    PTReset();

    EXPECT_TRUE(JXVPNServiceSetSharedSecret(service, secret.get()));
    bool stores = c.secret && *c.secret;
    EXPECT_EQ(PTCofferWriteCount() > 0, stores);
    EXPECT_EQ(adoptText(JXVPNServiceCopySharedSecret(service)), stores ? c.secret : "(null)");
    EXPECT_TRUE(PVEqual(property(service, kZNPropNetIPSecSharedSecretEncryption),
                        kZNValNetIPSecSharedSecretEncryptionCoffer));
    EXPECT_TRUE(PVEqual(property(service, kZNPropNetIPSecAuthenticationMethod), c.expectedMethod));
    EXPECT_EQ(property(service, kZNPropNetIPSecSharedSecret), nullptr);
  }
}

TEST_F(ServiceCredentials, RemovingSharedSecretAlsoDropsTheIdentifierTypeButNotTheMethod) {
  ZNNetworkServiceRef service = makeService(Chain::IPSec);
  setProperty(service, kZNPropNetIPSecLocalIdentifierType, "KeyID");
  ASSERT_TRUE(JXVPNServiceSetSharedSecret(service, text("psk").get()));
  setProperty(service, kZNPropNetIPSecSharedSecret, "plain");

  JXVPNServiceRemoveSharedSecret(service);
  EXPECT_EQ(JXVPNServiceCopySharedSecret(service), nullptr);
  EXPECT_EQ(property(service, kZNPropNetIPSecSharedSecretEncryption), nullptr);
  EXPECT_EQ(property(service, kZNPropNetIPSecLocalIdentifierType), nullptr);
  EXPECT_TRUE(PVEqual(property(service, kZNPropNetIPSecAuthenticationMethod),
                      kZNValNetIPSecAuthenticationMethodSharedSecret));
  EXPECT_EQ(textOf(property(service, kZNPropNetIPSecSharedSecret)), "plain");
}

TEST_F(ServiceCredentials, ServiceWithoutTypeHasNoAccountPasswordOrSharedSecret) {
  ZNNetworkServiceRef modem = makeService(Chain::PPPOverModem, "Modem");
  ASSERT_EQ(JXVPNServiceGetType(modem), nullptr);
  for (ZNNetworkServiceRef service : {modem, static_cast<ZNNetworkServiceRef>(nullptr)}) {
    PTReset();
    EXPECT_EQ(JXVPNServiceSetPassword(service, text("pw").get()), nullptr);
    EXPECT_EQ(JXVPNServiceCopyPassword(service), nullptr);
    JXVPNServiceRemovePassword(service);
    EXPECT_FALSE(JXVPNServiceSetSharedSecret(service, text("psk").get()));
    EXPECT_EQ(JXVPNServiceCopySharedSecret(service), nullptr);
    JXVPNServiceRemoveSharedSecret(service);
    EXPECT_EQ(PTCofferCallCount(), 0);
  }
  EXPECT_EQ(property(modem, kZNPropNetIPSecSharedSecretEncryption), nullptr);
  // The proxy password needs only a name.
  PVRelease(
      JXVPNServiceSetPasswordWithType(modem, kJXVPNPasswordTypeProxy, text("proxy-pw").get()));
  EXPECT_EQ(cofferItem("Modem"), "-|-|-|after-first-unlock|proxy-pw");
}

// The reference goes to the VPN layer of a vendor VPN and to the IPSec key
// otherwise; removal deletes only that item and leaves the reference.
TEST_F(ServiceCredentials, CertificateReferenceGoesToTheLayerOfTheServiceTypeUntilRemoved) {
  auto certificate = text("certificate");
  for (const Kind &kind : kEveryKind) {
    SCOPED_TRACE(static_cast<int>(kind.chain));
    ZNNetworkServiceRef service = makeService(kind.chain);
    EXPECT_FALSE(JXVPNServiceRemoveCertificate(service));
    auto identity = storeItem("identity");
    auto issuer = storeItem("issuer");
    EXPECT_TRUE(JXVPNServiceSetCertificatePersistantID(service, identity.get()));
    bool vendor = kind.chain == Chain::Vendor;
    PVTypeRef expected = identity.get();
    EXPECT_EQ(vpnLocalCertificate(service), vendor ? expected : nullptr);
    EXPECT_EQ(property(service, kZNPropNetIPSecLocalCertificate), vendor ? nullptr : expected);

    EXPECT_TRUE(JXVPNServiceRemoveCertificate(service));
    EXPECT_EQ(cofferItem("identity"), "(none)");
    EXPECT_NE(cofferItem("issuer"), "(none)");
    EXPECT_EQ(
        vendor ? vpnLocalCertificate(service) : property(service, kZNPropNetIPSecLocalCertificate),
        expected);
    EXPECT_FALSE(JXVPNServiceRemoveCertificate(service));  // nothing left to delete
    JXCofferRemoveWithPersistentID(issuer.get());

    // The plain setter writes the IPSec key whatever the type.
    EXPECT_TRUE(JXVPNServiceSetCertificate(service, certificate.get()));
    EXPECT_EQ(property(service, kZNPropNetIPSecLocalCertificate), certificate.get());
    EXPECT_EQ(vpnLocalCertificate(service), vendor ? expected : nullptr);
  }
  ZNNetworkServiceRef service = makeService(Chain::IPSec);
  auto reference = storeItem("identity");
  EXPECT_FALSE(JXVPNServiceSetCertificatePersistantID(service, nullptr));
  EXPECT_FALSE(JXVPNServiceSetCertificatePersistantID(nullptr, reference.get()));
  EXPECT_FALSE(JXVPNServiceSetCertificate(service, nullptr));
  EXPECT_EQ(property(service, kZNPropNetIPSecLocalCertificate), nullptr);
  EXPECT_FALSE(JXVPNServiceRemoveCertificate(nullptr));
}

TEST_F(ServiceCredentials, StoredSecretsAreFoundFromAnotherProcess) {
  ZNNetworkServiceRef service = makeService(Chain::IPSec);
  setProperty(service, kZNPropNetIPSecXAuthName, "alice");
  ASSERT_TRUE(ZNPreferencesCommitChanges(prefs_.get()));
  PVRelease(JXVPNServiceSetPassword(service, text("pw").get()));
  ASSERT_TRUE(JXVPNServiceSetSharedSecret(service, text("psk").get()));
  std::string id = serviceID(service);

  EXPECT_EQ(runInChildProcess([&] {
              auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
              auto copy = Ref<ZNNetworkServiceRef>::adopt(
                  ZNNetworkServiceCopy(prefs.get(), text(id).get()));
              return copy && adoptText(JXVPNServiceCopyPassword(copy.get())) == "pw" &&
                     adoptText(JXVPNServiceCopySharedSecret(copy.get())) == "psk";
            }),
            0);
}

}  // namespace
}  // namespace tw::test
