#include <gtest/gtest.h>

#include "support/services.hpp"
#include "tarnwick/platform/testing.h"

namespace tw::test {
namespace {

using ServiceType = ServiceTest;

TEST_F(ServiceType, NamesEachVpnChainAndNothingElse) {
  struct Case {
    Chain chain;
    PVStringRef type;
  } cases[] = {
      {Chain::IPSec, kZNNetworkInterfaceTypeIPSec},
      {Chain::Vendor, kZNNetworkInterfaceTypeVPN},
      {Chain::L2TP, kZNEntNetL2TP},
      {Chain::PPTP, kZNEntNetPPTP},
      {Chain::PPPOverModem, nullptr},
      {Chain::PPPOverNothing, nullptr},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(static_cast<int>(c.chain));
    PVStringRef type = JXVPNServiceGetType(makeService(c.chain));
    EXPECT_TRUE(c.type ? PVEqual(type, c.type) : type == nullptr) << textOf(type);
  }
  EXPECT_EQ(JXVPNServiceGetType(nullptr), nullptr);
}

TEST_F(ServiceType, UnreadableChainIsNoVpn) {
  ZNNetworkServiceRef service = makeService(Chain::L2TP);
  for (const char *operation : {"ZNNetworkServiceGetInterface", "ZNNetworkInterfaceGetInterface",
                                "ZNNetworkInterfaceGetInterfaceType"}) {
    SCOPED_TRACE(operation);
    PTFailNthCall(operation, 1);
    EXPECT_EQ(JXVPNServiceGetType(service), nullptr);
  }
  EXPECT_TRUE(PVEqual(JXVPNServiceGetType(service), kZNEntNetL2TP));
}

}  // namespace
}  // namespace tw::test
