// Failures planned through the testing interface: a commit that breaks at
// any row it writes, and every call of a whole install failing in turn.
#include <algorithm>
#include <filesystem>
#include <fstream>

#include "platform/prefs/support.hpp"
#include "support/test_support.hpp"
#include "tarnwick/platform/testing.h"

namespace tw::test {
namespace {

std::vector<std::string> directoryEntries(const std::string &dir) {
  std::vector<std::string> names;
  for (const auto &entry : std::filesystem::directory_iterator(dir)) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

int openDescriptors() {
  return static_cast<int>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                                        std::filesystem::directory_iterator()));
}

using PreferencesCommitFaults = StoreTest;

TEST_F(PreferencesCommitFaults, FailedRowWriteLeavesThePreviousStoreAndTheChangesPending) {
  auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
  const std::string database = storeDir() + "/preferences.db";
  auto set = Ref<ZNNetworkSetRef>::adopt(ZNNetworkSetCopyCurrent(prefs.get()));
  auto service = createService(prefs.get(), Chain::L2TP, "Pending");
  ASSERT_TRUE(ZNNetworkSetAddService(set.get(), service.get()));
  ASSERT_TRUE(ZNNetworkSetSetName(set.get(), text("Renamed").get()));
  const std::string before = fileBytes(database);

  for (long row = 1; row <= 3; ++row) {  // the service, the set, the membership
    PTFailNthCall("commit.row", row);
    EXPECT_FALSE(ZNPreferencesCommitChanges(prefs.get())) << row;
    EXPECT_EQ(ZNError(), kZNStatusInjected) << row;
    EXPECT_EQ(fileBytes(database), before) << row;
    auto reader = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
    ASSERT_TRUE(reader) << row;
    EXPECT_EQ(serviceNames(reader.get()), "") << row;
    EXPECT_TRUE(ZNPreferencesLock(reader.get(), false)) << row;  // not stale: no new generation
    ZNPreferencesUnlock(reader.get());
  }
  // The session is unharmed: the same changes commit once nothing breaks.
  EXPECT_TRUE(ZNPreferencesCommitChanges(prefs.get()));
  auto reader = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
  auto current = Ref<ZNNetworkSetRef>::adopt(ZNNetworkSetCopyCurrent(reader.get()));
  auto members = Ref<PVArrayRef>::adopt(ZNNetworkSetCopyServices(current.get()));
  EXPECT_EQ(serviceNames(reader.get()), "Pending");
  EXPECT_EQ(PVArrayGetCount(members.get()), 1);
  EXPECT_EQ(textOf(ZNNetworkSetGetName(current.get())), "Renamed");
}

// SQLite reports a failure of a commit's last step, the sync of the journal
// it has just truncated, although every reader already sees the commit.
// The journal is synced again: the commit succeeded if that works; if it
// does not, the failure is reported and the session holds what the store
// holds, not stale.
TEST_F(PreferencesCommitFaults, CommitWhoseLastSyncFailsHasLandedAndSaysSo) {
  auto syncsOfACommit = [] {
    auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
    createService(prefs.get(), Chain::L2TP, "Counted");
    PTReset();
    EXPECT_TRUE(ZNPreferencesCommitChanges(prefs.get()));
    return PTCallCount("storage.sync");
  };
  const long lastSync = syncsOfACommit();
  ASSERT_GE(lastSync, 2);
  for (bool resyncFails : {false, true}) {
    SCOPED_TRACE(resyncFails ? "the sync again fails too" : "the sync again works");
    auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
    createService(prefs.get(), Chain::L2TP, resyncFails ? "Not durable" : "Landed");
    PTReset();
    PTFailNthCall("storage.sync", lastSync);
    if (resyncFails) PTFailNthCall("storage.resync", 1);
    EXPECT_EQ(ZNPreferencesCommitChanges(prefs.get()), !resyncFails);
    if (resyncFails) {
      EXPECT_EQ(ZNError(), kZNStatusIOError);
    }
    EXPECT_EQ(PTCallCount("storage.resync"), 1);
    auto reader = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
    EXPECT_NE(serviceNames(reader.get()).find(resyncFails ? "Not durable" : "Landed"),
              std::string::npos);
    EXPECT_TRUE(ZNPreferencesLock(prefs.get(), false));  // not stale
    EXPECT_TRUE(ZNPreferencesCommitChanges(prefs.get()));
    PTReset();
    EXPECT_TRUE(ZNPreferencesCommitChanges(prefs.get()));
    EXPECT_EQ(PTCallCount("storage.write"), 0);  // nothing left to write
    ZNPreferencesUnlock(prefs.get());
  }
  // Any earlier step that fails leaves the commit undone, and no sync again.
  for (long sync = 1; sync < lastSync; ++sync) {
    auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
    const std::string before = serviceNames(prefs.get());
    createService(prefs.get(), Chain::L2TP, "Undone");
    PTReset();
    PTFailNthCall("storage.sync", sync);
    EXPECT_FALSE(ZNPreferencesCommitChanges(prefs.get())) << sync;
    EXPECT_EQ(PTCallCount("storage.resync"), 0) << sync;
    EXPECT_EQ(serviceNames(Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate()).get()), before);
  }
}

// A whole install, as the library runs it: false at the first failure,
// with everything it made released.
bool install() {
  auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
  if (!prefs || !ZNPreferencesLock(prefs.get(), true)) return false;
  auto ipsec = Ref<ZNNetworkInterfaceRef>::adopt(
      ZNNetworkInterfaceCreateWithInterface(kZNNetworkInterfaceIPv4, kZNEntNetIPSec));
  if (!ipsec) return false;
  auto service = Ref<ZNNetworkServiceRef>::adopt(ZNNetworkServiceCreate(prefs.get(), ipsec.get()));
  if (!service || !ZNNetworkServiceEstablishDefaultConfiguration(service.get()) ||
      !ZNNetworkServiceAddProtocolType(service.get(), text("com.example.payload").get()) ||
      !ZNNetworkServiceSetEnabled(service.get(), false) ||
      !ZNNetworkServiceSetName(service.get(), text("Installed").get())) {
    return false;
  }
  auto sets = Ref<PVArrayRef>::adopt(ZNNetworkSetCopyAll(prefs.get()));
  if (!sets) return false;
  for (PVIndex i = 0; i < PVArrayGetCount(sets.get()); ++i) {
    auto set = at<ZNNetworkSetRef>(sets.get(), i);
    if (!ZNNetworkSetAddService(set, service.get()) ||
        !ZNNetworkSetSetSelectedVPNService(set, service.get())) {
      return false;
    }
  }
  return ZNPreferencesCommitChanges(prefs.get()) && ZNPreferencesApplyChanges(prefs.get()) &&
         ZNPreferencesUnlock(prefs.get());
}

TEST_F(PreferencesCommitFaults, EveryFailingCallOfAnInstallLeavesTheOldOrTheNewStore) {
  Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());  // the store to return to
  const std::string database = storeDir() + "/preferences.db";
  const std::string original = fileBytes(database);
  const int descriptors = openDescriptors();
  const char *operations[] = {
      "ZNPreferencesCreate",
      "ZNPreferencesLock",
      "ZNNetworkInterfaceCreateWithInterface",
      "ZNNetworkServiceCreate",
      "ZNNetworkServiceEstablishDefaultConfiguration",
      "ZNNetworkServiceAddProtocolType",
      "ZNNetworkServiceSetEnabled",
      "ZNNetworkServiceSetName",
      "ZNNetworkSetCopyAll",
      "ZNNetworkSetAddService",
      "ZNNetworkSetSetSelectedVPNService",
      "ZNPreferencesCommitChanges",
      "commit.row",
      "ZNPreferencesApplyChanges",
      "ZNPreferencesUnlock",
      // SQLite's own steps inside the commit and the apply
      "storage.write",
      "storage.sync",
      "storage.truncate",
  };
  int failures = 0;
  for (const char *operation : operations) {
    for (long nth = 1;; ++nth) {
      std::ofstream(database, std::ios::binary | std::ios::trunc) << original;
      PTReset();
      PTFailNthCall(operation, nth);
      bool installed = install();
      bool fired = PTCallCount(operation) >= nth;
      // A commit whose last sync failed has landed, and succeeds.
      bool landed = PTCallCount("storage.resync") > 0;
      PTReset();  // an unspent plan must not hit the checks below
      SCOPED_TRACE(std::string(operation) + " call " + std::to_string(nth));

      auto reader = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
      ASSERT_TRUE(reader);
      std::string names = serviceNames(reader.get());
      EXPECT_TRUE(names.empty() || names == "Installed") << names;
      EXPECT_EQ(installed, !fired || landed);
      EXPECT_EQ(fired && names.empty(), fileBytes(database) == original);
      // Nothing kept: no session (its descriptors), no temporary file.
      reader = {};
      EXPECT_EQ(openDescriptors(), descriptors);
      for (const std::string &name : directoryEntries(storeDir())) {
        EXPECT_NE(name[0], '.') << name;
      }
      if (!fired) break;
      ++failures;
    }
  }
  EXPECT_GE(failures, static_cast<int>(std::size(operations)));
}

}  // namespace
}  // namespace tw::test
