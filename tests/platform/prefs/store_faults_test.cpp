// Failures planned through the testing interface: a commit that breaks at
// any step, and every call of a whole install failing in turn.
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

TEST_F(PreferencesCommitFaults, FailedStepLeavesThePreviousDocumentAndNoTemporaryFile) {
  auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
  const std::string document = storeDir() + "/preferences.json";
  const std::string before = fileBytes(document);
  const auto entries = directoryEntries(storeDir());
  createL2TPService(prefs.get(), "Pending");

  for (const char *step : {"commit.write", "commit.fsync", "commit.rename"}) {
    PTFailNthCall(step, 1);
    EXPECT_FALSE(ZNPreferencesCommitChanges(prefs.get())) << step;
    EXPECT_EQ(ZNError(), kZNStatusInjected) << step;
    EXPECT_EQ(fileBytes(document), before) << step;
    EXPECT_EQ(directoryEntries(storeDir()), entries) << step;
    auto reader = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
    ASSERT_TRUE(reader) << step;
    EXPECT_EQ(serviceNames(reader.get()), "") << step;
  }
  // The session is unharmed: the same changes commit once nothing breaks.
  EXPECT_TRUE(ZNPreferencesCommitChanges(prefs.get()));
  EXPECT_EQ(serviceNames(Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate()).get()), "Pending");
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
  const std::string document = storeDir() + "/preferences.json";
  const std::string original = fileBytes(document);
  const int descriptors = openDescriptors();
  const char *operations[] = {"ZNPreferencesCreate",
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
                              "commit.write",
                              "commit.fsync",
                              "commit.rename",
                              "ZNPreferencesApplyChanges",
                              "ZNPreferencesUnlock"};
  int failures = 0;
  for (const char *operation : operations) {
    for (long nth = 1;; ++nth) {
      std::filesystem::remove(storeDir() + "/applied.json");
      std::ofstream(document, std::ios::binary | std::ios::trunc) << original;
      PTReset();
      PTFailNthCall(operation, nth);
      bool installed = install();
      bool fired = PTCallCount(operation) >= nth;
      PTReset();  // an unspent plan must not hit the checks below
      SCOPED_TRACE(std::string(operation) + " call " + std::to_string(nth));

      auto reader = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
      ASSERT_TRUE(reader);
      std::string names = serviceNames(reader.get());
      EXPECT_TRUE(names.empty() || names == "Installed") << names;
      EXPECT_EQ(installed, !fired);
      EXPECT_EQ(fired && names.empty(), fileBytes(document) == original);
      // Nothing kept: no session (its lock descriptor), no temporary file.
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
