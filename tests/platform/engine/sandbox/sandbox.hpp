// The sandboxed NetworkManager the engine tests run against (nm-sandbox
// starts it, and this program inside it), seen from the test: its bus, its
// files, stopping and starting it, what it holds, and the calls made to it.
#pragma once

#include <sys/types.h>
#include <systemd/sd-bus.h>

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace tw::test {

class Sandbox {
 public:
  // Empty when the program runs outside nm-sandbox.
  static std::string directory();
  static std::string busAddress();

  // NetworkManager's keyfile directory, and every file under the sandbox's
  // NetworkManager directories (keyfiles, state, run files).
  static std::string keyfileDirectory() { return directory() + "/connections"; }
  static std::vector<std::string> filesNetworkManagerWrote();

  static void stopNetworkManager();   // and every process in the namespace
  // Stops every process in the namespace but NetworkManager: the l2tp
  // plugin stays busy for seconds with an activation stopped midway, and
  // would not answer the next one.
  static void endPluginProcesses();
  static void startNetworkManager();  // and waits until it runs
  static pid_t networkManagerPid();

  // Runs nmcli on the sandbox's bus; its standard output.
  static std::string nmcli(const std::string &arguments);

  // A base connection for a VPN to start over: veth0 up with 192.0.2.2/24,
  // its gateway the far end of the pair (192.0.2.1). Deleting every
  // connection takes it away again.
  static void bringUpBaseConnection();
  // Every process in the sandbox's network namespace: NetworkManager and
  // whatever its plugins started.
  static std::vector<pid_t> processes();

  // strongSwan as an IKEv1 responder for L2TP at 192.0.2.1, in a namespace
  // of its own behind the veth pair, with this pre-shared key (handed over
  // in a file); running once it has loaded its configuration. Stopping it
  // gives the veth pair back as it was.
  static void startIpsecServer(const std::string &preSharedKey);
  static void stopIpsecServer();
  // What strongSwan logged, complete once it is stopped.
  static std::string ipsecServerLog();
};

// The UUIDs of the connections NetworkManager has active now (in any
// state), read with busctl.
std::vector<std::string> activeConnectionUuids();
// What NetworkManager answers a client that asks for the "vpn" secrets of
// the connection with that UUID (Settings.Connection.GetSecrets), read
// with busctl as {setting: {key: value}}; it asks the secret agents.
nlohmann::json secretsNetworkManagerGives(const std::string &uuid);
// The unique bus name of the process `pid` on the sandbox's bus, "" when
// it has none.
std::string busNameOfProcess(pid_t pid);

// What NetworkManager holds: each connection's settings by UUID, read with
// busctl (not with the code under test), as {setting: {key: value}}.
struct HeldConnection {
  std::string path;
  nlohmann::json settings;
  std::string id() const { return settings["connection"]["id"]; }
  nlohmann::json data() const;  // vpn.data, {} when none
};
std::map<std::string, HeldConnection> heldConnections();
// Adds a pptp connection over D-Bus (nmcli cannot set user data), with a
// random UUID and `userData`.
void addConnection(const std::string &name, const std::map<std::string, std::string> &userData);
// Deletes every connection NetworkManager holds.
void deleteEveryConnection();

// Watches the bus for method calls to NetworkManager, as a bus monitor.
class CallMonitor {
 public:
  CallMonitor();
  ~CallMonitor();
  CallMonitor(const CallMonitor &) = delete;
  CallMonitor &operator=(const CallMonitor &) = delete;

  // "Member path" of each call seen since the monitor started, once the
  // bus has handed over everything sent before this call.
  std::vector<std::string> calls();

 private:
  sd_bus *bus_ = nullptr;
  std::vector<std::string> calls_;
};

// Calls that change a connection: AddConnection, Update, Delete, ...
std::vector<std::string> changingCalls(const std::vector<std::string> &calls);

}  // namespace tw::test
