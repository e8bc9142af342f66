#include "platform/engine/network_manager.hpp"

#include "platform/engine/settings_message.hpp"

namespace engine {
namespace {

constexpr char kSettingsPath[] = "/org/freedesktop/NetworkManager/Settings";
constexpr char kSettingsInterface[] = "org.freedesktop.NetworkManager.Settings";
constexpr char kConnectionInterface[] = "org.freedesktop.NetworkManager.Settings.Connection";

}  // namespace

std::vector<std::string> NetworkManager::listConnections() {
  Message reply = bus_.call(
      bus_.newCall(kNetworkManagerName, kSettingsPath, kSettingsInterface, "ListConnections"));
  std::vector<std::string> paths;
  check(sd_bus_message_enter_container(reply.get(), 'a', "o"), "read");
  const char *path = nullptr;
  while (check(sd_bus_message_read(reply.get(), "o", &path), "read") > 0) paths.emplace_back(path);
  check(sd_bus_message_exit_container(reply.get()), "read");
  return paths;
}

std::optional<std::string> NetworkManager::connectionByUuid(const std::string &uuid) {
  Message m =
      bus_.newCall(kNetworkManagerName, kSettingsPath, kSettingsInterface, "GetConnectionByUuid");
  check(sd_bus_message_append(m.get(), "s", uuid.c_str()), "append");
  try {
    Message reply = bus_.call(m);
    const char *path = nullptr;
    check(sd_bus_message_read(reply.get(), "o", &path), "read");
    return std::string(path);
  } catch (const BusError &error) {
    if (error.name() == "org.freedesktop.NetworkManager.Settings.InvalidConnection") {
      return std::nullopt;
    }
    throw;
  }
}

ConnectionSettings NetworkManager::settings(const std::string &path) {
  Message reply = bus_.call(
      bus_.newCall(kNetworkManagerName, path.c_str(), kConnectionInterface, "GetSettings"));
  return readSettings(reply.get());
}

std::string NetworkManager::add(const ConnectionSettings &settings) {
  Message m = bus_.newCall(kNetworkManagerName, kSettingsPath, kSettingsInterface, "AddConnection");
  appendSettings(m.get(), settings);
  Message reply = bus_.call(m);
  const char *path = nullptr;
  check(sd_bus_message_read(reply.get(), "o", &path), "read");
  return path;
}

void NetworkManager::update(const std::string &path, const ConnectionSettings &settings) {
  Message m = bus_.newCall(kNetworkManagerName, path.c_str(), kConnectionInterface, "Update");
  appendSettings(m.get(), settings);
  bus_.call(m);
}

void NetworkManager::remove(const std::string &path) {
  bus_.call(bus_.newCall(kNetworkManagerName, path.c_str(), kConnectionInterface, "Delete"));
}

}  // namespace engine
