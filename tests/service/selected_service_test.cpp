// Keeping a VPN service selected in every set, and announcing a change of
// the current set's selection.
#include "service/session_fixture.hpp"

namespace tw::test {
namespace {

const std::vector<std::string> kBothPosts{"local: VPNChanged",
                                          "system: com.velmora.quaystone.vpn-changed"};

class SelectedService : public SessionTest {
 protected:
  // Sets are kept in the session's order; the first is the current one.
  ZNNetworkSetRef setAt(PVIndex index) {
    sets_ = sets();
    return at<ZNNetworkSetRef>(sets_.get(), index);
  }
  static std::string selectionOf(ZNNetworkSetRef set) {
    auto selected = Ref<ZNNetworkServiceRef>::adopt(ZNNetworkSetCopySelectedVPNService(set));
    return selected ? idOf(selected.get()) : "(none)";
  }
  std::string selectedIn(PVIndex index) { return selectionOf(setAt(index)); }
  std::string committedSelection() {
    auto fresh = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
    return selectionOf(Ref<ZNNetworkSetRef>::adopt(ZNNetworkSetCopyCurrent(fresh.get())).get());
  }

 private:
  Ref<PVArrayRef> sets_;
};

TEST_F(SelectedService, FirstServiceIsSelectedEverywhereCommittedAppliedAndAnnouncedOnce) {
  addSet();
  auto service = create(kZNEntNetL2TP, "Office");
  PTReset();
  PTCaptureStart();
  EXPECT_TRUE(JXVPNUpdateDefaultsAfterAddingService(service.get(), prefs()));
  EXPECT_EQ(selectedIn(0), idOf(service.get()));
  EXPECT_EQ(selectedIn(1), idOf(service.get()));
  EXPECT_EQ(committedSelection(), idOf(service.get()));
  EXPECT_EQ(PTCallCount("ZNPreferencesApplyChanges"), 1);
  EXPECT_EQ(capturedPosts(), kBothPosts);

  // Again, forced: set everywhere once more, but nothing changed.
  PTReset();
  PTCaptureStart();
  EXPECT_TRUE(JXVPNUpdateDefaultsAfterAddingService(service.get(), prefs()));
  EXPECT_EQ(PTCallCount("ZNNetworkSetSetSelectedVPNService"), 2);
  EXPECT_EQ(PTCallCount("ZNPreferencesCommitChanges"), 0);
  EXPECT_TRUE(capturedPosts().empty());
}

TEST_F(SelectedService, WithoutForceOnlySetsWithoutSelectionChange) {
  addSet();
  auto first = create(kZNEntNetIPSec, "first");
  auto second = create(kZNEntNetIPSec, "second");
  ASSERT_TRUE(ZNNetworkSetSetSelectedVPNService(setAt(1), first.get()));
  PTCaptureStart();
  EXPECT_TRUE(JXVPNSetSelectedService(second.get(), prefs(), false));
  EXPECT_EQ(selectedIn(0), idOf(second.get()));
  EXPECT_EQ(selectedIn(1), idOf(first.get()));
  EXPECT_EQ(capturedPosts(), kBothPosts);
}

TEST_F(SelectedService, DeletingReselectsTheLastServiceWhereNoneIsLeft) {
  addSet();
  auto gone = create(kZNEntNetIPSec, "gone");
  auto kept = create(kZNEntNetL2TP, "kept");
  auto last = create(kZNEntNetPPTP, "last");
  ASSERT_TRUE(ZNNetworkSetSetSelectedVPNService(setAt(0), gone.get()));
  ASSERT_TRUE(ZNNetworkSetSetSelectedVPNService(setAt(1), kept.get()));
  ASSERT_TRUE(JXVPNServiceRemove(gone.get()));
  PTCaptureStart();
  EXPECT_TRUE(JXVPNUpdateDefaultsAfterDeletingServiceInPreferences(prefs()));
  EXPECT_EQ(selectedIn(0), idOf(last.get()));
  EXPECT_EQ(selectedIn(1), idOf(kept.get()));
  EXPECT_EQ(capturedPosts(), kBothPosts);
  EXPECT_EQ(committedSelection(), idOf(last.get()));

  ASSERT_TRUE(JXVPNServiceRemove(kept.get()));
  ASSERT_TRUE(JXVPNServiceRemove(last.get()));
  PTCaptureStart();
  EXPECT_FALSE(JXVPNUpdateDefaultsAfterDeletingServiceInPreferences(prefs()));
  EXPECT_TRUE(capturedPosts().empty());
}

TEST_F(SelectedService, ClearingTheCurrentSelectionIsAnnounced) {
  auto service = create(kZNEntNetIPSec, "Office");
  ASSERT_TRUE(ZNNetworkSetSetSelectedVPNService(setAt(0), service.get()));
  EXPECT_TRUE(JXVPNSetSelectedService(nullptr, prefs(), true));
  EXPECT_EQ(selectedIn(0), "(none)");
  EXPECT_EQ(capturedPosts(), kBothPosts);
}

// The last set call decides, even after an earlier one changed the current
// set; a change is announced even when its commit fails.
TEST_F(SelectedService, ResultIsTheLastSetCallAndAChangeIsAnnouncedEvenUncommitted) {
  addSet();
  auto service = create(kZNEntNetIPSec, "Office");
  PTFailNthCall("ZNNetworkSetSetSelectedVPNService", 2);
  EXPECT_FALSE(JXVPNSetSelectedService(service.get(), prefs(), true));
  EXPECT_EQ(selectedIn(0), idOf(service.get()));
  EXPECT_EQ(PTCallCount("ZNPreferencesCommitChanges"), 0);
  EXPECT_TRUE(capturedPosts().empty());

  ASSERT_TRUE(ZNNetworkSetSetSelectedVPNService(setAt(0), nullptr));
  PTFailNthCall("ZNNetworkSetSetSelectedVPNService", 1);  // the current set's call fails
  EXPECT_TRUE(JXVPNSetSelectedService(service.get(), prefs(), true));
  EXPECT_EQ(selectedIn(0), "(none)");
  EXPECT_TRUE(capturedPosts().empty());

  PTFailNthCall("ZNPreferencesCommitChanges", 1);
  EXPECT_TRUE(JXVPNSetSelectedService(service.get(), prefs(), true));
  EXPECT_EQ(capturedPosts(), kBothPosts);
  EXPECT_EQ(capturedLog(), std::vector<std::string>{
                               "3: Failed to commit ZNPreferences failure planned through the "
                               "testing interface"});
  EXPECT_EQ(committedSelection(), "(none)");
}

TEST_F(SelectedService, NoSetsOrNoSessionGiveFalse) {
  auto service = create(kZNEntNetIPSec, "Office");
  ASSERT_TRUE(ZNNetworkSetRemove(setAt(0)));
  EXPECT_FALSE(JXVPNSetSelectedService(service.get(), prefs(), true));
  EXPECT_FALSE(JXVPNUpdateDefaultsAfterAddingService(service.get(), nullptr));
  EXPECT_FALSE(JXVPNUpdateDefaultsAfterDeletingServiceInPreferences(nullptr));
  EXPECT_TRUE(capturedPosts().empty());
}

}  // namespace
}  // namespace tw::test
