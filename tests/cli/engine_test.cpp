// apply and status through the built binary when NetworkManager is off or
// out of reach (tests/platform/engine/sandbox/ runs them against a real one).
#include "cli/tool_runner.hpp"

namespace tw::test {
namespace {

using EngineCommands = CliTest;
using nlohmann::json;

TEST_F(EngineCommands, WithoutAnEngineStatusSaysWhyAndApplySucceeds) {
  ASSERT_TRUE(installed({"pptp.json", "ipsec-certificate.json"}));
  ASSERT_EQ(tool({"set", "Harbour Legacy (PPTP)", "AuthName", "bob"}).exitCode, 0);

  ToolResult status = tool({"--json", "status"});
  ASSERT_EQ(status.exitCode, 0) << status.err;
  json report = status.json();
  EXPECT_EQ(report["engine"], "none");
  EXPECT_EQ(report["generation"], report["appliedGeneration"]);
  EXPECT_EQ(report["store"], storeDir());
  std::map<std::string, std::string> states;
  for (const auto &service : report["services"]) states[service["name"]] = service["state"];
  EXPECT_EQ(states, (std::map<std::string, std::string>{
                        {"Harbour Legacy (PPTP)", "no-engine"},
                        {"Harbour Gateway (certificate)", "cannot-express"}}));

  ToolResult text = tool({"status"});
  EXPECT_NE(text.out.find("cannot express: IPSec with a client certificate"), std::string::npos)
      << text.out;
  ToolResult apply = tool({"apply"});
  EXPECT_EQ(apply.exitCode, 0) << apply.err;
  EXPECT_EQ(apply.out.substr(0, apply.out.find('\n')),
            "Engine none: no VPN engine; the store alone holds the change");
}

TEST_F(EngineCommands, AForcedEngineOutOfReachFailsApplyButNotTheChange) {
  ASSERT_EQ(tool({"install", example("pptp.json")}).exitCode, 0);
  const std::vector<std::string> forced = {"TARNWICK_ENGINE=networkmanager"};
  ToolResult set = toolWithoutStore(
      {"--store", storeDir(), "set", "Harbour Legacy (PPTP)", "AuthName", "bob"}, forced);
  EXPECT_EQ(set.exitCode, 0) << set.err;
  EXPECT_NE(set.out.find("Engine networkmanager: 0 added, 0 updated, 0 deleted, 0 unchanged; "
                         "NetworkManager cannot be reached"),
            std::string::npos)
      << set.out;
  EXPECT_EQ(tool({"get", "Harbour Legacy (PPTP)", "AuthName"}).out, "bob\n");

  ToolResult apply = toolWithoutStore({"--store", storeDir(), "apply"}, forced);
  EXPECT_EQ(apply.exitCode, 8);
  EXPECT_EQ(apply.err, "tarnwick: the VPN engine did not take every change\n");
  ToolResult status = toolWithoutStore({"--store", storeDir(), "--json", "status"}, forced);
  EXPECT_EQ(status.json()["services"][0]["state"], "out-of-date");
}

}  // namespace
}  // namespace tw::test
