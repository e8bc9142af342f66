// Ownership of sessions and handles: what Create/Copy hand out, what Get
// lends, and what each handle keeps alive.
#include "platform/prefs/support.hpp"
#include "support/test_support.hpp"

namespace tw::test {
namespace {

using PreferencesOwnership = StoreTest;

TEST_F(PreferencesOwnership, CountsReturnToTheirStartAndHandlesKeepTheirSessionAlive) {
  PVTypeRef prefs = ZNPreferencesCreate();
  ASSERT_EQ(PVGetRetainCount(prefs), 1);
  auto session = static_cast<ZNPreferencesRef>(const_cast<void *>(prefs));
  {
    auto service = createService(session, Chain::L2TP, "Counted");
    EXPECT_EQ(PVGetRetainCount(service.get()), 1);
    PVStringRef name = ZNNetworkServiceGetName(service.get());
    const PVIndex nameRefs = PVGetRetainCount(name);
    ZNNetworkServiceGetName(service.get());
    ZNNetworkServiceGetInterface(service.get());
    EXPECT_EQ(PVGetRetainCount(name), nameRefs);
    EXPECT_EQ(PVGetRetainCount(service.get()), 1);

    auto sets = Ref<PVArrayRef>::adopt(ZNNetworkSetCopyAll(session));
    auto set = at<ZNNetworkSetRef>(sets.get(), 0);
    EXPECT_EQ(PVGetRetainCount(set), 1);  // held by the array alone
    ZNNetworkSetAddService(set, service.get());
    auto members = Ref<PVArrayRef>::adopt(ZNNetworkSetCopyServices(set));
    auto protocol = Ref<ZNNetworkProtocolRef>::adopt(
        ZNNetworkServiceCopyProtocol(service.get(), kZNNetworkProtocolTypeDNS));
    EXPECT_EQ(PVGetRetainCount(protocol.get()), 1);
    EXPECT_GT(PVGetRetainCount(prefs), 1);  // every handle keeps its session alive
  }
  EXPECT_EQ(PVGetRetainCount(prefs), 1);

  // A handle keeps its session alive after the caller lets the session go.
  auto service = createService(session, Chain::L2TP, "Survivor");
  PVRelease(prefs);
  EXPECT_EQ(textOf(ZNNetworkServiceGetName(service.get())), "Survivor");
  EXPECT_EQ(chainTypes(service.get()), "PPP/L2TP/IPv4");
}

}  // namespace
}  // namespace tw::test
