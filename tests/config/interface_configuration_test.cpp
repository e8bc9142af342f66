#include <gtest/gtest.h>

#include <vector>

#include "config/internal.hpp"
#include "support/services.hpp"
#include "tarnwick/platform/testing.h"

namespace tw::test {
namespace {

// Where the walk should place a configuration type on a chain: a layer (0
// the outer interface, 1 the one below) and plain or extended.
struct Placement {
  Chain chain;
  PVStringRef type;
  int depth;
  bool extended;
};

class InterfaceConfiguration : public ServiceTest {
 protected:
  static std::vector<Placement> placements() {
    static const auto vendor = text(kVendorType);
    return {
        {Chain::IPSec, kZNEntNetIPSec, 0, false},
        {Chain::L2TP, kZNEntNetPPP, 0, false},
        {Chain::L2TP, kZNEntNetL2TP, 1, false},
        {Chain::PPTP, kZNEntNetPPTP, 1, false},
        {Chain::Vendor, kZNEntNetVPN, 0, false},
        {Chain::Vendor, vendor.get(), 1, false},
        {Chain::L2TP, nullptr, 0, false},
        {Chain::L2TP, kZNEntNetIPSec, 0, true},
        {Chain::Vendor, kZNEntNetIPSec, 0, true},
        {Chain::IPSec, kZNValNetPPPAuthProtocolEAP, 0, true},
    };
  }

  static ZNNetworkInterfaceRef layerAt(ZNNetworkServiceRef service, int depth) {
    ZNNetworkInterfaceRef layer = ZNNetworkServiceGetInterface(service);
    while (depth-- > 0) layer = ZNNetworkInterfaceGetInterface(layer);
    return layer;
  }

  static PVDictionaryRef storedAt(ZNNetworkServiceRef service, const Placement &p) {
    ZNNetworkInterfaceRef layer = layerAt(service, p.depth);
    return p.extended ? ZNNetworkInterfaceGetExtendedConfiguration(layer, p.type)
                      : ZNNetworkInterfaceGetConfiguration(layer);
  }
};

TEST_F(InterfaceConfiguration, WalkClearsEveryOutputForANullService) {
  ZNNetworkInterfaceRef interface = kZNNetworkInterfaceIPv4;
  auto sentinel = dict({{kZNPropNetPPPAuthName, kZNPropNetPPPAuthName}});
  PVDictionaryRef configuration = sentinel.get();
  Boolean extended = true;
  __JXVPNServiceGetInterfaceAndConfiguration(nullptr, kZNEntNetPPP, &interface, &configuration,
                                             &extended);
  EXPECT_EQ(interface, nullptr);
  EXPECT_EQ(configuration, nullptr);
  EXPECT_FALSE(extended);
  EXPECT_EQ(JXVPNServiceGetConfiguration(nullptr, kZNEntNetPPP), nullptr);
}

TEST_F(InterfaceConfiguration, WalkAsksALayerWithoutTypeAgainRatherThanSteppingPast) {
  ZNNetworkServiceRef service = makeService(Chain::L2TP);
  PTReset();
  PTFailNthCall("ZNNetworkInterfaceGetInterfaceType", 2);  // the L2TP layer's first read
  ZNNetworkInterfaceRef interface = nullptr;
  Boolean extended = true;
  __JXVPNServiceGetInterfaceAndConfiguration(service, kZNEntNetL2TP, &interface, nullptr,
                                             &extended);
  EXPECT_EQ(interface, layerAt(service, 1));
  EXPECT_FALSE(extended);
  EXPECT_EQ(PTCallCount("ZNNetworkInterfaceGetInterfaceType"), 3);
}

TEST_F(InterfaceConfiguration, SetAndMergeWriteBackThroughThePairTheWalkChose) {
  auto oldValue = text("old"), newValue = text("new");
  auto old = dict({{"A", oldValue}, {"B", oldValue}});
  auto entries = dict({{"B", newValue}, {"C", newValue}});
  auto merged = dict({{"A", oldValue}, {"B", newValue}, {"C", newValue}});

  for (const Placement &p : placements()) {
    SCOPED_TRACE(p.type ? PVStringGetCStringPtr(p.type) : "(null)");
    ZNNetworkServiceRef service = makeService(p.chain);
    const char *write = p.extended ? "ZNNetworkInterfaceSetExtendedConfiguration"
                                   : "ZNNetworkInterfaceSetConfiguration";
    PTReset();
    EXPECT_TRUE(JXVPNServiceSetConfiguration(service, p.type, old.get()));
    EXPECT_TRUE(PVEqual(storedAt(service, p), old.get()));
    EXPECT_TRUE(JXVPNServiceMergeConfiguration(service, p.type, entries.get()));
    EXPECT_TRUE(PVEqual(storedAt(service, p), merged.get()));
    EXPECT_TRUE(PVEqual(JXVPNServiceGetConfiguration(service, p.type), merged.get()));
    EXPECT_EQ(PTCallCount(write), 2);
    EXPECT_EQ(layerWrites(), 2);
  }
}

TEST_F(InterfaceConfiguration, NullServiceFailsButNothingToMergeSucceedsWithoutWriting) {
  ZNNetworkServiceRef service = makeService(Chain::L2TP);
  auto empty = dict({});
  auto some = dict({{kZNPropNetPPPAuthName, "user"}});
  PTReset();
  EXPECT_FALSE(JXVPNServiceSetConfiguration(nullptr, kZNEntNetPPP, some.get()));
  EXPECT_FALSE(JXVPNServiceSetConfiguration(service, kZNEntNetPPP, nullptr));
  EXPECT_FALSE(JXVPNServiceMergeConfiguration(nullptr, kZNEntNetPPP, some.get()));
  EXPECT_FALSE(JXVPNServiceMergeConfiguration(nullptr, kZNEntNetPPP, nullptr));
  EXPECT_TRUE(JXVPNServiceMergeConfiguration(service, kZNEntNetPPP, nullptr));
  // An empty layer configuration and an absent extended one.
  EXPECT_TRUE(JXVPNServiceMergeConfiguration(service, kZNEntNetPPP, empty.get()));
  EXPECT_TRUE(JXVPNServiceMergeConfiguration(service, kZNValNetPPPAuthProtocolEAP, empty.get()));
  EXPECT_EQ(layerWrites(), 0);
  EXPECT_EQ(JXVPNServiceGetConfiguration(service, kZNValNetPPPAuthProtocolEAP), nullptr);
}

TEST_F(InterfaceConfiguration, PlatformFailuresAreFalse) {
  ZNNetworkServiceRef service = makeService(Chain::L2TP);
  auto some = dict({{kZNPropNetPPPAuthName, "user"}});
  struct Case {
    const char *operation;
    PVStringRef type;
  } cases[] = {
      {"ZNNetworkInterfaceSetConfiguration", kZNEntNetPPP},
      {"ZNNetworkInterfaceSetExtendedConfiguration", kZNEntNetIPSec},
      {"ZNNetworkServiceGetInterface", kZNEntNetPPP},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.operation);
    PTFailNthCall(c.operation, 1);
    EXPECT_FALSE(JXVPNServiceSetConfiguration(service, c.type, some.get()));
    PTFailNthCall(c.operation, 1);
    EXPECT_FALSE(JXVPNServiceMergeConfiguration(service, c.type, some.get()));
    EXPECT_FALSE(PVEqual(JXVPNServiceGetConfiguration(service, c.type), some.get()));
  }
}

TEST_F(InterfaceConfiguration, KeepsNoReferenceToWhatItIsHanded) {
  auto value = text("user");
  auto configuration = dict({{kZNPropNetPPPAuthName, value}});
  auto entries = dict({{kZNPropNetPPPAuthPassword, value}});
  ZNNetworkServiceRef service = makeService(Chain::L2TP);
  EXPECT_TRUE(JXVPNServiceSetConfiguration(service, kZNEntNetPPP, configuration.get()));
  EXPECT_TRUE(JXVPNServiceMergeConfiguration(service, kZNEntNetIPSec, entries.get()));
  EXPECT_EQ(PVGetRetainCount(entries.get()), 1);
  services_.clear();
  prefs_ = {};
  EXPECT_EQ(PVGetRetainCount(configuration.get()), 1);
  EXPECT_EQ(PVGetRetainCount(value.get()), 3);  // ours and the two dictionaries'
}

}  // namespace
}  // namespace tw::test
