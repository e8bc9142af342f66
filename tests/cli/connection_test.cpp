// connect, disconnect, agent and the live status of list and show through
// the built binary, with the VPN engine off or out of reach: the registry
// answers for live connections then (tests/platform/engine/sandbox/ runs
// them against a real NetworkManager).
#include "cli/tool_runner.hpp"

namespace tw::test {
namespace {

using ConnectionCommands = CliTest;
using nlohmann::json;

constexpr char kOffice[] = "Harbour Office (L2TP)";

TEST_F(ConnectionCommands, ListAndShowTellEachServicesLiveStatus) {
  ASSERT_TRUE(installed({"l2tp.json", "pptp.json"}));
  std::string office = tool({"--json", "show", kOffice}).json()["id"];
  // The test process shares the tool's store: its registry is the tool's.
  ASSERT_TRUE(
      ZNNetworkConnectionSetStatusForServiceID(text(office).get(), kZNNetworkConnectionConnecting));

  json listed = tool({"--json", "list"}).json();
  std::map<std::string, std::string> statuses;
  for (const auto &service : listed) statuses[service["name"]] = service["status"];
  EXPECT_EQ(statuses, (std::map<std::string, std::string>{
                          {kOffice, "connecting"}, {"Harbour Legacy (PPTP)", "disconnected"}}));
  EXPECT_NE(tool({"list"}).out.find("STATUS"), std::string::npos);
  EXPECT_EQ(tool({"--json", "show", kOffice}).json()["status"], "connecting");
  EXPECT_NE(tool({"show", kOffice}).out.find("Status       connecting\n"), std::string::npos);

  ASSERT_TRUE(
      ZNNetworkConnectionSetStatusForServiceID(text(office).get(), kZNNetworkConnectionConnected));
  EXPECT_EQ(tool({"--json", "on-demand"}).json(), json::array());
  EXPECT_EQ(tool({"--json", "show", kOffice}).json()["status"], "connected");

  // Out of reach, the status is not known.
  ToolResult unknown = toolWithoutStore({"--store", storeDir(), "--json", "show", kOffice},
                                        {"TARNWICK_ENGINE=networkmanager"});
  EXPECT_EQ(unknown.exitCode, 0) << unknown.err;
  EXPECT_EQ(unknown.json()["status"], "unknown");
}

TEST_F(ConnectionCommands, WithoutAnEngineNothingConnectsAndDisconnectMarksTheRegistry) {
  ASSERT_EQ(tool({"install", example("l2tp.json")}).exitCode, 0);
  ToolResult connect = tool({"connect", kOffice});
  EXPECT_EQ(connect.exitCode, 10);
  EXPECT_EQ(connect.err,
            "tarnwick: cannot connect \"Harbour Office (L2TP)\": no VPN engine is on "
            "(TARNWICK_ENGINE=none, or NetworkManager does not run on the system bus)\n");
  ToolResult forced = toolWithoutStore({"--store", storeDir(), "connect", kOffice},
                                       {"TARNWICK_ENGINE=networkmanager"});
  EXPECT_EQ(forced.exitCode, 10);
  EXPECT_NE(forced.err.find("NetworkManager cannot be reached"), std::string::npos) << forced.err;

  ToolResult idle = tool({"disconnect", kOffice});
  EXPECT_EQ(idle.exitCode, 0);
  EXPECT_EQ(idle.out, "\"Harbour Office (L2TP)\" is not connected.\n");
  std::string office = tool({"--json", "show", kOffice}).json()["id"];
  ASSERT_TRUE(
      ZNNetworkConnectionSetStatusForServiceID(text(office).get(), kZNNetworkConnectionConnected));
  EXPECT_EQ(tool({"connect", kOffice}).out, "\"Harbour Office (L2TP)\" is connected already.\n");
  ToolResult disconnect = tool({"--json", "disconnect", "--id", office});
  EXPECT_EQ(disconnect.exitCode, 0) << disconnect.err;
  EXPECT_EQ(disconnect.json(),
            (json{{"service", {{"id", office}, {"name", kOffice}, {"type", "L2TP"}}},
                  {"status", "disconnected"}}));
  EXPECT_EQ(tool({"--json", "show", kOffice}).json()["status"], "disconnected");

  EXPECT_EQ(tool({"connect", "No Such Service"}).exitCode, 4);
  EXPECT_EQ(tool({"connect", kOffice, "--timeout", "0"}).exitCode, 2);
  EXPECT_EQ(tool({"connect"}).exitCode, 2);
}

TEST_F(ConnectionCommands, TheAgentWithoutASystemBusStopsWithItsExitCode) {
  ToolResult agent = tool({"agent"});
  EXPECT_EQ(agent.exitCode, 10);
  EXPECT_NE(agent.err.find("tarnwick: agent: stopped: no system bus at"), std::string::npos)
      << agent.err;
  EXPECT_NE(agent.err.find("tarnwick: the secret agent cannot reach the system bus"),
            std::string::npos)
      << agent.err;
  // A store that cannot be opened fails before the bus is tried.
  ToolResult noStore = toolIn(storeDir() + "/missing", {"agent"});
  EXPECT_EQ(noStore.exitCode, 5) << noStore.err;
}

}  // namespace
}  // namespace tw::test
