// get, set and select through the built binary: each key lands in the layer
// or protocol the library gives it.
#include <filesystem>

#include "cli/tool_runner.hpp"

namespace tw::test {
namespace {

using Properties = CliTest;
using nlohmann::json;

TEST_F(Properties, SelectMakesTheServiceTheSelectedOne) {
  ASSERT_TRUE(installed({"l2tp.json", "pptp.json"}));
  auto selected = [&] {
    std::string name;
    for (const auto &service : tool({"--json", "list"}).json()) {
      if (service["selected"]) name = service["name"];
    }
    return name;
  };
  EXPECT_EQ(selected(), "Harbour Legacy (PPTP)");
  ASSERT_EQ(tool({"select", "Harbour Office (L2TP)"}).exitCode, 0);
  EXPECT_EQ(selected(), "Harbour Office (L2TP)");
}

// Each key lands in the layer or protocol the library gives it and reads
// back. VALUE takes the kind of the key: "12345" stays a name, a number
// must be one, a flag is yes or no; what the library does not know needs
// --force.
TEST_F(Properties, SetPutsEachKeyInItsPlaceByItsKindAndRefusesUnknownKeysUnlessForced) {
  ASSERT_TRUE(installed({"l2tp.json", "vendor-vpn.json"}));
  const std::string service = "Harbour Office (L2TP)", vendor = "Tidewater Secure Access";
  struct Case {
    std::string service;
    std::vector<std::string> set;  // after "set SERVICE"
    const char *where;             // JSON pointer into `show --json`
    json expected;
  } accepted[] = {
      {service, {"LCPEchoInterval", "60"}, "/layers/0/configuration/LCPEchoInterval", 60},
      {service, {"XAuthName", "alice"}, "/layers/0/extended/IPSec/XAuthName", "alice"},
      {service, {"HTTPProxy", "proxy.example.com"}, "/protocols/Proxies/HTTPProxy",
       "proxy.example.com"},
      {service, {"Note", "{\"$data\": \"AAE=\"}", "--protocol", "IPv4", "--force"},
       "/protocols/IPv4/Note", {{"$data", "AAE="}}},
      // The VPN layer's key of the shared text, on a vendor VPN service.
      {vendor, {"OnDemandMatchDomainsNever", "[]"},
       "/layers/0/configuration/OnDemandMatchDomainsNever", json::array()},
      {vendor, {"Realm", "guests", "--type", "com.example.tidewater.vpn"},
       "/layers/1/configuration/Realm", "guests"},
      {service, {"AuthName", "12345"}, "/layers/0/configuration/AuthName", "12345"},
      {service, {"LCPEchoInterval", "-5"}, "/layers/0/configuration/LCPEchoInterval", -5},
      {service, {"CCPEnabled", "no"}, "/layers/0/configuration/CCPEnabled", 0},
      {service, {"AuthEAPPlugins", "a, b"}, "/layers/0/configuration/AuthEAPPlugins",
       json({"a", "b"})},
      {service, {"AuthEAPPlugins", "[\"c\"]"}, "/layers/0/configuration/AuthEAPPlugins",
       json({"c"})},
      {service, {"Bogus", "{\"a\": 1}", "--force"}, "/layers/0/configuration/Bogus",
       json({{"a", 1}})},
      {service, {"Anything", "x", "--type", "EAP"}, "/layers/0/extended/EAP/Anything", "x"},
  };
  for (const Case &set : accepted) {
    ToolResult result = tool(concat({"set", set.service}, set.set));
    ASSERT_EQ(result.exitCode, 0) << set.set[0] << ": " << result.err;
    json shown = tool({"--json", "show", set.service}).json();
    EXPECT_EQ(shown[json::json_pointer(set.where)], set.expected) << set.where;
    std::vector<std::string> get = concat({"--json", "get", set.service}, set.set);
    get.erase(get.begin() + 4);  // the value
    std::erase(get, "--force");
    EXPECT_EQ(tool(get).json()["value"], set.expected) << set.where;
  }
  std::string before = tool({"dump"}).out;
  const std::pair<std::vector<std::string>, std::string> refused[] = {
      {{"LCPEchoInterval", "often"}, "\"LCPEchoInterval\" takes a whole number, not \"often\""},
      {{"CCPEnabled", "maybe"}, "\"CCPEnabled\" takes yes or no"},
      {{"AuthEAPPlugins", "[1]"}, "\"AuthEAPPlugins\" takes a list of strings"},
      {{"Bogus", "1"}, "\"Bogus\" is not a key of the PPP configuration; --type or --protocol"},
      {{"Bogus", "1", "--type", "IPSec"}, "\"Bogus\" is not a key of the IPSec configuration"},
      {{"AuthName", "x", "--type", "Bogus"}, "\"Bogus\" is not a configuration type of"},
      {{"Note", "x", "--protocol", "Bogus"}, "\"Bogus\" is not a protocol of"},
      {{"AuthPassword", "x"}, "\"AuthPassword\" holds a secret"},
  };
  for (const auto &[set, message] : refused) {
    ToolResult result = tool(concat({"set", service}, set));
    EXPECT_EQ(result.exitCode, 2) << set[0];
    EXPECT_NE(result.err.find(message), std::string::npos) << result.err;
  }
  EXPECT_EQ(tool({"dump"}).out, before);
  // What set stores, export writes and install takes back.
  ASSERT_EQ(tool({"export", service, "-o", workFile("again.json")}).exitCode, 0);
  ToolResult again = tool({"install", workFile("again.json")});
  EXPECT_EQ(again.exitCode, 0) << again.err;
}

TEST_F(Properties, UnsetEnableDisableAndRenameChangeTheService) {
  ASSERT_EQ(tool({"install", example("http-proxy.json")}).exitCode, 0);
  std::string name = "Harbour Gateway via proxy";
  std::string id = tool({"--json", "show", name}).json()["id"];
  // The account password is kept by account name: it moves with the name.
  ASSERT_EQ(tool({"set", name, "XAuthName", "carol"}).exitCode, 0);
  EXPECT_EQ(tool({"--json", "show", name}).json()["secrets"]["accountPassword"], "stored");
  ASSERT_EQ(tool({"unset", name, "XAuthName"}).exitCode, 0);
  ASSERT_EQ(tool({"unset", name, "HTTPSPort"}).exitCode, 0);
  ASSERT_EQ(tool({"unset", name, "RemoteAddress"}).exitCode, 0);
  json shown = tool({"--json", "show", name}).json();
  EXPECT_FALSE(shown["layers"][0]["configuration"].contains("XAuthName"));
  EXPECT_FALSE(shown["layers"][0]["configuration"].contains("RemoteAddress"));
  EXPECT_FALSE(shown["protocols"]["Proxies"].contains("HTTPSPort"));
  EXPECT_TRUE(shown["protocols"]["Proxies"].contains("HTTPPort"));
  EXPECT_EQ(tool({"unset", name, "XAuthName"}).exitCode, 4);

  EXPECT_EQ(shown["enabled"], false);
  ASSERT_EQ(tool({"enable", name}).exitCode, 0);
  EXPECT_EQ(tool({"--json", "list"}).json()[0]["enabled"], true);
  ASSERT_EQ(tool({"disable", "--id", id}).exitCode, 0);
  EXPECT_EQ(tool({"--json", "list"}).json()[0]["enabled"], false);

  // The proxy password is kept by name: it moves with the name.
  ASSERT_EQ(shown["secrets"]["proxyPassword"], "stored");
  ToolResult renamed = tool({"rename", name, "Harbour Renamed"});
  ASSERT_EQ(renamed.exitCode, 0) << renamed.err;
  json after = tool({"--json", "show", "Harbour Renamed"}).json();
  EXPECT_EQ(after["id"], id);
  EXPECT_EQ(after["secrets"]["proxyPassword"], "stored");
  EXPECT_EQ(after["secrets"]["accountPassword"], "stored");
  EXPECT_FALSE(hasCofferItem(name));
  EXPECT_EQ(tool({"rename", "Harbour Renamed", ""}).exitCode, 2);
}

// --id, --name and --file say what an argument is; without them a service
// of that identifier or name wins over a file that happens to bear it.
TEST_F(Properties, ArgumentsSayWhatTheyNameAndAServiceWinsOverAFile) {
  ASSERT_TRUE(installed({"pptp.json", "l2tp.json"}));
  std::string pptp = "Harbour Legacy (PPTP)";
  std::string id = tool({"--json", "show", pptp}).json()["id"];
  EXPECT_EQ(tool({"show", "--id", pptp}).exitCode, 4);
  EXPECT_EQ(tool({"show", "--name", id}).exitCode, 4);
  EXPECT_EQ(tool({"show", "--id", id, "--name", pptp}).exitCode, 2);
  EXPECT_EQ(tool({"show"}).exitCode, 2);
  // A file in the working directory named like the service: the service goes.
  writeFile(pptp, fileBytes(example("l2tp.json")));
  std::string shadow = workFile(pptp);
  ToolResult byName = tool({"--json", "remove", "--name", pptp});
  ASSERT_EQ(byName.exitCode, 0) << byName.err;
  EXPECT_EQ(byName.json()["removed"][0]["name"], pptp);
  ASSERT_EQ(tool({"install", example("pptp.json")}).exitCode, 0);
  std::filesystem::current_path(workFile(""));
  ToolResult bare = tool({"--json", "remove", pptp});
  ASSERT_EQ(bare.exitCode, 0) << bare.err;
  EXPECT_EQ(bare.json()["removed"][0]["name"], pptp);
  ToolResult byFile = tool({"--json", "remove", "--file", shadow});
  ASSERT_EQ(byFile.exitCode, 0) << byFile.err;
  EXPECT_EQ(byFile.json()["removed"][0]["name"], "Harbour Office (L2TP)");
}

}  // namespace
}  // namespace tw::test
