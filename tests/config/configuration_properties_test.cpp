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

// A key the classifier does not place, here equal text that is not the
// constant, uses the outer interface's own configuration.
TEST_F(ConfigurationProperties, KeysLandWhereTheirClassPointsOnEachChain) {
  auto callersKey = text("AuthName");
  struct Case {
    Chain chain;
    PVStringRef key;
    PVStringRef extendedType;  // NULL: the outer interface's own configuration
  } cases[] = {
      {Chain::L2TP, kZNPropNetL2TPIPSecSharedSecret, kZNEntNetIPSec},
      {Chain::PPTP, kZNPropNetIPSecSharedSecret, kZNEntNetIPSec},
      {Chain::Vendor, kJXVPNPropNetVPNOnDemandSupported, kZNEntNetIPSec},
      {Chain::IPSec, kZNPropNetPPPAuthName, kZNEntNetPPP},
      {Chain::IPSec, callersKey.get(), nullptr},
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

// Each placed key is written back once, absent or not, and the result is
// that of the last placed key; unknown keys are skipped and never removed.
TEST_F(ConfigurationProperties, RemoveWritesEachPlacedKeyAndGivesTheLastOnesResult) {
  ZNNetworkServiceRef service = makeService(Chain::L2TP);
  auto value = text("value");
  auto unknown = text("RemoteAddress");
  PVStringRef name = kZNPropNetPPPAuthName, password = kZNPropNetPPPAuthPassword,
              secret = kZNPropNetIPSecSharedSecret, noConfiguration = kZNPropNetVPNLocalCertificate;
  struct Case {
    const char *name;
    std::vector<PVTypeRef> keys;
    long failingWrite;  // of the layer's own configuration; 0: none
    bool result;
    long writes;
    bool nameRemoved;
  } cases[] = {
      {"every placed key", {name, password, unknown.get(), name}, 0, true, 3, true},
      {"unknown keys only", {unknown.get()}, 0, false, 0, false},
      {"no keys", {}, 0, false, 0, false},
      {"a layer without configuration", {noConfiguration}, 0, true, 0, false},
      {"failure then unknown", {name, unknown.get()}, 1, false, 1, false},
      {"success then unknown", {password, unknown.get()}, 0, true, 1, false},
      {"failure then success", {name, secret}, 1, true, 2, false},
      {"failure then no configuration", {name, noConfiguration}, 1, true, 1, false},
      {"success then failure", {password, name}, 2, false, 2, false},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    for (PVStringRef key : {name, password, secret, unknown.get()}) {
      JXVPNServiceSetConfigurationProperty(service, key, value.get());
    }
    PTReset();
    PTFailNthCall("ZNNetworkInterfaceSetConfiguration", c.failingWrite);
    EXPECT_EQ(JXVPNServiceRemoveConfigurationProperties(service, array(c.keys).get()), c.result);
    EXPECT_EQ(layerWrites(), c.writes);
    EXPECT_EQ(JXVPNServiceGetConfigurationProperty(service, name) == nullptr, c.nameRemoved);
    EXPECT_TRUE(PVEqual(outerValue(service, unknown.get()), value.get()));
  }
  // The last case's earlier removal stays.
  EXPECT_EQ(JXVPNServiceGetConfigurationProperty(service, password), nullptr);
  EXPECT_FALSE(JXVPNServiceRemoveConfigurationProperties(service, nullptr));
  EXPECT_FALSE(JXVPNServiceRemoveConfigurationProperties(nullptr, array({name}).get()));
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
