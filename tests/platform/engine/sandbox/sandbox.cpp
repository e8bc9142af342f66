#include "platform/engine/sandbox/sandbox.hpp"

#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace tw::test {
namespace {

std::string environment(const char *name) {
  const char *value = std::getenv(name);
  return value ? value : "";
}

std::string run(const std::string &command) {
  std::string out;
  FILE *pipe = popen(command.c_str(), "r");
  if (!pipe) throw std::runtime_error("cannot run " + command);
  char buffer[4096];
  for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) out.append(buffer, n);
  if (pclose(pipe) != 0) throw std::runtime_error("failed: " + command + "\n" + out);
  return out;
}

void script(const char *action) {
  run(environment("NM_SANDBOX_SCRIPT") + " " + action + " " + Sandbox::directory() + " 2>&1");
}

nlohmann::json busctl(const std::string &path, const std::string &interface,
                      const std::string &member, const std::string &arguments = "") {
  return nlohmann::json::parse(
      run("busctl --system --json=short call "
          "org.freedesktop.NetworkManager " +
          path + " " + interface + " " + member + " " + arguments))["data"][0];
}

nlohmann::json property(const std::string &path, const std::string &interface,
                        const std::string &name) {
  return nlohmann::json::parse(
      run("busctl --system --json=short get-property org.freedesktop.NetworkManager " + path + " " +
          interface + " " + name))["data"];
}

// {setting: {key: {"type": ..., "data": value}}} as {setting: {key: value}}.
nlohmann::json untyped(const nlohmann::json &typed) {
  nlohmann::json plain = nlohmann::json::object();
  for (const auto &[setting, keys] : typed.items()) {
    plain[setting] = nlohmann::json::object();
    for (const auto &[key, value] : keys.items()) plain[setting][key] = value["data"];
  }
  return plain;
}

}  // namespace

std::string Sandbox::directory() { return environment("TARNWICK_NM_SANDBOX"); }

std::string Sandbox::busAddress() { return environment("DBUS_SYSTEM_BUS_ADDRESS"); }

std::vector<std::string> Sandbox::filesNetworkManagerWrote() {
  std::vector<std::string> files{directory() + "/NetworkManager.log"};
  for (const char *tree : {"connections", "lib", "run", "state"}) {
    for (const auto &entry :
         std::filesystem::recursive_directory_iterator(directory() + "/" + tree)) {
      if (entry.is_regular_file()) files.push_back(entry.path());
    }
  }
  return files;
}

void Sandbox::stopNetworkManager() { script("stop-nm"); }

void Sandbox::startNetworkManager() { script("start-nm"); }

void Sandbox::endPluginProcesses() { script("end-helpers"); }

pid_t Sandbox::networkManagerPid() {
  pid_t pid = 0;
  std::ifstream(directory() + "/nm.pid") >> pid;
  return pid;
}

std::string Sandbox::nmcli(const std::string &arguments) { return run("nmcli " + arguments); }

void Sandbox::bringUpBaseConnection() {
  nmcli(
      "connection add type ethernet ifname veth0 con-name base ipv4.method manual "
      "ipv4.addresses 192.0.2.2/24 ipv4.gateway 192.0.2.1 ipv6.method disabled");
  nmcli("--wait 10 connection up base");
}

std::vector<pid_t> Sandbox::processes() {
  std::string name;
  std::ifstream(directory() + "/netns") >> name;
  std::vector<pid_t> pids;
  std::istringstream listed(run("ip netns pids " + name));
  for (pid_t pid; listed >> pid;) pids.push_back(pid);
  return pids;
}

void Sandbox::startIpsecServer(const std::string &preSharedKey) {
  std::filesystem::create_directories(directory() + "/server");
  std::filesystem::remove(directory() + "/server/log");
  std::ofstream(directory() + "/server/ipsec.secrets")
      << "192.0.2.1 %any : PSK \"" << preSharedKey << "\"\n";
  script("start-ipsec-server");
}

void Sandbox::stopIpsecServer() { script("stop-ipsec-server"); }

std::string Sandbox::ipsecServerLog() {
  std::ifstream log(directory() + "/server/log");
  return std::string(std::istreambuf_iterator<char>(log), {});
}

std::vector<std::string> activeConnectionUuids() {
  std::vector<std::string> uuids;
  for (const std::string path : property("/org/freedesktop/NetworkManager",
                                         "org.freedesktop.NetworkManager", "ActiveConnections")) {
    try {
      uuids.push_back(property(path, "org.freedesktop.NetworkManager.Connection.Active", "Uuid"));
    } catch (const std::runtime_error &) {
      // gone since it was listed
    }
  }
  return uuids;
}

nlohmann::json secretsNetworkManagerGives(const std::string &uuid) {
  std::string path =
      busctl("/org/freedesktop/NetworkManager/Settings", "org.freedesktop.NetworkManager.Settings",
             "GetConnectionByUuid", "s " + uuid);
  return untyped(
      busctl(path, "org.freedesktop.NetworkManager.Settings.Connection", "GetSecrets", "s vpn"));
}

std::string busNameOfProcess(pid_t pid) {
  nlohmann::json names = nlohmann::json::parse(
      run("busctl --system --json=short call org.freedesktop.DBus /org/freedesktop/DBus "
          "org.freedesktop.DBus ListNames"))["data"][0];
  for (const std::string name : names) {
    if (name.rfind(':', 0) != 0) continue;
    try {
      nlohmann::json owner = nlohmann::json::parse(
          run("busctl --system --json=short call org.freedesktop.DBus /org/freedesktop/DBus "
              "org.freedesktop.DBus GetConnectionUnixProcessID s " +
              name + " 2>/dev/null"));
      if (owner["data"][0] == pid) return name;
    } catch (const std::runtime_error &) {
      // left the bus since it was listed
    }
  }
  return "";
}

nlohmann::json HeldConnection::data() const {
  if (!settings.contains("vpn") || !settings["vpn"].contains("data"))
    return nlohmann::json::object();
  return settings["vpn"]["data"];
}

std::map<std::string, HeldConnection> heldConnections() {
  std::map<std::string, HeldConnection> held;
  for (const std::string path :
       busctl("/org/freedesktop/NetworkManager/Settings", "org.freedesktop.NetworkManager.Settings",
              "ListConnections")) {
    HeldConnection connection{
        path,
        untyped(busctl(path, "org.freedesktop.NetworkManager.Settings.Connection", "GetSettings"))};
    held[connection.settings["connection"]["uuid"]] = connection;
  }
  return held;
}

void addConnection(const std::string &name, const std::map<std::string, std::string> &userData) {
  std::string user;
  for (const auto &[key, value] : userData) user += " '" + key + "' '" + value + "'";
  run("busctl --system call org.freedesktop.NetworkManager "
      "/org/freedesktop/NetworkManager/Settings "
      "org.freedesktop.NetworkManager.Settings AddConnection 'a{sa{sv}}' 4 "
      "connection 3 id s '" +
      name +
      "' type s vpn uuid s $(cat /proc/sys/kernel/random/uuid) "
      "vpn 2 service-type s org.freedesktop.NetworkManager.pptp data 'a{ss}' 1 gateway x "
      "ipv4 1 method s auto "
      "user 1 data 'a{ss}' " +
      std::to_string(userData.size()) + user);
}

void deleteEveryConnection() {
  for (const auto &[uuid, connection] : heldConnections()) {
    run("busctl --system call org.freedesktop.NetworkManager " + connection.path +
        " org.freedesktop.NetworkManager.Settings.Connection Delete");
  }
}

CallMonitor::CallMonitor() {
  sd_bus_message *reply = nullptr;
  if (sd_bus_new(&bus_) < 0 || sd_bus_set_address(bus_, Sandbox::busAddress().c_str()) < 0 ||
      sd_bus_set_monitor(bus_, 1) < 0 || sd_bus_set_bus_client(bus_, 1) < 0 ||
      sd_bus_start(bus_) < 0 ||
      sd_bus_call_method(bus_, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                         "org.freedesktop.DBus.Monitoring", "BecomeMonitor", nullptr, &reply, "asu",
                         1, "type='method_call',destination='org.freedesktop.NetworkManager'",
                         0u) < 0) {
    throw std::runtime_error("cannot monitor the sandbox's bus");
  }
  sd_bus_message_unref(reply);
}

CallMonitor::~CallMonitor() { sd_bus_close_unref(bus_); }

std::vector<std::string> CallMonitor::calls() {
  // A call of our own, after everything before it: once the monitor sees
  // it, it has seen them all.
  sd_bus *marker = nullptr;
  if (sd_bus_new(&marker) < 0 || sd_bus_set_address(marker, Sandbox::busAddress().c_str()) < 0 ||
      sd_bus_set_bus_client(marker, 1) < 0 || sd_bus_start(marker) < 0 ||
      sd_bus_call_method(marker, "org.freedesktop.NetworkManager",
                         "/org/freedesktop/NetworkManager", "org.freedesktop.DBus.Peer", "Ping",
                         nullptr, nullptr, "") < 0) {
    sd_bus_close_unref(marker);
    throw std::runtime_error("cannot reach NetworkManager");
  }
  sd_bus_close_unref(marker);
  for (int idle = 0; idle < 100;) {
    sd_bus_message *message = nullptr;
    int r = sd_bus_process(bus_, &message);
    if (r < 0) throw std::runtime_error("the monitor lost the bus");
    if (!message) {
      if (r == 0) sd_bus_wait(bus_, 50'000), ++idle;
      continue;
    }
    std::string member =
        sd_bus_message_get_member(message) ? sd_bus_message_get_member(message) : "";
    std::string path = sd_bus_message_get_path(message) ? sd_bus_message_get_path(message) : "";
    sd_bus_message_unref(message);
    if (member == "Ping") return calls_;
    calls_.push_back(member + " " + path);
  }
  throw std::runtime_error("the monitor never saw its marker");
}

std::vector<std::string> changingCalls(const std::vector<std::string> &calls) {
  std::vector<std::string> changing;
  for (const auto &call : calls) {
    for (const char *member : {"AddConnection", "AddConnection2", "AddConnectionUnsaved", "Update",
                               "Update2", "UpdateUnsaved", "Delete", "Save", "ClearSecrets"}) {
      if (call.rfind(std::string(member) + " ", 0) == 0) changing.push_back(call);
    }
  }
  return changing;
}

}  // namespace tw::test
