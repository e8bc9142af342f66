#include <gtest/gtest.h>

#include "support/services.hpp"
#include "tarnwick/platform/testing.h"

namespace tw::test {
namespace {

class ConfigurationProperties : public ServiceTest {
 protected:
  static ZNNetworkInterfaceRef outer(ZNNetworkServiceRef service) {
    return ZNNetworkServiceGetInterface(service);
  }
  static PVTypeRef outerValue(ZNNetworkServiceRef service, PVStringRef key) {
    return PVDictionaryGetValue(ZNNetworkInterfaceGetConfiguration(outer(service)), key);
  }
  static PVTypeRef extendedValue(ZNNetworkServiceRef service, PVStringRef type, PVStringRef key) {
    return PVDictionaryGetValue(ZNNetworkInterfaceGetExtendedConfiguration(outer(service), type),
                                key);
  }
};

TEST_F(ConfigurationProperties, KeysLandWhereTheirClassPointsOnEachChain) {
  struct Case {
    Chain chain;
    PVStringRef key;
    PVStringRef extendedType;  // NULL: the outer interface's own configuration
  } cases[] = {
      {Chain::L2TP, kZNPropNetL2TPIPSecSharedSecret, kZNEntNetIPSec},
      {Chain::PPTP, kZNPropNetIPSecSharedSecret, kZNEntNetIPSec},
      {Chain::Vendor, kJXVPNPropNetVPNOnDemandSupported, kZNEntNetIPSec},
      {Chain::IPSec, kZNPropNetPPPAuthName, kZNEntNetPPP},
      {Chain::L2TP, kZNPropNetPPPAuthName, nullptr},
      {Chain::Vendor, kZNPropNetVPNLocalCertificate, nullptr},
      {Chain::IPSec, kJXVPNPropNetIPSecOnDemandSupported, nullptr},
  };
  auto value = text("value");
  for (const Case &c : cases) {
    SCOPED_TRACE(PVStringGetCStringPtr(c.key));
    ZNNetworkServiceRef service = makeService(c.chain);
    EXPECT_TRUE(JXVPNServiceSetConfigurationProperty(service, c.key, value.get()));
    PVTypeRef stored =
        c.extendedType ? extendedValue(service, c.extendedType, c.key) : outerValue(service, c.key);
    EXPECT_TRUE(PVEqual(stored, value.get()));
    EXPECT_TRUE(PVEqual(JXVPNServiceGetConfigurationProperty(service, c.key), value.get()));
  }
}

TEST_F(ConfigurationProperties, UnknownKeysUseTheOuterInterfacesOwnConfiguration) {
  ZNNetworkServiceRef service = makeService(Chain::IPSec);
  // Same text as the PPP key constant, but not the constant: unknown.
  auto callersKey = text("AuthName");
  auto callersValue = text("caller"), constantsValue = text("constant");
  EXPECT_TRUE(JXVPNServiceSetConfigurationProperty(service, callersKey.get(), callersValue.get()));
  EXPECT_TRUE(
      JXVPNServiceSetConfigurationProperty(service, kZNPropNetPPPAuthName, constantsValue.get()));
  EXPECT_TRUE(PVEqual(outerValue(service, callersKey.get()), callersValue.get()));
  EXPECT_TRUE(
      PVEqual(extendedValue(service, kZNEntNetPPP, kZNPropNetPPPAuthName), constantsValue.get()));
  EXPECT_TRUE(
      PVEqual(JXVPNServiceGetConfigurationProperty(service, callersKey.get()), callersValue.get()));
  EXPECT_TRUE(PVEqual(JXVPNServiceGetConfigurationProperty(service, kZNPropNetPPPAuthName),
                      constantsValue.get()));
}

TEST_F(ConfigurationProperties, ForTypeUsesTheGivenTypeAndNullArgumentsChangeNothing) {
  ZNNetworkServiceRef service = makeService(Chain::L2TP);
  auto value = text("value");
  EXPECT_TRUE(JXVPNServiceSetConfigurationPropertyForType(service, kZNPropNetPPPAuthName,
                                                          value.get(), kZNEntNetL2TP));
  ZNNetworkInterfaceRef tunnel = ZNNetworkInterfaceGetInterface(outer(service));
  EXPECT_TRUE(PVEqual(
      PVDictionaryGetValue(ZNNetworkInterfaceGetConfiguration(tunnel), kZNPropNetPPPAuthName),
      value.get()));
  EXPECT_TRUE(PVEqual(
      JXVPNServiceGetConfigurationPropertyForType(service, kZNPropNetPPPAuthName, kZNEntNetL2TP),
      value.get()));
  EXPECT_EQ(JXVPNServiceGetConfigurationProperty(service, kZNPropNetPPPAuthName), nullptr);

  PTReset();
  EXPECT_FALSE(JXVPNServiceSetConfigurationProperty(service, kZNPropNetPPPAuthName, nullptr));
  EXPECT_FALSE(JXVPNServiceSetConfigurationProperty(service, nullptr, value.get()));
  EXPECT_FALSE(JXVPNServiceSetConfigurationPropertyForType(service, kZNPropNetPPPAuthName, nullptr,
                                                           kZNEntNetPPP));
  EXPECT_FALSE(JXVPNServiceSetConfigurationProperty(nullptr, kZNPropNetPPPAuthName, value.get()));
  EXPECT_EQ(JXVPNServiceGetConfigurationProperty(service, nullptr), nullptr);
  EXPECT_EQ(JXVPNServiceGetConfigurationProperty(nullptr, kZNPropNetPPPAuthName), nullptr);
  EXPECT_EQ(layerWrites(), 0);
}

TEST_F(ConfigurationProperties, RemoveWritesOncePerPlacedKeyAndNeverTouchesUnknownKeys) {
  ZNNetworkServiceRef service = makeService(Chain::L2TP);
  auto value = text("value");
  auto unknown = text("RemoteAddress");
  JXVPNServiceSetConfigurationProperty(service, kZNPropNetPPPAuthName, value.get());
  JXVPNServiceSetConfigurationProperty(service, kZNPropNetPPPAuthPassword, value.get());
  JXVPNServiceSetConfigurationProperty(service, unknown.get(), value.get());
  auto keys = array({kZNPropNetPPPAuthName, kZNPropNetPPPAuthPassword, unknown.get(),
                     kZNPropNetPPPAuthName /* absent by now */});
  PTReset();
  EXPECT_TRUE(JXVPNServiceRemoveConfigurationProperties(service, keys.get()));
  EXPECT_EQ(PTCallCount("ZNNetworkInterfaceSetConfiguration"), 3);
  EXPECT_EQ(JXVPNServiceGetConfigurationProperty(service, kZNPropNetPPPAuthName), nullptr);
  EXPECT_EQ(JXVPNServiceGetConfigurationProperty(service, kZNPropNetPPPAuthPassword), nullptr);
  EXPECT_TRUE(PVEqual(outerValue(service, unknown.get()), value.get()));

  PTReset();
  EXPECT_FALSE(JXVPNServiceRemoveConfigurationProperties(service, array({unknown.get()}).get()));
  EXPECT_FALSE(JXVPNServiceRemoveConfigurationProperties(service, array({}).get()));
  EXPECT_FALSE(JXVPNServiceRemoveConfigurationProperties(service, nullptr));
  EXPECT_FALSE(JXVPNServiceRemoveConfigurationProperties(nullptr, keys.get()));
  // A layer with no configuration yet counts as done, with nothing written.
  EXPECT_TRUE(JXVPNServiceRemoveConfigurationProperties(
      service, array({kZNPropNetVPNLocalCertificate}).get()));
  EXPECT_EQ(layerWrites(), 0);
}

TEST_F(ConfigurationProperties, RemoveResultIsThatOfTheLastPlacedKey) {
  ZNNetworkServiceRef service = makeService(Chain::L2TP);
  auto value = text("value");
  auto unknown = text("RemoteAddress");
  auto reset = [&] {
    JXVPNServiceSetConfigurationProperty(service, kZNPropNetPPPAuthName, value.get());
    JXVPNServiceSetConfigurationProperty(service, kZNPropNetPPPAuthPassword, value.get());
    JXVPNServiceSetConfigurationProperty(service, kZNPropNetIPSecSharedSecret, value.get());
  };
  struct Case {
    const char *name;
    std::vector<PVTypeRef> keys;
    long failingWrite;  // of ZNNetworkInterfaceSetConfiguration
    bool result;
  } cases[] = {
      {"failure then unknown", {kZNPropNetPPPAuthName, unknown.get()}, 1, false},
      {"success then unknown", {kZNPropNetPPPAuthPassword, unknown.get()}, 0, true},
      {"failure then success", {kZNPropNetPPPAuthName, kZNPropNetIPSecSharedSecret}, 1, true},
      {"failure then no configuration",
       {kZNPropNetPPPAuthName, kZNPropNetVPNLocalCertificate},
       1,
       true},
      {"success then failure", {kZNPropNetPPPAuthPassword, kZNPropNetPPPAuthName}, 2, false},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    reset();
    PTFailNthCall("ZNNetworkInterfaceSetConfiguration", c.failingWrite);
    EXPECT_EQ(JXVPNServiceRemoveConfigurationProperties(service, array(c.keys).get()), c.result);
    // The failed write left its key; earlier removals stay.
    EXPECT_TRUE(
        PVEqual(JXVPNServiceGetConfigurationProperty(service, kZNPropNetPPPAuthName), value.get()));
  }
  EXPECT_EQ(JXVPNServiceGetConfigurationProperty(service, kZNPropNetPPPAuthPassword), nullptr);
  EXPECT_TRUE(PVEqual(JXVPNServiceGetConfigurationProperty(service, kZNPropNetIPSecSharedSecret),
                      value.get()));
}

TEST_F(ConfigurationProperties, CommittedSettingsAreReadBackByAnotherProcess) {
  ZNNetworkServiceRef service = makeService(Chain::L2TP);
  auto secret = text("secret"), name = text("user");
  ASSERT_TRUE(
      JXVPNServiceSetConfigurationProperty(service, kZNPropNetL2TPIPSecSharedSecret, secret.get()));
  ASSERT_TRUE(JXVPNServiceSetConfigurationProperty(service, kZNPropNetPPPAuthName, name.get()));
  ASSERT_TRUE(ZNPreferencesCommitChanges(prefs_.get()));
  auto serviceID = pv::Ref<PVStringRef>::retain(ZNNetworkServiceGetServiceID(service));

  EXPECT_EQ(
      runInChildProcess([&] {
        auto prefs = pv::Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
        auto copy =
            pv::Ref<ZNNetworkServiceRef>::adopt(ZNNetworkServiceCopy(prefs.get(), serviceID.get()));
        return copy && PVEqual(JXVPNServiceGetType(copy.get()), kZNEntNetL2TP) &&
               PVEqual(JXVPNServiceGetConfigurationProperty(copy.get(),
                                                            kZNPropNetL2TPIPSecSharedSecret),
                       secret.get()) &&
               PVEqual(JXVPNServiceGetConfigurationProperty(copy.get(), kZNPropNetPPPAuthName),
                       name.get());
      }),
      0);
}

}  // namespace
}  // namespace tw::test
