#include "platform/engine/network_manager.hpp"

#include <cstring>

namespace engine {
namespace {

constexpr char kSettingsPath[] = "/org/freedesktop/NetworkManager/Settings";
constexpr char kSettingsInterface[] = "org.freedesktop.NetworkManager.Settings";
constexpr char kConnectionInterface[] = "org.freedesktop.NetworkManager.Settings.Connection";

void appendValue(sd_bus_message *m, const Value &value) {
  if (auto *text = std::get_if<std::string>(&value)) {
    check(sd_bus_message_append(m, "v", "s", text->c_str()), "append");
  } else if (auto *flag = std::get_if<bool>(&value)) {
    check(sd_bus_message_append(m, "v", "b", int(*flag)), "append");
  } else if (auto *number = std::get_if<int32_t>(&value)) {
    check(sd_bus_message_append(m, "v", "i", *number), "append");
  } else if (auto *unsignedNumber = std::get_if<uint32_t>(&value)) {
    check(sd_bus_message_append(m, "v", "u", *unsignedNumber), "append");
  } else {
    check(sd_bus_message_open_container(m, 'v', "a{ss}"), "append");
    check(sd_bus_message_open_container(m, 'a', "{ss}"), "append");
    for (const auto &[key, text] : std::get<StringMap>(value)) {
      check(sd_bus_message_append(m, "{ss}", key.c_str(), text.c_str()), "append");
    }
    check(sd_bus_message_close_container(m), "append");
    check(sd_bus_message_close_container(m), "append");
  }
}

void appendSettings(sd_bus_message *m, const ConnectionSettings &connection) {
  check(sd_bus_message_open_container(m, 'a', "{sa{sv}}"), "append");
  for (const auto &[name, setting] : connection.settings) {
    check(sd_bus_message_open_container(m, 'e', "sa{sv}"), "append");
    check(sd_bus_message_append(m, "s", name.c_str()), "append");
    check(sd_bus_message_open_container(m, 'a', "{sv}"), "append");
    for (const auto &[key, value] : setting) {
      check(sd_bus_message_open_container(m, 'e', "sv"), "append");
      check(sd_bus_message_append(m, "s", key.c_str()), "append");
      appendValue(m, value);
      check(sd_bus_message_close_container(m), "append");
    }
    check(sd_bus_message_close_container(m), "append");
    check(sd_bus_message_close_container(m), "append");
  }
  check(sd_bus_message_close_container(m), "append");
}

// Reads one variant into `value`; false (the variant skipped) for a type
// Tarnwick never writes.
bool readValue(sd_bus_message *m, Value &value) {
  const char *contents = nullptr;
  check(sd_bus_message_peek_type(m, nullptr, &contents), "read");
  std::string type = contents ? contents : "";
  if (type == "s") {
    const char *text = nullptr;
    check(sd_bus_message_read(m, "v", "s", &text), "read");
    value = std::string(text ? text : "");
  } else if (type == "b") {
    int flag = 0;
    check(sd_bus_message_read(m, "v", "b", &flag), "read");
    value = flag != 0;
  } else if (type == "i") {
    int32_t number = 0;
    check(sd_bus_message_read(m, "v", "i", &number), "read");
    value = number;
  } else if (type == "u") {
    uint32_t number = 0;
    check(sd_bus_message_read(m, "v", "u", &number), "read");
    value = number;
  } else if (type == "a{ss}") {
    StringMap map;
    check(sd_bus_message_enter_container(m, 'v', "a{ss}"), "read");
    check(sd_bus_message_enter_container(m, 'a', "{ss}"), "read");
    const char *key = nullptr;
    const char *text = nullptr;
    while (check(sd_bus_message_read(m, "{ss}", &key, &text), "read") > 0) map[key] = text;
    check(sd_bus_message_exit_container(m), "read");
    check(sd_bus_message_exit_container(m), "read");
    value = std::move(map);
  } else {
    check(sd_bus_message_skip(m, "v"), "read");
    return false;
  }
  return true;
}

ConnectionSettings readSettings(sd_bus_message *m) {
  ConnectionSettings connection;
  check(sd_bus_message_enter_container(m, 'a', "{sa{sv}}"), "read");
  while (check(sd_bus_message_enter_container(m, 'e', "sa{sv}"), "read") > 0) {
    const char *name = nullptr;
    check(sd_bus_message_read(m, "s", &name), "read");
    Setting &setting = connection.settings[name];
    check(sd_bus_message_enter_container(m, 'a', "{sv}"), "read");
    while (check(sd_bus_message_enter_container(m, 'e', "sv"), "read") > 0) {
      const char *key = nullptr;
      check(sd_bus_message_read(m, "s", &key), "read");
      Value value;
      if (readValue(m, value)) setting[key] = std::move(value);
      check(sd_bus_message_exit_container(m), "read");
    }
    check(sd_bus_message_exit_container(m), "read");
    check(sd_bus_message_exit_container(m), "read");
  }
  check(sd_bus_message_exit_container(m), "read");
  return connection;
}

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
