#include <gtest/gtest.h>

#include "support/services.hpp"
#include "tarnwick/platform/testing.h"

namespace tw::test {
namespace {

class ProtocolConfiguration : public ServiceTest {
 protected:
  static PVTypeRef valueIn(ZNNetworkServiceRef service, PVStringRef protocolType, PVStringRef key) {
    return PVDictionaryGetValue(JXVPNServiceGetProtocolConfiguration(service, protocolType), key);
  }
  static long protocolWrites() { return PTCallCount("ZNNetworkProtocolSetConfiguration"); }
};

TEST_F(ProtocolConfiguration, PropertiesGoToTheProtocolTheirTextNames) {
  ZNNetworkServiceRef service = makeService(Chain::L2TP);
  struct Case {
    const char *key;
    PVStringRef protocolType;
  } cases[] = {
      {"OverridePrimary", kZNEntNetIPv4},
      {"PayloadUUID", kJXVPNProtocolTypePayload},
      {"HTTPProxyUsername", kZNNetworkProtocolTypeProxies},
  };
  auto value = text("value");
  for (const Case &c : cases) {
    SCOPED_TRACE(c.key);
    auto key = text(c.key);
    EXPECT_TRUE(JXVPNServiceSetProtocolConfigurationProperty(service, key.get(), value.get()));
    EXPECT_TRUE(PVEqual(valueIn(service, c.protocolType, key.get()), value.get()));
    EXPECT_TRUE(PVEqual(JXVPNServiceGetProtocolConfigurationProperty(service, text(c.key).get()),
                        value.get()));
  }
  // Unknown keys are refused, unlike the layer setter.
  PTReset();
  auto unknown = text("PayloadIdentifier");
  EXPECT_FALSE(JXVPNServiceSetProtocolConfigurationProperty(service, unknown.get(), value.get()));
  EXPECT_FALSE(
      JXVPNServiceSetProtocolConfigurationProperty(service, text("PayloadUUID").get(), nullptr));
  EXPECT_FALSE(JXVPNServiceSetProtocolConfigurationProperty(service, nullptr, value.get()));
  EXPECT_EQ(JXVPNServiceGetProtocolConfigurationProperty(service, unknown.get()), nullptr);
  EXPECT_EQ(JXVPNServiceGetProtocolConfigurationProperty(service, nullptr), nullptr);
  EXPECT_EQ(protocolWrites(), 0);
}

TEST_F(ProtocolConfiguration, MergeKeepsOldKeysAndWritesEvenWhenEmpty) {
  ZNNetworkServiceRef service = makeService(Chain::IPSec);
  auto empty = dict({});
  // The payload protocol starts with no configuration at all.
  ASSERT_EQ(JXVPNServiceGetProtocolConfiguration(service, kJXVPNProtocolTypePayload), nullptr);
  PTReset();
  EXPECT_TRUE(
      JXVPNServiceMergeProtocolConfiguration(service, kJXVPNProtocolTypePayload, empty.get()));
  EXPECT_EQ(protocolWrites(), 1);
  EXPECT_TRUE(PVEqual(JXVPNServiceGetProtocolConfiguration(service, kJXVPNProtocolTypePayload),
                      empty.get()));

  auto key = text("PayloadUUID"), organization = text("PayloadOrganization");
  auto oldValue = text("old"), newValue = text("new");
  EXPECT_TRUE(JXVPNServiceSetProtocolConfigurationProperty(service, key.get(), oldValue.get()));
  EXPECT_TRUE(
      JXVPNServiceSetProtocolConfigurationProperty(service, organization.get(), oldValue.get()));
  auto entries = dict({{key.get(), newValue}});
  EXPECT_TRUE(
      JXVPNServiceMergeProtocolConfiguration(service, kJXVPNProtocolTypePayload, entries.get()));
  EXPECT_TRUE(PVEqual(valueIn(service, kJXVPNProtocolTypePayload, key.get()), newValue.get()));
  EXPECT_TRUE(
      PVEqual(valueIn(service, kJXVPNProtocolTypePayload, organization.get()), oldValue.get()));
  EXPECT_EQ(PVGetRetainCount(entries.get()), 1);

  PTReset();
  EXPECT_TRUE(JXVPNServiceMergeProtocolConfiguration(service, kJXVPNProtocolTypePayload, nullptr));
  EXPECT_FALSE(
      JXVPNServiceMergeProtocolConfiguration(nullptr, kJXVPNProtocolTypePayload, entries.get()));
  EXPECT_EQ(protocolWrites(), 0);
}

TEST_F(ProtocolConfiguration, MissingProtocolOrFailedWriteIsNullOrFalse) {
  ZNNetworkServiceRef service = makeService(Chain::IPSec, nullptr, /*payloadProtocol=*/false);
  auto value = text("value");
  auto configuration = dict({{"PayloadUUID", value}});
  EXPECT_EQ(JXVPNServiceGetProtocolConfiguration(service, kJXVPNProtocolTypePayload), nullptr);
  EXPECT_FALSE(JXVPNServiceSetProtocolConfiguration(service, kJXVPNProtocolTypePayload,
                                                    configuration.get()));
  EXPECT_FALSE(JXVPNServiceMergeProtocolConfiguration(service, kJXVPNProtocolTypePayload,
                                                      configuration.get()));
  EXPECT_FALSE(JXVPNServiceSetProtocolConfigurationProperty(service, text("PayloadUUID").get(),
                                                            value.get()));
  EXPECT_EQ(JXVPNServiceGetProtocolConfigurationProperty(service, text("PayloadUUID").get()),
            nullptr);

  for (const char *operation :
       {"ZNNetworkServiceCopyProtocol", "ZNNetworkProtocolSetConfiguration"}) {
    SCOPED_TRACE(operation);
    PTFailNthCall(operation, 1);
    EXPECT_FALSE(JXVPNServiceSetProtocolConfiguration(service, kZNEntNetIPv4, configuration.get()));
  }
  PTFailNthCall("ZNNetworkServiceCopyProtocol", 1);
  EXPECT_EQ(JXVPNServiceGetProtocolConfiguration(service, kZNEntNetIPv4), nullptr);
  EXPECT_EQ(PVDictionaryGetCount(JXVPNServiceGetProtocolConfiguration(service, kZNEntNetIPv4)), 0);
  // A null configuration is passed on, not refused.
  EXPECT_TRUE(JXVPNServiceSetProtocolConfiguration(service, kZNEntNetIPv4, nullptr));
  EXPECT_EQ(JXVPNServiceGetProtocolConfiguration(service, kZNEntNetIPv4), nullptr);
}

TEST_F(ProtocolConfiguration, RemoveFollowsTheLayerRemoversResultRules) {
  ZNNetworkServiceRef service = makeService(Chain::IPSec);
  auto value = text("value");
  auto overridePrimary = text("OverridePrimary"), user = text("HTTPProxyUsername"),
       password = text("HTTPProxyPassword"), uuid = text("PayloadUUID"), unknown = text("VPNType");
  for (PVStringRef key : {overridePrimary.get(), user.get(), password.get()}) {
    ASSERT_TRUE(JXVPNServiceSetProtocolConfigurationProperty(service, key, value.get()));
  }

  PTReset();
  EXPECT_FALSE(JXVPNServiceRemoveProtocolConfigurationProperties(service, array({}).get()));
  EXPECT_FALSE(JXVPNServiceRemoveProtocolConfigurationProperties(service, nullptr));
  EXPECT_FALSE(JXVPNServiceRemoveProtocolConfigurationProperties(
      nullptr, array({overridePrimary.get()}).get()));
  EXPECT_FALSE(
      JXVPNServiceRemoveProtocolConfigurationProperties(service, array({unknown.get()}).get()));
  // The payload protocol has no configuration: done, nothing written.
  EXPECT_TRUE(
      JXVPNServiceRemoveProtocolConfigurationProperties(service, array({uuid.get()}).get()));
  EXPECT_EQ(protocolWrites(), 0);

  // One write per key, the second failing: the first removal stays.
  PTFailNthCall("ZNNetworkProtocolSetConfiguration", 2);
  EXPECT_FALSE(JXVPNServiceRemoveProtocolConfigurationProperties(
      service, array({user.get(), password.get(), unknown.get()}).get()));
  EXPECT_EQ(protocolWrites(), 2);
  EXPECT_EQ(valueIn(service, kZNNetworkProtocolTypeProxies, user.get()), nullptr);
  EXPECT_TRUE(
      PVEqual(valueIn(service, kZNNetworkProtocolTypeProxies, password.get()), value.get()));

  PTFailNthCall("ZNNetworkProtocolSetConfiguration", 1);
  EXPECT_TRUE(JXVPNServiceRemoveProtocolConfigurationProperties(
      service, array({password.get(), overridePrimary.get()}).get()));
  EXPECT_EQ(valueIn(service, kZNEntNetIPv4, overridePrimary.get()), nullptr);
  EXPECT_TRUE(
      PVEqual(valueIn(service, kZNNetworkProtocolTypeProxies, password.get()), value.get()));
}

}  // namespace
}  // namespace tw::test
