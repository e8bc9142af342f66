// NetworkManager's settings service over D-Bus: the connections it holds,
// read, added, updated and deleted one call each.
//
// Every connection is added and updated persistently (NetworkManager
// writes it to its keyfile directory), so it survives a restart.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/engine/bus.hpp"
#include "platform/engine/settings.hpp"

namespace engine {

inline constexpr char kNetworkManagerName[] = "org.freedesktop.NetworkManager";

class NetworkManager {
 public:
  explicit NetworkManager(Bus &bus) : bus_(bus) {}

  // The unique bus name of the running NetworkManager, "" when none runs.
  // It changes when NetworkManager restarts.
  std::string instance() { return bus_.nameOwner(kNetworkManagerName); }

  // Object paths of every connection. A path names one connection for the
  // life of the NetworkManager instance: it is never given to another.
  std::vector<std::string> listConnections();
  std::optional<std::string> connectionByUuid(const std::string &uuid);
  ConnectionSettings settings(const std::string &path);

  // The new connection's path.
  std::string add(const ConnectionSettings &settings);
  // Replaces every setting of the connection.
  void update(const std::string &path, const ConnectionSettings &settings);
  void remove(const std::string &path);

 private:
  Bus &bus_;
};

}  // namespace engine
