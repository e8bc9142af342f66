// The session wrappers: lock with one retry, commit before apply.
#include "service/session_fixture.hpp"

namespace tw::test {
namespace {

using PreferencesSession = SessionTest;

const char kPlanned[] = "failure planned through the testing interface";

TEST_F(PreferencesSession, StaleSessionLocksAfterOneSynchronize) {
  auto other = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
  auto set = Ref<ZNNetworkSetRef>::adopt(ZNNetworkSetCreate(other.get()));
  ASSERT_TRUE(ZNPreferencesCommitChanges(other.get()));
  PTReset();
  EXPECT_TRUE(JXVPNPreferencesLock(prefs()));
  EXPECT_EQ(PTCallCount("ZNPreferencesLock"), 2);
  EXPECT_EQ(PTCallCount("ZNPreferencesSynchronize"), 1);
  EXPECT_TRUE(JXVPNPreferencesUnlock(prefs()));
  EXPECT_FALSE(JXVPNPreferencesUnlock(prefs()));  // the platform's answer, passed on
}

// Another session of this thread holds the lock: the retry fails too.
TEST_F(PreferencesSession, SecondLockFailureIsLoggedOnce) {
  auto holder = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
  ASSERT_TRUE(ZNPreferencesLock(holder.get(), true));
  EXPECT_FALSE(JXVPNPreferencesLock(prefs()));
  EXPECT_EQ(PTCallCount("ZNPreferencesLock"), 3);
  EXPECT_EQ(PTCallCount("ZNPreferencesSynchronize"), 1);
  EXPECT_EQ(capturedLog(), std::vector<std::string>{
                               "3: Failed to lock ZNPreferences the preferences are locked by "
                               "another session"});
}

TEST_F(PreferencesSession, CommitsThenAppliesAndStopsAtTheFirstFailure) {
  auto set = Ref<ZNNetworkSetRef>::adopt(ZNNetworkSetCreate(prefs()));
  PTFailNthCall("ZNPreferencesCommitChanges", 1);
  EXPECT_FALSE(JXVPNPreferencesCommitAndApply(prefs()));
  EXPECT_EQ(PTCallCount("ZNPreferencesApplyChanges"), 0);

  PTFailNthCall("ZNPreferencesApplyChanges", 1);
  EXPECT_FALSE(JXVPNPreferencesCommitAndApply(prefs()));
  EXPECT_EQ(capturedLog(), (std::vector<std::string>{
                               std::string("3: Failed to commit ZNPreferences ") + kPlanned,
                               std::string("3: Failed to apply ZNPreferences ") + kPlanned}));
  int64_t appliedBefore = ZNPreferencesGetAppliedGeneration(prefs());
  EXPECT_TRUE(JXVPNPreferencesCommitAndApply(prefs()));
  EXPECT_GT(ZNPreferencesGetAppliedGeneration(prefs()), appliedBefore);
  EXPECT_EQ(capturedLog().size(), 2u);
}

}  // namespace
}  // namespace tw::test
