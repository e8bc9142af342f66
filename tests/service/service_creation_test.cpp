// Creating services: chains, defaults, set membership, and every way
// creation can fail.
#include "service/internal.hpp"
#include "service/session_fixture.hpp"

namespace tw::test {
namespace {

using ServiceCreation = SessionTest;

struct ChainCase {
  PVStringRef type;
  const char *chain;
  long layersMade;
};

TEST_F(ServiceCreation, BuildsTheChainOfEachTypeDisabledNamedAndInEverySet) {
  addSet();
  auto vendor = text("com.example.vpn");
  const ChainCase cases[] = {
      {kZNEntNetIPSec, "IPSec/IPv4", 1},
      {kZNEntNetL2TP, "PPP/L2TP/IPv4", 2},
      {kZNEntNetPPTP, "PPP/PPTP/IPv4", 2},
      {vendor.get(), "VPN/com.example.vpn/IPv4", 2},
  };
  for (const ChainCase &c : cases) {
    PTReset();
    auto service = create(c.type, textOf(c.type).c_str());
    ASSERT_TRUE(service);
    EXPECT_EQ(chainTypes(service.get()), c.chain);
    EXPECT_EQ(PTCallCount("ZNNetworkInterfaceCreateWithInterface"), c.layersMade);
    EXPECT_FALSE(ZNNetworkServiceGetEnabled(service.get()));
    EXPECT_EQ(textOf(ZNNetworkServiceGetName(service.get())), textOf(c.type));
    for (auto type : {kZNEntNetIPv4, kZNNetworkProtocolTypeProxies, kJXVPNProtocolTypePayload}) {
      auto protocol =
          Ref<ZNNetworkProtocolRef>::adopt(ZNNetworkServiceCopyProtocol(service.get(), type));
      EXPECT_TRUE(protocol) << textOf(type);
    }
    for (PVIndex set : {0, 1}) {
      EXPECT_NE(memberIDs(set).find(idOf(service.get())), std::string::npos);
    }
  }
  EXPECT_TRUE(capturedLog().empty());
}

struct FailureCase {
  const char *operation;
  long nth;
  const char *type;  // "vendor" for a vendor chain
  const char *message;
};

// Each failing platform call: its message (or none), and no service left.
TEST_F(ServiceCreation, EveryFailureLogsItsCauseAndLeavesNoService) {
  const FailureCase cases[] = {
      {"ZNNetworkInterfaceCreateWithInterface", 1, "IPSec",
       "3: VPN: couldn't create vpn interface"},
      {"ZNNetworkInterfaceCreateWithInterface", 2, "L2TP", "3: VPN: couldn't create ppp interface"},
      {"ZNNetworkInterfaceCreateWithInterface", 2, "PPTP", "3: VPN: couldn't create ppp interface"},
      {"ZNNetworkInterfaceCreateWithInterface", 2, "vendor",
       "3: VPN: couldn't create ssl interface"},
      {"ZNNetworkServiceCreate", 1, "L2TP", "3: VPN: couldn't create service"},
      {"ZNNetworkServiceEstablishDefaultConfiguration", 1, "L2TP",
       "3: VPN: couldn't establish default configuration"},
      {"ZNNetworkServiceAddProtocolType", 1, "vendor",
       "3: VPN: couldn't establish default configuration"},
      {"ZNNetworkServiceSetEnabled", 1, "IPSec",
       "3: VPN: couldn't set the newly created service as inactive"},
      {"ZNNetworkServiceSetName", 1, "IPSec", nullptr},
      {"ZNNetworkSetCopyAll", 1, "IPSec", nullptr},
      {"ZNNetworkSetAddService", 1, "PPTP",
       "3: VPN: couldn't add service failure planned through the testing interface"},
  };
  for (const FailureCase &c : cases) {
    SCOPED_TRACE(std::string(c.operation) + " " + c.type);
    PTCaptureStart();
    PTFailNthCall(c.operation, c.nth);
    auto type = text(std::string(c.type) == "vendor" ? "com.example.vpn" : c.type);
    EXPECT_EQ(JXVPNServiceCreate(type.get(), text("Office").get(), prefs()), nullptr);
    EXPECT_EQ(capturedLog(),
              c.message ? std::vector<std::string>{c.message} : std::vector<std::string>{});
    EXPECT_EQ(serviceNames(prefs(), true), "");
  }
}

TEST_F(ServiceCreation, NullSessionFailsSilently) {
  EXPECT_EQ(JXVPNServiceCreate(kZNEntNetIPSec, text("Office").get(), nullptr), nullptr);
  EXPECT_EQ(__JXVPNServiceCreate(kZNEntNetIPSec, nullptr), nullptr);
  EXPECT_FALSE(__JXVPNServiceAddToAllSets(nullptr, nullptr));
  EXPECT_EQ(PTCallCount("ZNNetworkInterfaceCreateWithInterface"), 0);
  EXPECT_TRUE(capturedLog().empty());
}

TEST_F(ServiceCreation, SessionWithoutSetsKeepsNoService) {
  ASSERT_TRUE(ZNNetworkSetRemove(at<ZNNetworkSetRef>(sets().get(), 0)));
  EXPECT_EQ(JXVPNServiceCreate(kZNEntNetL2TP, text("Office").get(), prefs()), nullptr);
  EXPECT_EQ(serviceNames(prefs(), true), "");
  EXPECT_TRUE(capturedLog().empty());
}

TEST_F(ServiceCreation, SecondOfThreeSetsRefusingStopsAtIt) {
  addSet();
  addSet();
  auto service = Ref<ZNNetworkServiceRef>::adopt(__JXVPNServiceCreate(kZNEntNetIPSec, prefs()));
  ASSERT_TRUE(ZNNetworkServiceSetName(service.get(), text("Office").get()));
  PTReset();
  PTCaptureStart();
  PTFailNthCall("ZNNetworkSetAddService", 2);
  EXPECT_FALSE(__JXVPNServiceAddToAllSets(service.get(), prefs()));
  EXPECT_EQ(capturedLog(), std::vector<std::string>{"3: VPN: couldn't add service failure "
                                                    "planned through the testing interface"});
  EXPECT_EQ(PTCallCount("ZNNetworkSetAddService"), 2);  // the third set is not tried
  // Nothing undone here.
  EXPECT_EQ(memberIDs(0) + ";" + memberIDs(1) + ";" + memberIDs(2), idOf(service.get()) + ";;");
}

// Only the first same-named member of a set is taken out; it stays in the
// session and in the sets that are not searched again.
TEST_F(ServiceCreation, ReplacesOnlyTheFirstSameNamedServiceOfEachSet) {
  auto first = create(kZNEntNetIPSec, "first");
  auto second = create(kZNEntNetIPSec, "second");
  ASSERT_TRUE(ZNNetworkServiceSetName(first.get(), text("Office").get()));
  ASSERT_TRUE(ZNNetworkServiceSetName(second.get(), text("Office").get()));
  addSet();  // a set without either
  PTCaptureStart();
  auto replacement = create(kZNEntNetL2TP, "Office");

  EXPECT_EQ(capturedLog(), std::vector<std::string>{
                               "-: Boolean __JXVPNServiceAddToAllSets(ZNNetworkServiceRef, "
                               "ZNPreferencesRef): This service(Office) exists, replacing it"});
  EXPECT_EQ(memberIDs(0), idOf(second.get()) + "," + idOf(replacement.get()));
  EXPECT_EQ(serviceNames(prefs(), true),
            idOf(first.get()) + "," + idOf(second.get()) + "," + idOf(replacement.get()));
}

TEST_F(ServiceCreation, UnnamedServiceReplacesNothing) {
  auto existing = create(kZNEntNetIPSec, "Office");
  auto unnamed = Ref<ZNNetworkServiceRef>::adopt(__JXVPNServiceCreate(kZNEntNetIPSec, prefs()));
  ASSERT_TRUE(__JXVPNServiceAddToAllSets(unnamed.get(), prefs()));
  EXPECT_EQ(memberIDs(0), idOf(existing.get()) + "," + idOf(unnamed.get()));
  EXPECT_TRUE(capturedLog().empty());
}

}  // namespace
}  // namespace tw::test
