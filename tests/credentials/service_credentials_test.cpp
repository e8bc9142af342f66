#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "support/test_support.hpp"
#include "tarnwick.h"
#include "tarnwick/platform/ref.hpp"
#include "tarnwick/platform/testing.h"

namespace {

using StringRef = pv::Ref<PVStringRef>;
using ServiceRef = pv::Ref<ZNNetworkServiceRef>;

using tw::test::bytesOf;
using tw::test::text;
using tw::test::textOf;

std::string adoptText(PVStringRef value) { return textOf(StringRef::adopt(value).get()); }

// A VPN service kind: the layer under the top one (none for IPSec), the top
// layer, and the setting that names the account.
struct Kind {
  const char *name;
  const char *below;
  PVStringRef top;
  PVStringRef account;
};

std::vector<Kind> everyKind() {
  return {{"IPSec", nullptr, kZNEntNetIPSec, kZNPropNetIPSecXAuthName},
          {"L2TP", "L2TP", kZNEntNetPPP, kZNPropNetPPPAuthName},
          {"PPTP", "PPTP", kZNEntNetPPP, kZNPropNetPPPAuthName},
          {"vendor VPN", "com.example.vendor", kZNEntNetVPN, kZNPropNetPPPAuthName}};
}

// The attributes of a direct Coffer query; one left out matches anything.
struct ItemName {
  std::string service;
  std::optional<std::string> account = std::nullopt;
  std::optional<std::string> description = std::nullopt;
  std::optional<std::string> label = std::nullopt;
};

pv::Ref<PVTypeRef> copyMatching(const ItemName &name, PVStringRef returning) {
  auto query = pv::Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutable());
  auto set = [&](PVStringRef key, const std::optional<std::string> &value) {
    if (value) PVDictionarySetValue(query.get(), key, text(*value).get());
  };
  PVDictionarySetValue(query.get(), kVltClass, kVltClassGenericPassword);
  set(kVltAttrService, name.service);
  set(kVltAttrAccount, name.account);
  set(kVltAttrDescription, name.description);
  set(kVltAttrLabel, name.label);
  PVDictionarySetValue(query.get(), returning, kPVBooleanTrue);
  PVTypeRef result = nullptr;
  VltStatus status = VltItemCopyMatching(query.get(), &result);
  auto owned = pv::Ref<PVTypeRef>::adopt(result);
  return status == kVltSuccess ? owned : pv::Ref<PVTypeRef>();
}

std::optional<std::string> findSecret(const ItemName &name) {
  auto data = copyMatching(name, kVltReturnData);
  if (!data) return std::nullopt;
  return bytesOf(data.get());
}

// The item's one string attribute, nullopt when it has none.
std::optional<std::string> storedAttribute(const ItemName &name, PVStringRef key) {
  auto attributes = copyMatching(name, kVltReturnAttributes);
  if (!attributes) return "(no item)";
  PVTypeRef value = PVDictionaryGetValue(static_cast<PVDictionaryRef>(attributes.get()), key);
  return value ? std::optional(textOf(value)) : std::nullopt;
}

// Found under exactly these attributes, without a label.
void expectItem(const ItemName &name, const char *secret) {
  EXPECT_EQ(findSecret(name), secret);
  EXPECT_EQ(storedAttribute(name, kVltAttrLabel), std::nullopt);
  EXPECT_EQ(storedAttribute(name, kVltAttrDescription), name.description);
}

// A stored item and its persistent reference.
pv::Ref<PVDataRef> storeItem(const char *service) {
  PVTypeRef reference = nullptr;
  EXPECT_EQ(VltItemAdd(tw::test::dict({{kVltClass, kVltClassGenericPassword},
                                       {kVltAttrService, service},
                                       {kVltValueData, tw::test::bytes("x").get()},
                                       {kVltReturnPersistentRef, kPVBooleanTrue}})
                           .get(),
                       &reference),
            kVltSuccess);
  return pv::Ref<PVDataRef>::adopt(static_cast<PVDataRef>(reference));
}

std::string serviceID(ZNNetworkServiceRef service) {
  return textOf(ZNNetworkServiceGetServiceID(service));
}

PVTypeRef property(ZNNetworkServiceRef service, PVStringRef key) {
  return JXVPNServiceGetConfigurationProperty(service, key);
}

void setProperty(ZNNetworkServiceRef service, PVStringRef key, PVTypeRef value) {
  ASSERT_TRUE(JXVPNServiceSetConfigurationProperty(service, key, value));
}

void setProperty(ZNNetworkServiceRef service, PVStringRef key, const char *value) {
  setProperty(service, key, text(value).get());
}

PVTypeRef vpnLocalCertificate(ZNNetworkServiceRef service) {
  return JXVPNServiceGetConfigurationPropertyForType(service, kZNPropNetVPNLocalCertificate,
                                                     kZNEntNetVPN);
}

class ServiceCredentials : public tw::test::StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    prefs_ = pv::Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
    ASSERT_TRUE(prefs_);
  }
  void TearDown() override {
    prefs_ = {};
    StoreTest::TearDown();
  }

  ServiceRef makeService(const Kind &kind, const char *name) {
    auto layer = [](ZNNetworkInterfaceRef below, PVStringRef type) {
      return pv::Ref<ZNNetworkInterfaceRef>::adopt(
          ZNNetworkInterfaceCreateWithInterface(below, type));
    };
    if (!kind.below) return serviceOn(layer(kZNNetworkInterfaceIPv4, kind.top).get(), name);
    auto below = layer(kZNNetworkInterfaceIPv4, text(kind.below).get());
    return serviceOn(layer(below.get(), kind.top).get(), name);
  }

  ServiceRef serviceOn(ZNNetworkInterfaceRef interface, const char *name) {
    auto service = ServiceRef::adopt(ZNNetworkServiceCreate(prefs_.get(), interface));
    EXPECT_TRUE(service);
    EXPECT_TRUE(ZNNetworkServiceEstablishDefaultConfiguration(service.get()));
    EXPECT_TRUE(ZNNetworkServiceSetName(service.get(), text(name).get()));
    return service;
  }

  pv::Ref<ZNPreferencesRef> prefs_;
};

TEST_F(ServiceCredentials, AccountPasswordAndSharedSecretAreNamedAfterTheService) {
  for (const Kind &kind : everyKind()) {
    SCOPED_TRACE(kind.name);
    auto service = makeService(kind, "Office");
    std::string id = serviceID(service.get());
    setProperty(service.get(), kind.account, "alice");
    PVRelease(JXVPNServiceSetPassword(service.get(), text("pw").get()));
    EXPECT_TRUE(JXVPNServiceSetSharedSecret(service.get(), text("psk").get()));

    ItemName password = kind.top == kZNEntNetIPSec
                            ? ItemName{id + ".XAUTH", "alice", "IPSec XAuth Password"}
                            : ItemName{id, "alice", "PPP Password"};
    ItemName secret{id + ".SS", "alice", "IPSec Shared Secret"};
    expectItem(password, "pw");
    expectItem(secret, "psk");
    for (ItemName labelled : {password, secret}) {
      labelled.label = "Office";
      EXPECT_EQ(findSecret(labelled), std::nullopt);
    }
    EXPECT_EQ(adoptText(JXVPNServiceCopyPassword(service.get())), "pw");
    EXPECT_EQ(adoptText(JXVPNServiceCopySharedSecret(service.get())), "psk");

    JXVPNServiceRemovePassword(service.get());
    EXPECT_EQ(findSecret(password), std::nullopt);
    EXPECT_EQ(findSecret(secret), "psk");
    JXVPNServiceRemoveSharedSecret(service.get());
    EXPECT_EQ(findSecret(secret), std::nullopt);
  }
}

TEST_F(ServiceCredentials, EveryTypeButProxyIsTheAccountPassword) {
  auto service = makeService(everyKind()[0], "Office");
  setProperty(service.get(), kZNPropNetIPSecXAuthName, "alice");
  PVRelease(JXVPNServiceSetPasswordWithType(service.get(), 7, text("seven").get()));
  expectItem({serviceID(service.get()) + ".XAUTH", "alice", "IPSec XAuth Password"}, "seven");
  EXPECT_EQ(adoptText(JXVPNServiceCopyPasswordWithType(service.get(), 0)), "seven");
  JXVPNServiceRemovePasswordWithType(service.get(), 12);
  EXPECT_EQ(JXVPNServiceCopyPassword(service.get()), nullptr);
}

TEST_F(ServiceCredentials, ProxyPasswordIsNamedAfterTheServiceName) {
  auto office = makeService(everyKind()[0], "Office");
  auto sameName = makeService(everyKind()[1], "Office");
  for (ZNNetworkServiceRef service : {office.get(), sameName.get()}) {
    ASSERT_TRUE(JXVPNServiceSetProtocolConfigurationProperty(
        service, kJXVPNPropNetProxiesHTTPProxyUsernameKey, text("proxy-user").get()));
  }
  auto proxy = kJXVPNPasswordTypeProxy;
  PVRelease(JXVPNServiceSetPasswordWithType(office.get(), proxy, text("proxy-pw").get()));
  expectItem({"Office", "proxy-user"}, "proxy-pw");
  // Services of one name share it; the account password is another item.
  EXPECT_EQ(adoptText(JXVPNServiceCopyPasswordWithType(sameName.get(), proxy)), "proxy-pw");
  EXPECT_EQ(JXVPNServiceCopyPassword(office.get()), nullptr);
  // A rename loses it.
  ASSERT_TRUE(ZNNetworkServiceSetName(office.get(), text("Home").get()));
  EXPECT_EQ(JXVPNServiceCopyPasswordWithType(office.get(), proxy), nullptr);
  JXVPNServiceRemovePasswordWithType(sameName.get(), proxy);
  EXPECT_EQ(findSecret({"Office"}), std::nullopt);
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
    auto service = makeService(everyKind()[0], "Office");
    if (c.method) setProperty(service.get(), kZNPropNetIPSecAuthenticationMethod, c.method);
    setProperty(service.get(), kZNPropNetIPSecSharedSecret, "plain");
    auto secret = c.secret ? text(c.secret) : StringRef();
    PTReset();

    EXPECT_TRUE(JXVPNServiceSetSharedSecret(service.get(), secret.get()));
    bool stores = c.secret && *c.secret;
    EXPECT_EQ(PTCofferWriteCount() > 0, stores);
    EXPECT_EQ(findSecret({serviceID(service.get()) + ".SS"}),
              stores ? std::optional<std::string>(c.secret) : std::nullopt);
    EXPECT_TRUE(PVEqual(property(service.get(), kZNPropNetIPSecSharedSecretEncryption),
                        kZNValNetIPSecSharedSecretEncryptionCoffer));
    EXPECT_TRUE(
        PVEqual(property(service.get(), kZNPropNetIPSecAuthenticationMethod), c.expectedMethod));
    EXPECT_EQ(property(service.get(), kZNPropNetIPSecSharedSecret), nullptr);
  }
}

TEST_F(ServiceCredentials, RemovingSharedSecretAlsoDropsTheIdentifierTypeButNotTheMethod) {
  auto service = makeService(everyKind()[0], "Office");
  setProperty(service.get(), kZNPropNetIPSecLocalIdentifierType, "KeyID");
  ASSERT_TRUE(JXVPNServiceSetSharedSecret(service.get(), text("psk").get()));
  setProperty(service.get(), kZNPropNetIPSecSharedSecret, "plain");

  JXVPNServiceRemoveSharedSecret(service.get());
  EXPECT_EQ(JXVPNServiceCopySharedSecret(service.get()), nullptr);
  EXPECT_EQ(property(service.get(), kZNPropNetIPSecSharedSecretEncryption), nullptr);
  EXPECT_EQ(property(service.get(), kZNPropNetIPSecLocalIdentifierType), nullptr);
  EXPECT_TRUE(PVEqual(property(service.get(), kZNPropNetIPSecAuthenticationMethod),
                      kZNValNetIPSecAuthenticationMethodSharedSecret));
  EXPECT_EQ(textOf(property(service.get(), kZNPropNetIPSecSharedSecret)), "plain");
}

TEST_F(ServiceCredentials, ServiceWithoutTypeHasNoAccountPasswordOrSharedSecret) {
  auto wired = serviceOn(kZNNetworkInterfaceIPv4, "Wired");
  ASSERT_EQ(JXVPNServiceGetType(wired.get()), nullptr);
  for (ZNNetworkServiceRef service : {wired.get(), static_cast<ZNNetworkServiceRef>(nullptr)}) {
    PTReset();
    EXPECT_EQ(JXVPNServiceSetPassword(service, text("pw").get()), nullptr);
    EXPECT_EQ(JXVPNServiceCopyPassword(service), nullptr);
    JXVPNServiceRemovePassword(service);
    EXPECT_FALSE(JXVPNServiceSetSharedSecret(service, text("psk").get()));
    EXPECT_EQ(JXVPNServiceCopySharedSecret(service), nullptr);
    JXVPNServiceRemoveSharedSecret(service);
    EXPECT_EQ(PTCofferCallCount(), 0);
  }
  EXPECT_EQ(property(wired.get(), kZNPropNetIPSecSharedSecretEncryption), nullptr);
  // The proxy password needs only a name.
  PVRelease(JXVPNServiceSetPasswordWithType(wired.get(), kJXVPNPasswordTypeProxy,
                                            text("proxy-pw").get()));
  EXPECT_EQ(findSecret({"Wired"}), "proxy-pw");
}

TEST_F(ServiceCredentials, CertificateReferenceGoesToTheLayerOfTheServiceType) {
  auto reference = storeItem("identity");
  auto certificate = text("certificate");
  for (const Kind &kind : everyKind()) {
    SCOPED_TRACE(kind.name);
    auto service = makeService(kind, "Office");
    EXPECT_TRUE(JXVPNServiceSetCertificatePersistantID(service.get(), reference.get()));
    bool vendor = kind.top == kZNEntNetVPN;
    EXPECT_EQ(vpnLocalCertificate(service.get()), vendor ? reference.get() : nullptr);
    EXPECT_EQ(property(service.get(), kZNPropNetIPSecLocalCertificate),
              vendor ? nullptr : reference.get());
    // The plain setter writes the IPSec key whatever the type.
    EXPECT_TRUE(JXVPNServiceSetCertificate(service.get(), certificate.get()));
    EXPECT_EQ(property(service.get(), kZNPropNetIPSecLocalCertificate), certificate.get());
    EXPECT_EQ(vpnLocalCertificate(service.get()), vendor ? reference.get() : nullptr);
  }
  auto service = makeService(everyKind()[0], "Home");
  EXPECT_FALSE(JXVPNServiceSetCertificatePersistantID(service.get(), nullptr));
  EXPECT_FALSE(JXVPNServiceSetCertificatePersistantID(nullptr, reference.get()));
  EXPECT_FALSE(JXVPNServiceSetCertificate(service.get(), nullptr));
  EXPECT_EQ(property(service.get(), kZNPropNetIPSecLocalCertificate), nullptr);
}

TEST_F(ServiceCredentials, RemovingCertificateDeletesOnlyTheReferencedItem) {
  for (const Kind &kind : {everyKind()[0], everyKind()[3]}) {
    SCOPED_TRACE(kind.name);
    auto service = makeService(kind, "Office");
    EXPECT_FALSE(JXVPNServiceRemoveCertificate(service.get()));
    auto identity = storeItem("identity");
    auto issuer = storeItem("issuer");
    ASSERT_TRUE(JXVPNServiceSetCertificatePersistantID(service.get(), identity.get()));

    EXPECT_TRUE(JXVPNServiceRemoveCertificate(service.get()));
    EXPECT_EQ(findSecret({"identity"}), std::nullopt);
    EXPECT_EQ(findSecret({"issuer"}), "x");
    // The reference stays behind, so a second removal has nothing to delete.
    PVTypeRef kept = kind.top == kZNEntNetVPN
                         ? vpnLocalCertificate(service.get())
                         : property(service.get(), kZNPropNetIPSecLocalCertificate);
    EXPECT_TRUE(PVEqual(kept, identity.get()));
    EXPECT_FALSE(JXVPNServiceRemoveCertificate(service.get()));
    JXCofferRemoveWithPersistentID(issuer.get());
  }
  EXPECT_FALSE(JXVPNServiceRemoveCertificate(nullptr));
}

TEST_F(ServiceCredentials, StoredSecretsAreFoundFromAnotherProcess) {
  auto service = makeService(everyKind()[0], "Office");
  setProperty(service.get(), kZNPropNetIPSecXAuthName, "alice");
  ASSERT_TRUE(ZNPreferencesCommitChanges(prefs_.get()));
  PVRelease(JXVPNServiceSetPassword(service.get(), text("pw").get()));
  ASSERT_TRUE(JXVPNServiceSetSharedSecret(service.get(), text("psk").get()));
  std::string id = serviceID(service.get());

  EXPECT_EQ(tw::test::runInChildProcess([&] {
              auto prefs = pv::Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
              auto copy = ServiceRef::adopt(ZNNetworkServiceCopy(prefs.get(), text(id).get()));
              return copy && adoptText(JXVPNServiceCopyPassword(copy.get())) == "pw" &&
                     adoptText(JXVPNServiceCopySharedSecret(copy.get())) == "psk";
            }),
            0);
}

}  // namespace
