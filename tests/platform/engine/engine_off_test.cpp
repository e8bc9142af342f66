// The engine as an apply meets it when there is none, or none in reach:
// nothing fails, nothing is lost, and the reports say so.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "platform/engine/memory.hpp"
#include "support/services.hpp"
#include "tarnwick/platform/agent.h"
#include "tarnwick/platform/engine.h"
#include "tarnwick/platform/testing.h"

namespace tw::test {
namespace {

class EngineOff : public ServiceTest {
 protected:
  void SetUp() override {
    ServiceTest::SetUp();
    expressible_ = makeService(Chain::PPTP, "Legacy");
    setLayer(expressible_, dict({{kZNPropNetPPPCommRemoteAddress, "pptp.example.com"}}));
    inexpressible_ = makeService(Chain::IPSec, "Gateway");  // no server, no XAuth
    ASSERT_TRUE(ZNPreferencesCommitChanges(prefs_.get()));
  }
  void TearDown() override {
    setenv("TARNWICK_ENGINE", "none", 1);
    unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    ServiceTest::TearDown();
  }

  static void setLayer(ZNNetworkServiceRef service, const Ref<PVDictionaryRef> &configuration) {
    ASSERT_TRUE(ZNNetworkInterfaceSetConfiguration(ZNNetworkServiceGetInterface(service),
                                                   configuration.get()));
  }
  // Engine settings for the next apply, and a bus nobody listens on.
  void engine(const char *name) {
    if (name) {
      setenv("TARNWICK_ENGINE", name, 1);
    } else {
      unsetenv("TARNWICK_ENGINE");
    }
    setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + storeDir() + "/no-bus").c_str(), 1);
  }
  static std::string text(PVDictionaryRef dictionary, const char *key) {
    return textOf(PVDictionaryGetValue(dictionary, tw::test::text(key).get()));
  }
  static int64_t number(PVDictionaryRef dictionary, const char *key) {
    int64_t n = -1;
    PVNumberGetValue(
        static_cast<PVNumberRef>(PVDictionaryGetValue(dictionary, tw::test::text(key).get())),
        kPVNumberSInt64Type, &n);
    return n;
  }
  // "name: state" of each service of a report.
  static std::string states(PVDictionaryRef report) {
    auto services =
        static_cast<PVArrayRef>(PVDictionaryGetValue(report, tw::test::text("Services").get()));
    std::string out;
    for (PVIndex i = 0; i < PVArrayGetCount(services); ++i) {
      auto service = at<PVDictionaryRef>(services, i);
      out += (out.empty() ? "" : ", ") + text(service, "Name") + ": " + text(service, "State");
    }
    return out;
  }
  Ref<PVDictionaryRef> applyAndReport() {
    EXPECT_TRUE(ZNPreferencesApplyChanges(prefs_.get()));
    auto report = Ref<PVDictionaryRef>::adopt(ZNEngineCopyReport());
    EXPECT_TRUE(report);
    return report;
  }

  ZNNetworkServiceRef expressible_ = nullptr;
  ZNNetworkServiceRef inexpressible_ = nullptr;
};

// Off, unset with no engine in reach, or a name not understood (which is
// said): the engine is none, which sends nothing and remembers nothing.
TEST_F(EngineOff, NoneUnsetOrNotUnderstoodIsNoneAndSendsNothing) {
  const std::pair<const char *, const char *> cases[] = {
      {"none", "(null)"},
      {nullptr, "(null)"},
      {"netwrokmanager", "TARNWICK_ENGINE must be none or networkmanager, not \"netwrokmanager\""},
  };
  for (const auto &[setting, failure] : cases) {
    SCOPED_TRACE(setting ? setting : "unset");
    engine(setting);
    EXPECT_STREQ(ZNEngineGetName(), "none");
    Ref<PVDictionaryRef> report = applyAndReport();
    EXPECT_EQ(text(report.get(), "Engine"), "none");
    EXPECT_EQ(text(report.get(), "Failure"), failure);
    // Nothing to hand the services to, so none is mapped or listed.
    EXPECT_EQ(states(report.get()), "");
    EXPECT_FALSE(std::filesystem::exists(storeDir() + "/" + engine::kMemoryName));
    // The report is the caller's, and taking it starts the next afresh.
    EXPECT_EQ(PVGetRetainCount(report.get()), 1);
    EXPECT_EQ(ZNEngineCopyReport(), nullptr);
  }
}

TEST_F(EngineOff, AForcedEngineOutOfReachNeverFailsAnApply) {
  engine("networkmanager");
  EXPECT_STREQ(ZNEngineGetName(), "networkmanager");
  Ref<PVDictionaryRef> report = applyAndReport();
  EXPECT_EQ(ZNPreferencesGetAppliedGeneration(prefs_.get()), 2);  // the apply went through
  EXPECT_EQ(text(report.get(), "Engine"), "networkmanager");
  EXPECT_NE(text(report.get(), "Failure").find("NetworkManager cannot be reached"),
            std::string::npos)
      << text(report.get(), "Failure");
  EXPECT_EQ(states(report.get()), "Legacy: out-of-date, Gateway: cannot-express");

  ASSERT_TRUE(ZNEngineApply(prefs_.get()));
  report = Ref<PVDictionaryRef>::adopt(ZNEngineCopyReport());
  EXPECT_EQ(states(report.get()), "Legacy: out-of-date, Gateway: cannot-express");
}

TEST_F(EngineOff, StatusTellsTheGenerationsAndChangesNothing) {
  engine("none");
  ASSERT_TRUE(ZNPreferencesApplyChanges(prefs_.get()));
  ASSERT_TRUE(ZNNetworkServiceSetName(expressible_, tw::test::text("Renamed").get()));
  ASSERT_TRUE(ZNPreferencesCommitChanges(prefs_.get()));
  auto status = Ref<PVDictionaryRef>::adopt(ZNEngineCopyStatus(prefs_.get()));
  ASSERT_TRUE(status);
  EXPECT_EQ(number(status.get(), "Generation"), 3);
  EXPECT_EQ(number(status.get(), "AppliedGeneration"), 2);
  EXPECT_EQ(states(status.get()), "Renamed: no-engine, Gateway: cannot-express");
  EXPECT_EQ(ZNPreferencesGetAppliedGeneration(prefs_.get()), 2);

  PTFailNthCall("ZNEngineCopyStatus", 1);
  EXPECT_EQ(ZNEngineCopyStatus(prefs_.get()), nullptr);
  EXPECT_EQ(ZNError(), kZNStatusInjected);
  EXPECT_EQ(ZNEngineCopyStatus(nullptr), nullptr);
  EXPECT_FALSE(ZNEngineApply(nullptr));
}

TEST_F(EngineOff, LiveConnectionsOfAForcedEngineOutOfReachFailWithItsReason) {
  engine("networkmanager");
  PVStringRef id = ZNNetworkServiceGetServiceID(expressible_);
  auto connection = Ref<ZNNetworkConnectionRef>::adopt(
      ZNNetworkConnectionCreateWithServiceID(kPVAllocatorDefault, id, nullptr, nullptr));
  ASSERT_TRUE(connection);
  // The registry says connected; it is not the engine's word.
  ASSERT_TRUE(ZNNetworkConnectionSetStatusForServiceID(id, kZNNetworkConnectionConnected));
  EXPECT_EQ(ZNNetworkConnectionGetStatus(connection.get()), kZNNetworkConnectionDisconnected);
  EXPECT_EQ(ZNError(), kZNStatusNoEngine);
  EXPECT_FALSE(ZNNetworkConnectionStart(connection.get()));
  EXPECT_EQ(ZNError(), kZNStatusNoEngine);
  auto reason = Ref<PVStringRef>::adopt(ZNNetworkConnectionCopyFailureReason(connection.get()));
  EXPECT_NE(textOf(reason.get()).find("NetworkManager cannot be reached"), std::string::npos)
      << textOf(reason.get());
  EXPECT_FALSE(ZNNetworkConnectionStop(connection.get(), true));
  EXPECT_EQ(ZNError(), kZNStatusNoEngine);
  EXPECT_EQ(ZNNetworkConnectionCopyStatuses(array({id}).get()), nullptr);
  EXPECT_EQ(ZNError(), kZNStatusNoEngine);
}

TEST_F(EngineOff, WithTheEngineOffTheRegistryAnswersAndNothingStarts) {
  engine("none");
  PVStringRef id = ZNNetworkServiceGetServiceID(expressible_);
  ASSERT_TRUE(ZNNetworkConnectionSetStatusForServiceID(id, kZNNetworkConnectionConnected));
  auto other = tw::test::text("no-such-service");
  auto statuses =
      Ref<PVDictionaryRef>::adopt(ZNNetworkConnectionCopyStatuses(array({id, other.get()}).get()));
  ASSERT_TRUE(statuses);
  EXPECT_EQ(PVGetRetainCount(statuses.get()), 1);
  EXPECT_EQ(PVDictionaryGetCount(statuses.get()), 2);
  EXPECT_EQ(number(statuses.get(), textOf(id).c_str()), kZNNetworkConnectionConnected);
  EXPECT_EQ(number(statuses.get(), "no-such-service"), kZNNetworkConnectionDisconnected);

  auto connection = Ref<ZNNetworkConnectionRef>::adopt(
      ZNNetworkConnectionCreateWithServiceID(kPVAllocatorDefault, id, nullptr, nullptr));
  EXPECT_EQ(ZNNetworkConnectionCopyFailureReason(connection.get()), nullptr);
  EXPECT_FALSE(ZNNetworkConnectionStart(connection.get()));
  EXPECT_EQ(ZNError(), kZNStatusNoEngine);
  auto reason = Ref<PVStringRef>::adopt(ZNNetworkConnectionCopyFailureReason(connection.get()));
  EXPECT_NE(textOf(reason.get()).find("no VPN engine is on"), std::string::npos);
  EXPECT_EQ(ZNNetworkConnectionGetStatus(connection.get()), kZNNetworkConnectionConnected);
  EXPECT_TRUE(ZNNetworkConnectionStop(connection.get(), true));
  EXPECT_EQ(ZNNetworkConnectionGetStatus(connection.get()), kZNNetworkConnectionDisconnected);

  EXPECT_EQ(ZNNetworkConnectionCopyStatuses(nullptr), nullptr);
  EXPECT_EQ(ZNError(), kZNStatusInvalidArgument);
  EXPECT_EQ(ZNNetworkConnectionCopyStatuses(array({kPVBooleanTrue}).get()), nullptr);
  EXPECT_EQ(ZNError(), kZNStatusInvalidArgument);
  EXPECT_FALSE(ZNNetworkConnectionStart(nullptr));
  EXPECT_EQ(ZNNetworkConnectionCopyFailureReason(nullptr), nullptr);
}

TEST_F(EngineOff, TheSecretAgentWithoutASystemBusStopsAtOnce) {
  engine(nullptr);
  std::vector<std::string> notes;
  auto agent = Ref<ZNSecretAgentRef>::adopt(ZNSecretAgentCreate(
      [](ZNNetworkServiceRef, ZNSecretAgentCredential, void *) -> PVStringRef { return nullptr; },
      [](const char *note, void *context) {
        static_cast<std::vector<std::string> *>(context)->push_back(note);
      },
      &notes));
  ASSERT_TRUE(agent);
  EXPECT_FALSE(ZNSecretAgentRun(agent.get()));
  EXPECT_EQ(ZNError(), kZNStatusNoEngine);
  ASSERT_EQ(notes.size(), 1u);
  EXPECT_NE(notes[0].find("stopped: no system bus at"), std::string::npos) << notes[0];

  EXPECT_EQ(ZNSecretAgentCreate(nullptr, nullptr, nullptr), nullptr);
  EXPECT_EQ(ZNError(), kZNStatusInvalidArgument);
  EXPECT_FALSE(ZNSecretAgentRun(nullptr));
  EXPECT_FALSE(ZNSecretAgentRun(reinterpret_cast<ZNSecretAgentRef>(
      const_cast<void *>(static_cast<const void *>(expressible_)))));
  EXPECT_EQ(ZNError(), kZNStatusInvalidArgument);
}

}  // namespace
}  // namespace tw::test
