// How NetworkManager's states of an active connection become a live
// connection's status.
#include "platform/engine/active_connections.hpp"

#include <gtest/gtest.h>

#include "tarnwick/platform/prefs.h"

namespace engine {
namespace {

// NMActiveConnectionState.
constexpr uint32_t kActivating = 1;
constexpr uint32_t kActivated = 2;
constexpr uint32_t kDeactivating = 3;
constexpr uint32_t kDeactivated = 4;

ActiveConnection vpn(uint32_t state, uint32_t vpnState) { return {"/x", state, vpnState}; }

TEST(LiveStatus, TheVpnStateSaysHowFarTheTunnelIs) {
  const std::pair<uint32_t, int> expected[] = {
      {kVpnPrepare, kZNNetworkConnectionConnecting},
      {kVpnNeedAuth, kZNNetworkConnectionConnecting},
      {kVpnConnect, kZNNetworkConnectionConnecting},
      {kVpnIPConfigGet, kZNNetworkConnectionConnecting},
      {kVpnActivated, kZNNetworkConnectionConnected},
      {kVpnFailed, kZNNetworkConnectionDisconnected},
      {kVpnDisconnected, kZNNetworkConnectionDisconnected},
  };
  for (auto [vpnState, status] : expected) {
    // Whatever the active state says while it neither goes nor is gone.
    for (uint32_t state : {0u, kActivating, kActivated}) {
      EXPECT_EQ(liveStatus(vpn(state, vpnState)), status) << vpnState << " " << state;
    }
  }
}

TEST(LiveStatus, TheActiveStateRulesWhenItGoesAndWhenTheVpnStateSaysNothing) {
  EXPECT_EQ(liveStatus(vpn(kDeactivating, kVpnActivated)), kZNNetworkConnectionDisconnecting);
  EXPECT_EQ(liveStatus(vpn(kDeactivated, kVpnActivated)), kZNNetworkConnectionDisconnected);
  EXPECT_EQ(liveStatus(vpn(kActivating, kVpnUnknown)), kZNNetworkConnectionConnecting);
  EXPECT_EQ(liveStatus(vpn(kActivated, kVpnUnknown)), kZNNetworkConnectionConnected);
  EXPECT_EQ(liveStatus(vpn(0, kVpnUnknown)), kZNNetworkConnectionDisconnected);
  EXPECT_EQ(liveStatus(vpn(kActivating, 99)), kZNNetworkConnectionConnecting);
}

TEST(LiveStatus, OfSeveralActiveConnectionsTheStrongestCounts) {
  EXPECT_EQ(liveStatus(std::vector<ActiveConnection>{}), kZNNetworkConnectionDisconnected);
  // The old one going while a new one comes up is coming up.
  EXPECT_EQ(liveStatus({vpn(kDeactivating, kVpnActivated), vpn(kActivating, kVpnPrepare)}),
            kZNNetworkConnectionConnecting);
  EXPECT_EQ(liveStatus({vpn(kActivating, kVpnConnect), vpn(kActivated, kVpnActivated)}),
            kZNNetworkConnectionConnected);
  EXPECT_EQ(liveStatus({vpn(kDeactivated, kVpnFailed), vpn(kDeactivating, kVpnActivated)}),
            kZNNetworkConnectionDisconnecting);
}

TEST(ReasonText, SaysTheReasonAndItsNumber) {
  EXPECT_EQ(reasonText(8), "because the VPN service failed to start (NetworkManager's reason 8)");
  EXPECT_EQ(reasonText(0), "for a reason NetworkManager does not know (NetworkManager's reason 0)");
  // A reason newer than this table is still told.
  EXPECT_EQ(reasonText(40),
            "for a reason NetworkManager does not know (NetworkManager's reason 40)");
}

}  // namespace
}  // namespace engine
