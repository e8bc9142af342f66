// Sets: creation, naming, the current set, membership and selection.
#include "platform/prefs/support.hpp"
#include "support/test_support.hpp"

namespace tw::test {
namespace {

using NetworkSet = ServiceTest;

std::string memberNames(ZNNetworkSetRef set) {
  return serviceNames(Ref<PVArrayRef>::adopt(ZNNetworkSetCopyServices(set)).get());
}

TEST_F(NetworkSet, SetsAreCreatedUnnamedAndCanBeNamedMadeCurrentAndRemoved) {
  auto original = Ref<ZNNetworkSetRef>::adopt(ZNNetworkSetCopyCurrent(prefs_.get()));
  auto travel = Ref<ZNNetworkSetRef>::adopt(ZNNetworkSetCreate(prefs_.get()));
  EXPECT_EQ(ZNNetworkSetGetName(travel.get()), nullptr);
  EXPECT_EQ(memberNames(travel.get()), "");
  ASSERT_TRUE(ZNNetworkSetSetName(travel.get(), text("Travel").get()));
  ASSERT_TRUE(ZNNetworkSetSetCurrent(travel.get()));
  auto current = Ref<ZNNetworkSetRef>::adopt(ZNNetworkSetCopyCurrent(prefs_.get()));
  EXPECT_TRUE(PVEqual(current.get(), travel.get()));

  ASSERT_TRUE(ZNNetworkSetRemove(travel.get()));
  EXPECT_EQ(ZNNetworkSetCopyCurrent(prefs_.get()), nullptr);  // the current set was removed
  EXPECT_EQ(ZNError(), kZNStatusNoSuchObject);
  EXPECT_EQ(ZNNetworkSetGetSetID(travel.get()), nullptr);
  EXPECT_FALSE(ZNNetworkSetSetName(travel.get(), text("Again").get()));
  EXPECT_EQ(ZNError(), kZNStatusNoSuchObject);
  EXPECT_TRUE(ZNNetworkSetSetCurrent(original.get()));
}

TEST_F(NetworkSet, MembershipKeepsOrderAndRefusesDuplicatesAndStrangers) {
  auto set = Ref<ZNNetworkSetRef>::adopt(ZNNetworkSetCopyCurrent(prefs_.get()));
  auto first = createService(prefs_.get(), Chain::L2TP, "First");
  auto second = createService(prefs_.get(), Chain::L2TP, "Second");
  ASSERT_TRUE(ZNNetworkSetAddService(set.get(), second.get()));
  ASSERT_TRUE(ZNNetworkSetAddService(set.get(), first.get()));
  EXPECT_FALSE(ZNNetworkSetAddService(set.get(), first.get()));
  EXPECT_EQ(memberNames(set.get()), "Second,First");

  auto other = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
  auto stranger = createService(other.get(), Chain::L2TP, "Stranger");
  EXPECT_FALSE(ZNNetworkSetAddService(set.get(), stranger.get()));
  EXPECT_EQ(ZNError(), kZNStatusInvalidArgument);

  ASSERT_TRUE(ZNNetworkSetRemoveService(set.get(), second.get()));
  EXPECT_FALSE(ZNNetworkSetRemoveService(set.get(), second.get()));
  EXPECT_EQ(ZNError(), kZNStatusNoSuchObject);
  EXPECT_EQ(memberNames(set.get()), "First");
  EXPECT_EQ(serviceNames(prefs_.get()), "First,Second");  // the service itself stays
}

TEST_F(NetworkSet, SelectionIsClearedByNullAndByRemovingTheServiceFromEverySet) {
  auto home = Ref<ZNNetworkSetRef>::adopt(ZNNetworkSetCopyCurrent(prefs_.get()));
  auto away = Ref<ZNNetworkSetRef>::adopt(ZNNetworkSetCreate(prefs_.get()));
  auto vpn = createService(prefs_.get(), Chain::L2TP, "VPN");
  auto kept = createService(prefs_.get(), Chain::L2TP, "Kept");
  EXPECT_EQ(ZNNetworkSetCopySelectedVPNService(home.get()), nullptr);

  for (ZNNetworkSetRef set : {home.get(), away.get()}) {
    ASSERT_TRUE(ZNNetworkSetAddService(set, vpn.get()));
    ASSERT_TRUE(ZNNetworkSetAddService(set, kept.get()));
    ASSERT_TRUE(ZNNetworkSetSetSelectedVPNService(set, vpn.get()));
  }
  auto selected = Ref<ZNNetworkServiceRef>::adopt(ZNNetworkSetCopySelectedVPNService(home.get()));
  EXPECT_TRUE(PVEqual(selected.get(), vpn.get()));

  ASSERT_TRUE(ZNNetworkSetSetSelectedVPNService(home.get(), nullptr));
  EXPECT_EQ(ZNNetworkSetCopySelectedVPNService(home.get()), nullptr);
  ASSERT_TRUE(ZNNetworkSetSetSelectedVPNService(home.get(), kept.get()));

  ASSERT_TRUE(ZNNetworkServiceRemove(vpn.get()));
  EXPECT_EQ(memberNames(home.get()), "Kept");
  EXPECT_EQ(memberNames(away.get()), "Kept");
  EXPECT_EQ(ZNNetworkSetCopySelectedVPNService(away.get()), nullptr);
  selected = Ref<ZNNetworkServiceRef>::adopt(ZNNetworkSetCopySelectedVPNService(home.get()));
  EXPECT_TRUE(PVEqual(selected.get(), kept.get()));
}

}  // namespace
}  // namespace tw::test
