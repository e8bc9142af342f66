#include "platform/engine/active_connections.hpp"

#include <cstring>

#include "platform/engine/network_manager.hpp"
#include "tarnwick/platform/prefs.h"

namespace engine {
namespace {

constexpr char kManagerPath[] = "/org/freedesktop/NetworkManager";
constexpr char kActiveInterface[] = "org.freedesktop.NetworkManager.Connection.Active";

// NMActiveConnectionState.
enum ActiveState : uint32_t {
  kActiveUnknown = 0,
  kActiveActivating = 1,
  kActiveActivated = 2,
  kActiveDeactivating = 3,
  kActiveDeactivated = 4,
};

std::vector<std::string> activePaths(Bus &bus) {
  Message reply = bus.property(kNetworkManagerName, kManagerPath, kNetworkManagerName,
                               "ActiveConnections", "ao");
  std::vector<std::string> paths;
  check(sd_bus_message_enter_container(reply.get(), 'a', "o"), "ActiveConnections");
  const char *path = nullptr;
  while (check(sd_bus_message_read(reply.get(), "o", &path), "ActiveConnections") > 0) {
    paths.emplace_back(path);
  }
  return paths;
}

struct ActiveProperties {
  std::string uuid;
  uint32_t state = kActiveUnknown;
  bool vpn = false;
};

ActiveProperties readActive(Bus &bus, const std::string &path) {
  Message m =
      bus.newCall(kNetworkManagerName, path.c_str(), "org.freedesktop.DBus.Properties", "GetAll");
  check(sd_bus_message_append(m.get(), "s", kActiveInterface), "GetAll");
  Message reply = bus.call(m);
  sd_bus_message *r = reply.get();
  ActiveProperties properties;
  check(sd_bus_message_enter_container(r, 'a', "{sv}"), "GetAll");
  while (check(sd_bus_message_enter_container(r, 'e', "sv"), "GetAll") > 0) {
    const char *name = nullptr;
    check(sd_bus_message_read(r, "s", &name), "GetAll");
    if (std::strcmp(name, "Uuid") == 0) {
      const char *uuid = nullptr;
      check(sd_bus_message_read(r, "v", "s", &uuid), "Uuid");
      properties.uuid = uuid ? uuid : "";
    } else if (std::strcmp(name, "State") == 0) {
      check(sd_bus_message_read(r, "v", "u", &properties.state), "State");
    } else if (std::strcmp(name, "Vpn") == 0) {
      int vpn = 0;
      check(sd_bus_message_read(r, "v", "b", &vpn), "Vpn");
      properties.vpn = vpn != 0;
    } else {
      check(sd_bus_message_skip(r, "v"), "GetAll");
    }
    check(sd_bus_message_exit_container(r), "GetAll");
  }
  return properties;
}

}  // namespace

std::unordered_map<std::string, std::vector<ActiveConnection>> readActiveConnections(Bus &bus) {
  std::unordered_map<std::string, std::vector<ActiveConnection>> byUuid;
  for (const std::string &path : activePaths(bus)) {
    try {
      ActiveProperties properties = readActive(bus, path);
      ActiveConnection active{path, properties.state, kVpnUnknown};
      if (properties.vpn) {
        Message reply = bus.property(kNetworkManagerName, path.c_str(), kVpnConnectionInterface,
                                     "VpnState", "u");
        check(sd_bus_message_read(reply.get(), "u", &active.vpnState), "VpnState");
      }
      byUuid[properties.uuid].push_back(std::move(active));
    } catch (const BusError &error) {
      if (error.transport() || !error.objectGone()) throw;
    }
  }
  return byUuid;
}

// The VPN state says how far the tunnel is:
//   PREPARE, NEED_AUTH, CONNECT, IP_CONFIG_GET  connecting (1)
//   ACTIVATED                                   connected (2)
//   FAILED, DISCONNECTED                        disconnected (0)
// The active state comes first where it says the connection is going
// (DEACTIVATING: disconnecting, 3; DEACTIVATED: disconnected), and answers
// alone while the VPN state is still UNKNOWN (ACTIVATING: connecting,
// ACTIVATED: connected, anything else disconnected).
int liveStatus(const ActiveConnection &active) {
  if (active.state == kActiveDeactivating) return kZNNetworkConnectionDisconnecting;
  if (active.state == kActiveDeactivated) return kZNNetworkConnectionDisconnected;
  switch (active.vpnState) {
    case kVpnPrepare:
    case kVpnNeedAuth:
    case kVpnConnect:
    case kVpnIPConfigGet:
      return kZNNetworkConnectionConnecting;
    case kVpnActivated:
      return kZNNetworkConnectionConnected;
    case kVpnFailed:
    case kVpnDisconnected:
      return kZNNetworkConnectionDisconnected;
    default:
      break;
  }
  if (active.state == kActiveActivating) return kZNNetworkConnectionConnecting;
  if (active.state == kActiveActivated) return kZNNetworkConnectionConnected;
  return kZNNetworkConnectionDisconnected;
}

int liveStatus(const std::vector<ActiveConnection> &actives) {
  auto rank = [](int status) {
    switch (status) {
      case kZNNetworkConnectionConnected:
        return 3;
      case kZNNetworkConnectionConnecting:
        return 2;
      case kZNNetworkConnectionDisconnecting:
        return 1;
      default:
        return 0;
    }
  };
  int strongest = kZNNetworkConnectionDisconnected;
  for (const ActiveConnection &active : actives) {
    int status = liveStatus(active);
    if (rank(status) > rank(strongest)) strongest = status;
  }
  return strongest;
}

std::string activate(Bus &bus, const std::string &connectionPath) {
  Message m =
      bus.newCall(kNetworkManagerName, kManagerPath, kNetworkManagerName, "ActivateConnection");
  // No device and no base connection: NetworkManager puts a VPN on the
  // connection that holds the default route.
  check(sd_bus_message_append(m.get(), "ooo", connectionPath.c_str(), "/", "/"),
        "ActivateConnection");
  Message reply = bus.call(m);
  const char *path = nullptr;
  check(sd_bus_message_read(reply.get(), "o", &path), "ActivateConnection");
  return path;
}

void deactivate(Bus &bus, const std::string &activePath) {
  Message m =
      bus.newCall(kNetworkManagerName, kManagerPath, kNetworkManagerName, "DeactivateConnection");
  check(sd_bus_message_append(m.get(), "o", activePath.c_str()), "DeactivateConnection");
  bus.call(m);
}

std::string reasonText(uint32_t reason) {
  static const char *const texts[] = {
      "for a reason NetworkManager does not know",                   // UNKNOWN
      "for no reason given",                                         // NONE
      "because it was disconnected on request",                      // USER_DISCONNECTED
      "because its base device was disconnected",                    // DEVICE_DISCONNECTED
      "because the VPN service stopped",                             // SERVICE_STOPPED
      "because the VPN service gave an IP configuration not valid",  // IP_CONFIG_INVALID
      "because the attempt to connect to the VPN server timed out",  // CONNECT_TIMEOUT
      "because the VPN service took too long to start",              // SERVICE_START_TIMEOUT
      "because the VPN service failed to start",                     // SERVICE_START_FAILED
      "because no secrets were given for it",                        // NO_SECRETS
      "because the VPN server refused the login",                    // LOGIN_FAILED
      "because its connection was deleted",                          // CONNECTION_REMOVED
      "because a connection it depends on failed",                   // DEPENDENCY_FAILED
      "because its device could not be made",                        // DEVICE_REALIZE_FAILED
      "because its device went away",                                // DEVICE_REMOVED
  };
  constexpr uint32_t count = sizeof texts / sizeof texts[0];
  std::string text = reason < count ? texts[reason] : "for a reason NetworkManager does not know";
  return text + " (NetworkManager's reason " + std::to_string(reason) + ")";
}

}  // namespace engine
