// Interface chains and the configurations of their layers.
#include "platform/prefs/support.hpp"
#include "support/test_support.hpp"

namespace tw::test {
namespace {

using NetworkInterface = ServiceTest;

TEST_F(NetworkInterface, ServicesKeepTheChainTheyWereCreatedOn) {
  const std::pair<Chain, const char *> chains[] = {{Chain::IPSec, "IPSec/IPv4"},
                                                   {Chain::L2TP, "PPP/L2TP/IPv4"},
                                                   {Chain::Vendor, "VPN/com.example.vendor/IPv4"},
                                                   {Chain::PPPOverNothing, "PPP"}};
  for (const auto &[chain, expected] : chains) {
    EXPECT_EQ(chainTypes(createService(prefs_.get(), chain).get()), expected);
  }
  EXPECT_EQ(ZNNetworkInterfaceCreateWithInterface(kZNNetworkInterfaceIPv4, nullptr), nullptr);
  EXPECT_EQ(ZNError(), kZNStatusInvalidArgument);

  // The platform's IPv4 interface is shared by every chain: immortal, unconfigurable.
  PVRelease(kZNNetworkInterfaceIPv4);
  EXPECT_EQ(textOf(ZNNetworkInterfaceGetInterfaceType(kZNNetworkInterfaceIPv4)), "IPv4");
  EXPECT_FALSE(ZNNetworkInterfaceSetConfiguration(kZNNetworkInterfaceIPv4,
                                                  dict({{"Router", "10.0.0.1"}}).get()));
  EXPECT_EQ(ZNError(), kZNStatusInvalidArgument);
}

TEST_F(NetworkInterface, EachLayerKeepsItsOwnPlainAndExtendedConfigurations) {
  auto l2tp = layer(kZNNetworkInterfaceIPv4, kZNEntNetL2TP);
  ZNNetworkInterfaceSetConfiguration(l2tp.get(), dict({{"Transport", "IPSec"}}).get());
  auto ppp = layer(l2tp.get(), kZNNetworkInterfaceTypePPP);
  auto service = Ref<ZNNetworkServiceRef>::adopt(ZNNetworkServiceCreate(prefs_.get(), ppp.get()));
  // The free-standing layers were copied: changing them now reaches nothing.
  ZNNetworkInterfaceSetConfiguration(l2tp.get(), dict({{"Transport", "Changed"}}).get());

  ZNNetworkInterfaceRef outer = ZNNetworkServiceGetInterface(service.get());
  ZNNetworkInterfaceRef middle = ZNNetworkInterfaceGetInterface(outer);
  ZNNetworkInterfaceRef bottom = ZNNetworkInterfaceGetInterface(middle);
  EXPECT_TRUE(
      PVEqual(ZNNetworkInterfaceGetConfiguration(middle), dict({{"Transport", "IPSec"}}).get()));
  EXPECT_EQ(ZNNetworkInterfaceGetConfiguration(outer), nullptr);

  // What is stored is a copy: the caller's later changes do not reach it.
  auto mutableConfiguration = Ref<PVMutableDictionaryRef>::adopt(PVDictionaryCreateMutable());
  PVDictionarySetValue(mutableConfiguration.get(), text("AuthName").get(), text("ann").get());
  ASSERT_TRUE(ZNNetworkInterfaceSetConfiguration(outer, mutableConfiguration.get()));
  PVDictionarySetValue(mutableConfiguration.get(), text("AuthName").get(), text("bob").get());
  auto ann = dict({{"AuthName", "ann"}});
  EXPECT_TRUE(PVEqual(ZNNetworkInterfaceGetConfiguration(outer), ann.get()));

  ASSERT_TRUE(ZNNetworkInterfaceSetExtendedConfiguration(outer, text("EAP").get(), ann.get()));
  EXPECT_TRUE(
      PVEqual(ZNNetworkInterfaceGetExtendedConfiguration(outer, text("EAP").get()), ann.get()));
  EXPECT_EQ(ZNNetworkInterfaceGetExtendedConfiguration(middle, text("EAP").get()), nullptr);
  auto types = Ref<PVArrayRef>::adopt(ZNNetworkInterfaceCopyExtendedConfigurationTypes(outer));
  EXPECT_TRUE(PVEqual(types.get(), array({text("EAP").get()}).get()));
  ASSERT_TRUE(ZNNetworkInterfaceSetExtendedConfiguration(outer, text("EAP").get(), nullptr));
  EXPECT_EQ(ZNNetworkInterfaceGetExtendedConfiguration(outer, text("EAP").get()), nullptr);
  types = Ref<PVArrayRef>::adopt(ZNNetworkInterfaceCopyExtendedConfigurationTypes(outer));
  EXPECT_EQ(PVArrayGetCount(types.get()), 0);

  // The bottom IPv4 layer is the service's own.
  ASSERT_TRUE(ZNNetworkInterfaceSetConfiguration(bottom, dict({{"Router", "r"}}).get()));
  EXPECT_EQ(ZNNetworkInterfaceGetConfiguration(kZNNetworkInterfaceIPv4), nullptr);

  auto set = Ref<PVSetRef>::adopt(PVSetCreate(nullptr, 0, &kPVTypeSetCallBacks));
  EXPECT_FALSE(ZNNetworkInterfaceSetConfiguration(outer, dict({{"Unstorable", set}}).get()));
  EXPECT_EQ(ZNError(), kZNStatusInvalidArgument);
  EXPECT_TRUE(PVEqual(ZNNetworkInterfaceGetConfiguration(outer), ann.get()));
}

TEST_F(NetworkInterface, LayerHandlesOutliveTheirServiceAndTheirSession) {
  auto service = createService(prefs_.get(), Chain::L2TP, "Short-lived");
  auto outer = Ref<ZNNetworkInterfaceRef>::retain(ZNNetworkServiceGetInterface(service.get()));
  PVIndex sessionRefs = PVGetRetainCount(prefs_.get());
  ZNNetworkInterfaceGetInterface(outer.get());
  EXPECT_EQ(PVGetRetainCount(prefs_.get()), sessionRefs);  // the session owns its layer handles

  ASSERT_TRUE(ZNNetworkServiceRemove(service.get()));
  EXPECT_EQ(ZNNetworkInterfaceGetInterfaceType(outer.get()), nullptr);
  EXPECT_EQ(ZNError(), kZNStatusNoSuchObject);
  service = {};
  prefs_ = {};
  EXPECT_EQ(ZNNetworkInterfaceGetInterface(outer.get()), nullptr);
  EXPECT_FALSE(ZNNetworkInterfaceSetConfiguration(outer.get(), nullptr));
  EXPECT_EQ(ZNError(), kZNStatusNoSuchObject);
}

// Re-reading the store keeps every layer's handle: a caller comparing
// handles, or holding one borrowed, sees the same layer afterwards.
TEST_F(NetworkInterface, SynchronizeKeepsEachLayersHandle) {
  auto kept = createService(prefs_.get(), Chain::L2TP, "Kept");
  auto gone = createService(prefs_.get(), Chain::IPSec, "Gone");
  ASSERT_TRUE(ZNPreferencesCommitChanges(prefs_.get()));
  ZNNetworkInterfaceRef outer = ZNNetworkServiceGetInterface(kept.get());
  ZNNetworkInterfaceRef middle = ZNNetworkInterfaceGetInterface(outer);
  auto goneOuter = Ref<ZNNetworkInterfaceRef>::retain(ZNNetworkServiceGetInterface(gone.get()));
  {
    auto other = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
    auto copy = Ref<ZNNetworkServiceRef>::adopt(
        ZNNetworkServiceCopy(other.get(), ZNNetworkServiceGetServiceID(gone.get())));
    ASSERT_TRUE(ZNNetworkServiceRemove(copy.get()));
    ASSERT_TRUE(ZNPreferencesCommitChanges(other.get()));
  }

  ZNPreferencesSynchronize(prefs_.get());
  EXPECT_EQ(ZNNetworkServiceGetInterface(kept.get()), outer);
  EXPECT_EQ(ZNNetworkInterfaceGetInterface(outer), middle);
  EXPECT_EQ(textOf(ZNNetworkInterfaceGetInterfaceType(middle)), "L2TP");
  EXPECT_EQ(ZNNetworkInterfaceGetInterfaceType(goneOuter.get()), nullptr);
  EXPECT_EQ(ZNError(), kZNStatusNoSuchObject);
}

}  // namespace
}  // namespace tw::test
