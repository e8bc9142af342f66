// Applying a generation again: nothing is written, and the engine's report
// of the change is what one apply would have left.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "support/services.hpp"
#include "tarnwick/platform/engine.h"

namespace tw::test {
namespace {

class RepeatedApply : public ServiceTest {
 protected:
  void SetUp() override {
    ServiceTest::SetUp();
    makeService(Chain::PPTP, "Legacy");
    ASSERT_TRUE(ZNPreferencesCommitChanges(prefs_.get()));
  }
  void TearDown() override {
    setenv("TARNWICK_ENGINE", "none", 1);
    unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    ServiceTest::TearDown();
  }
  Ref<PVDictionaryRef> report() { return Ref<PVDictionaryRef>::adopt(ZNEngineCopyReport()); }
};

TEST_F(RepeatedApply, ASecondApplyLeavesTheReportOfTheFirst) {
  ASSERT_TRUE(ZNPreferencesApplyChanges(prefs_.get()));
  Ref<PVDictionaryRef> once = report();
  ASSERT_TRUE(once);

  // Once the report is taken, the next apply reports afresh.
  ASSERT_TRUE(ZNPreferencesApplyChanges(prefs_.get()));
  Ref<PVDictionaryRef> afresh = report();
  ASSERT_TRUE(afresh);
  EXPECT_TRUE(PVEqual(afresh.get(), once.get()));

  // Twice before it is taken: what one apply leaves.
  ASSERT_TRUE(ZNPreferencesApplyChanges(prefs_.get()));
  ASSERT_TRUE(ZNPreferencesApplyChanges(prefs_.get()));
  Ref<PVDictionaryRef> twice = report();
  ASSERT_TRUE(twice);
  EXPECT_TRUE(PVEqual(twice.get(), once.get()));
  EXPECT_EQ(ZNEngineCopyReport(), nullptr);
  EXPECT_EQ(ZNPreferencesGetAppliedGeneration(prefs_.get()), 2);
}

// A session on another store applies in between, recording its own
// report: this session's next apply syncs again rather than leave that
// report as its own. The engine is forced but out of reach, so that each
// report lists its store's services.
TEST_F(RepeatedApply, AnotherStoresReportInBetweenIsNotTakenForThisOne) {
  setenv("TARNWICK_ENGINE", "networkmanager", 1);
  setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + storeDir() + "/no-bus").c_str(), 1);
  ASSERT_TRUE(ZNPreferencesApplyChanges(prefs_.get()));
  std::string otherStore = temporaryDirectory("other-store");
  auto other = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreateWithStore(otherStore.c_str()));
  ASSERT_TRUE(other);
  ASSERT_TRUE(createService(other.get(), Chain::L2TP, "Other"));
  ASSERT_TRUE(ZNPreferencesCommitChanges(other.get()));
  ASSERT_TRUE(ZNPreferencesApplyChanges(other.get()));

  ASSERT_TRUE(ZNPreferencesApplyChanges(prefs_.get()));
  Ref<PVDictionaryRef> merged = report();
  ASSERT_TRUE(merged);
  auto services =
      static_cast<PVArrayRef>(PVDictionaryGetValue(merged.get(), text("Services").get()));
  ASSERT_EQ(PVArrayGetCount(services), 1);
  EXPECT_EQ(textOf(PVDictionaryGetValue(at<PVDictionaryRef>(services, 0), text("Name").get())),
            "Legacy");
  other = {};
  std::filesystem::remove_all(otherStore);
}

}  // namespace
}  // namespace tw::test
