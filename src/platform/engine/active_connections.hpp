// NetworkManager's active connections: the connections it is bringing up,
// holds up or is tearing down, read, started and stopped over D-Bus.
//
// An active connection is an object of its own, separate from the
// connection's settings: it exists from activation until NetworkManager has
// torn the connection down, then it goes. A VPN's active connection also
// carries the VPN state, the finer of the two.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/engine/bus.hpp"

namespace engine {

inline constexpr char kVpnConnectionInterface[] = "org.freedesktop.NetworkManager.VPN.Connection";

// NMVpnConnectionState.
enum VpnState : uint32_t {
  kVpnUnknown = 0,
  kVpnPrepare = 1,
  kVpnNeedAuth = 2,
  kVpnConnect = 3,
  kVpnIPConfigGet = 4,
  kVpnActivated = 5,
  kVpnFailed = 6,
  kVpnDisconnected = 7,
};

struct ActiveConnection {
  std::string path;
  uint32_t state = 0;     // NMActiveConnectionState
  uint32_t vpnState = 0;  // VpnState, kVpnUnknown for a connection that is no VPN
};

// Every active connection NetworkManager has now, by its connection's UUID.
// One settings connection can have more than one for a moment (the old one
// going down while a new one comes up).
std::unordered_map<std::string, std::vector<ActiveConnection>> readActiveConnections(Bus &bus);

// kZNNetworkConnectionDisconnected, Connecting, Connected or Disconnecting,
// from the VPN state and, where that says nothing, the active state.
int liveStatus(const ActiveConnection &active);

// The strongest status among a connection's active connections: connected
// over connecting over disconnecting over disconnected.
int liveStatus(const std::vector<ActiveConnection> &actives);

// Asks NetworkManager to activate the connection at `connectionPath` on a
// base connection of its choosing; the new active connection's path.
std::string activate(Bus &bus, const std::string &connectionPath);
void deactivate(Bus &bus, const std::string &activePath);

// NMActiveConnectionStateReason (which VPN state changes carry too), in
// words: "the VPN service failed to start".
std::string reasonText(uint32_t reason);

}  // namespace engine
