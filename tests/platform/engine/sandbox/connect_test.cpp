// Live connections against the sandboxed NetworkManager: an L2TP service
// activated over the sandbox's base connection, its secrets from the agent,
// towards a server address where nothing answers, so that the plugin really
// starts and then fails; and such an activation stopped, by the controller,
// by the removal of its service and by the tool.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <ios>
#include <regex>
#include <set>
#include <thread>

#include "platform/engine/sandbox/fixture.hpp"
#include "tarnwick.h"
#include "tarnwick/platform/testing.h"

namespace tw::test {
namespace {

using nlohmann::json;
using std::chrono::steady_clock;

constexpr char kOffice[] = "Harbour Office (L2TP)";
// The l2tp plugin fails without a server in one of three ways, by timing
// alone: NetworkManager then says the service failed to start (8), that it
// stopped (4), or gives no reason (0).
const std::regex kPluginFailed(
    "NetworkManager ended it (because the VPN service failed to start|because the VPN service "
    "stopped|for a reason NetworkManager does not know) \\(NetworkManager's reason [048]\\)");
const char *const kOfficeSecrets[] = {"tide-tables-7", "harbour-l2tp-psk"};

class ConnectTest : public NetworkManagerTest {
 protected:
  void SetUp() override {
    NetworkManagerTest::SetUp();
    if (IsSkipped()) return;
    install("l2tp.json");
    install("pptp.json");
    // The far end of the sandbox's veth pair: reachable, and no server.
    ASSERT_EQ(nm({"set", kOffice, "CommRemoteAddress", "192.0.2.1"}).exitCode, 0);
    Sandbox::bringUpBaseConnection();
    startAgent();
    id_ = serviceID(kOffice);
    uuid_ = engine::nameUuid(id_);
  }
  void TearDown() override {
    if (!IsSkipped()) Sandbox::endPluginProcesses();
    NetworkManagerTest::TearDown();
  }

  Ref<ZNNetworkConnectionRef> controller() const {
    return Ref<ZNNetworkConnectionRef>::adopt(ZNNetworkConnectionCreateWithServiceID(
        kPVAllocatorDefault, text(id_).get(), nullptr, nullptr));
  }
  bool active() const {
    auto uuids = activeConnectionUuids();
    return std::find(uuids.begin(), uuids.end(), uuid_) != uuids.end();
  }
  // Started, and seen connecting.
  Ref<ZNNetworkConnectionRef> started() const {
    auto connection = controller();
    EXPECT_TRUE(ZNNetworkConnectionStart(connection.get()));
    EXPECT_EQ(ZNNetworkConnectionGetStatus(connection.get()), kZNNetworkConnectionConnecting);
    return connection;
  }
  // Started, and in the plugin's hands with the agent's secrets: it stays
  // connecting for seconds, until the server that is not there times out.
  Ref<ZNNetworkConnectionRef> startedWithSecrets() const {
    auto connection = started();
    waitForAgent("gave \"" + std::string(kOffice) + "\"");
    EXPECT_EQ(ZNNetworkConnectionGetStatus(connection.get()), kZNNetworkConnectionConnecting);
    return connection;
  }
  // How often NetworkManager logged a deactivation of the connection asked
  // for over D-Bus: its own failures are not logged so.
  size_t deactivationsAsked() const {
    return countIn(fileBytes(Sandbox::directory() + "/NetworkManager.log"),
                   "op=\"connection-deactivate\" uuid=\"" + uuid_ + "\"");
  }

  std::string id_;
  std::string uuid_;
};

// Each text of `files` (their contents) that holds one of the secrets. A
// process's file fails to read once the process has ended: it then holds
// nothing.
std::vector<std::string> secretsIn(const std::vector<std::string> &files) {
  std::vector<std::string> found;
  for (const auto &file : files) {
    std::string bytes;
    try {
      bytes = fileBytes(file);
    } catch (const std::ios_base::failure &) {
      continue;
    }
    for (const char *secret : kOfficeSecrets) {
      if (bytes.find(secret) != std::string::npos) found.push_back(file + ": " + secret);
    }
  }
  return found;
}

TEST_F(ConnectTest, AnActivationWithoutAServerIsConnectingThenDisconnectedWithItsReason) {
  PTCaptureStart();
  auto connection = controller();
  ASSERT_TRUE(ZNNetworkConnectionStart(connection.get())) << textOf(
      Ref<PVStringRef>::adopt(ZNNetworkConnectionCopyFailureReason(connection.get())).get());
  // Followed to its end, with every process of the namespace looked at on
  // the way: no secret in any command line or environment.
  std::vector<int> seen;
  std::vector<std::string> leaks;
  std::set<pid_t> looked;
  const auto deadline = steady_clock::now() + std::chrono::seconds(40);
  while (steady_clock::now() < deadline) {
    int status = ZNNetworkConnectionGetStatus(connection.get());
    if (seen.empty() || seen.back() != status) seen.push_back(status);
    if (status == kZNNetworkConnectionDisconnected) break;
    for (pid_t pid : Sandbox::processes()) {
      looked.insert(pid);
      std::string proc = "/proc/" + std::to_string(pid);
      for (auto &leak : secretsIn({proc + "/cmdline", proc + "/environ"})) leaks.push_back(leak);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_EQ(seen,
            (std::vector<int>{kZNNetworkConnectionConnecting, kZNNetworkConnectionDisconnected}));
  EXPECT_GE(looked.size(), 2u) << "the plugin never ran";  // NetworkManager and the plugin
  EXPECT_EQ(leaks, std::vector<std::string>{});
  EXPECT_FALSE(active());
  auto reason = Ref<PVStringRef>::adopt(ZNNetworkConnectionCopyFailureReason(connection.get()));
  ASSERT_TRUE(reason);
  EXPECT_TRUE(std::regex_search(textOf(reason.get()), kPluginFailed)) << textOf(reason.get());
  // The plugin had the secrets from the agent.
  EXPECT_NE(agentLog().find("gave \"" + std::string(kOffice) + "\""), std::string::npos)
      << agentLog();

  // Nothing this process logged, and no file NetworkManager keeps, holds a
  // secret; nor the agent's own command line or environment.
  for (long i = 0; i < PTLogMessageCount(); ++i) {
    for (const char *secret : kOfficeSecrets) {
      EXPECT_EQ(std::string(PTLogMessageText(i)).find(secret), std::string::npos);
    }
  }
  std::vector<std::string> kept{Sandbox::directory() + "/NetworkManager.log"};
  for (const auto &file : Sandbox::filesNetworkManagerWrote()) {
    // The plugins' own run directories are theirs: the l2tp plugin hands
    // strongSwan the pre-shared key in a file there, while it connects.
    if (file.find("/run/NetworkManager/") != std::string::npos ||
        file.find("/run/") == std::string::npos) {
      kept.push_back(file);
    }
  }
  std::string agent = "/proc/" + std::to_string(agentPid());
  kept.push_back(agent + "/cmdline");
  kept.push_back(agent + "/environ");
  EXPECT_EQ(secretsIn(kept), std::vector<std::string>{});
}

TEST_F(ConnectTest, ConnectFailsWithNetworkManagersReason) {
  ToolResult connect = nm({"connect", kOffice});
  EXPECT_EQ(connect.exitCode, 11) << connect.out << connect.err;
  EXPECT_TRUE(
      std::regex_search(connect.err, std::regex("^tarnwick: cannot connect \"Harbour "
                                                "Office \\(L2TP\\)\": NetworkManager ended")))
      << connect.err;
  EXPECT_TRUE(std::regex_search(connect.err, kPluginFailed)) << connect.err;
  EXPECT_EQ(connect.out, "");
  // Stderr is no terminal here: no progress line.
  EXPECT_EQ(connect.err.find('\r'), std::string::npos);

  // No connection for a service that no plugin can express.
  install("ipsec-certificate.json");
  ToolResult none = nm({"connect", "Harbour Gateway (certificate)"});
  EXPECT_EQ(none.exitCode, 11);
  EXPECT_NE(none.err.find("NetworkManager holds no connection for the service"), std::string::npos)
      << none.err;
}

TEST_F(ConnectTest, TheToolFollowsAConnectionItDidNotStartAndStopsIt) {
  auto connection = started();
  json listed = nm({"--json", "list"}).json();
  std::map<std::string, std::string> statuses;
  for (const auto &service : listed) statuses[service["name"]] = service["status"];
  EXPECT_EQ(statuses, (std::map<std::string, std::string>{
                          {kOffice, "connecting"}, {"Harbour Legacy (PPTP)", "disconnected"}}));
  EXPECT_EQ(nm({"--json", "show", kOffice}).json()["status"], "connecting");

  // A wait that runs out leaves it going, and says so.
  ToolResult waited = nm({"connect", kOffice, "--timeout", "0.3"});
  EXPECT_EQ(waited.exitCode, 12) << waited.err;
  EXPECT_NE(waited.err.find("is still connecting after 0.3 s"), std::string::npos) << waited.err;
  EXPECT_TRUE(active());

  ToolResult disconnect = nm({"--json", "disconnect", kOffice});
  EXPECT_EQ(disconnect.exitCode, 0) << disconnect.err;
  EXPECT_EQ(disconnect.json()["status"], "disconnected");
  EXPECT_FALSE(active());
  EXPECT_EQ(ZNNetworkConnectionGetStatus(connection.get()), kZNNetworkConnectionDisconnected);
  // Stopped on request is no failure.
  EXPECT_EQ(ZNNetworkConnectionCopyFailureReason(connection.get()), nullptr);
  ToolResult again = nm({"disconnect", kOffice});
  EXPECT_EQ(again.exitCode, 0);
  EXPECT_EQ(again.out, "\"Harbour Office (L2TP)\" is not connected.\n");
}

TEST_F(ConnectTest, StopDeactivatesTheConnection) {
  auto connection = startedWithSecrets();
  ASSERT_TRUE(active());
  // Another controller of the same service stops what the first started.
  EXPECT_TRUE(ZNNetworkConnectionStop(controller().get(), true));
  EXPECT_FALSE(active());
  EXPECT_EQ(deactivationsAsked(), 1u);
  EXPECT_EQ(ZNNetworkConnectionGetStatus(connection.get()), kZNNetworkConnectionDisconnected);
  // Stopping what is not active is no failure.
  EXPECT_TRUE(ZNNetworkConnectionStop(connection.get(), true));
}

TEST_F(ConnectTest, RemovingTheServiceStopsItsConnection) {
  // Once the plugin holds the secrets: before that, the removal's deletion
  // of the Coffer's secrets would fail the activation on its own.
  auto connection = startedWithSecrets();
  auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
  auto service =
      Ref<ZNNetworkServiceRef>::adopt(ZNNetworkServiceCopy(prefs.get(), text(id_).get()));
  ASSERT_TRUE(service);
  EXPECT_TRUE(JXVPNServiceRemove(service.get()));
  // Stopped by the removal itself: nothing is committed, and NetworkManager
  // still holds the connection.
  EXPECT_FALSE(active());
  EXPECT_EQ(deactivationsAsked(), 1u);
  EXPECT_TRUE(heldConnections().contains(uuid_));
}

// One connection attempt against a strongSwan server holding `key`: the
// server's log, and what `tarnwick connect` said (every attempt's account,
// when there were several). On a loaded machine the plugin's own IPsec
// daemon sometimes gives up before it has sent a packet, or the activation
// fails at once while the last attempt's plugin is still going away; an
// attempt that never reached the server is made again after a pause (six
// at most), since what is tested is what the server makes of the key.
std::pair<std::string, ToolResult> attemptWithServerKey(
    const char *key, const char *timeout,
    const std::function<ToolResult(std::vector<std::string>)> &tool) {
  std::string log;
  ToolResult connect;
  std::string accounts;
  for (int attempt = 0; attempt < 6; ++attempt) {
    if (attempt > 0) std::this_thread::sleep_for(std::chrono::seconds(2));
    Sandbox::startIpsecServer(key);
    // Moving the far end away took the base's carrier for a moment.
    Sandbox::nmcli("--wait 10 connection up base");
    connect = tool({"connect", kOffice, "--timeout", timeout});
    tool({"disconnect", kOffice});
    Sandbox::stopIpsecServer();
    Sandbox::endPluginProcesses();
    log = Sandbox::ipsecServerLog();
    accounts += "attempt " + std::to_string(attempt + 1) + ": exit " +
                std::to_string(connect.exitCode) + ", " + connect.err;
    if (log.find("is initiating a Main Mode IKE_SA") != std::string::npos) break;
  }
  connect.err = accounts;
  return {log, connect};
}

TEST_F(ConnectTest, TheCoffersPreSharedKeyAuthenticatesToARealIPsecServer) {
  // The shared secret the agent gives is the one the server holds: IKE
  // authenticates. Past IKE the kernel's ESP and PPP are needed (and an
  // L2TP server); a kernel without them stops the connection there.
  auto tool = [this](std::vector<std::string> arguments) { return nm(arguments); };
  auto [log, connect] = attemptWithServerKey("harbour-l2tp-psk", "15", tool);
  EXPECT_NE(log.find("IKE_SA l2tp[1] established between 192.0.2.1[192.0.2.1]...192.0.2.2"),
            std::string::npos)
      << log << connect.err;
  // Failed at the kernel, or still waiting for an L2TP server.
  EXPECT_TRUE(connect.exitCode == 11 || connect.exitCode == 12) << connect.err;

  // A server with another key does not let it in.
  auto [refusedLog, refused] = attemptWithServerKey("another-harbour-key", "15", tool);
  EXPECT_NE(refusedLog.find("is initiating a Main Mode IKE_SA"), std::string::npos)
      << refusedLog << refused.err;
  EXPECT_EQ(refusedLog.find("established"), std::string::npos) << refusedLog;
  EXPECT_NE(refused.exitCode, 0) << refused.err;
}

}  // namespace
}  // namespace tw::test
