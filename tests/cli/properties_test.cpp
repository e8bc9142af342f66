// get, set and select through the built binary: each key lands in the layer
// or protocol the library gives it.
#include <algorithm>

#include "cli/tool_runner.hpp"

namespace tw::test {
namespace {

using Properties = CliTest;
using nlohmann::json;

// A service that an example payload installs.
struct Example {
  const char *payload;
  const char *service;
};
const Example kL2TP = {"l2tp.json", "Harbour Office (L2TP)"};
const Example kVendor = {"vendor-vpn.json", "Tidewater Secure Access"};

struct PropertyCase {
  Example example;
  std::vector<std::string> setArguments;  // after "set SERVICE"
  const char *where;                      // JSON pointer into `show --json`
  json expected;
};

TEST_F(Properties, SetKeysLandInTheirLayerOrProtocolAndReadBack) {
  const PropertyCase cases[] = {
      {kL2TP, {"LCPEchoInterval", "60"}, "/layers/0/configuration/LCPEchoInterval", 60},
      {kL2TP, {"XAuthName", "alice"}, "/layers/0/extended/IPSec/XAuthName", "alice"},
      {kL2TP,
       {"HTTPProxy", "proxy.example.com"},
       "/protocols/Proxies/HTTPProxy",
       "proxy.example.com"},
      {kL2TP,
       {"Note", "{\"$data\": \"AAE=\"}", "--protocol", "IPv4", "--force"},
       "/protocols/IPv4/Note",
       {{"$data", "AAE="}}},
      // The VPN layer's key of the shared text, on a vendor VPN service.
      {kVendor,
       {"OnDemandMatchDomainsNever", "[]"},
       "/layers/0/configuration/OnDemandMatchDomainsNever",
       json::array()},
      {kVendor,
       {"Realm", "guests", "--type", "com.example.tidewater.vpn"},
       "/layers/1/configuration/Realm",
       "guests"},
  };
  for (const PropertyCase &property : cases) {
    const char *service = property.example.service;
    ASSERT_EQ(tool({"install", example(property.example.payload)}).exitCode, 0);
    std::vector<std::string> set = {"set", service};
    set.insert(set.end(), property.setArguments.begin(), property.setArguments.end());
    ToolResult result = tool(set);
    ASSERT_EQ(result.exitCode, 0) << property.setArguments[0] << ": " << result.err;
    json shown = tool({"--json", "show", service}).json();
    EXPECT_EQ(shown[json::json_pointer(property.where)], property.expected) << property.where;
    std::vector<std::string> get = {"--json", "get", service};
    get.insert(get.end(), property.setArguments.begin(), property.setArguments.end());
    get.erase(get.begin() + 4);  // the value
    get.erase(std::remove(get.begin(), get.end(), "--force"), get.end());
    EXPECT_EQ(json::parse(tool(get).out)["value"], property.expected) << property.where;
  }
}

TEST_F(Properties, SelectMakesTheServiceTheSelectedOne) {
  for (const char *payload : {"l2tp.json", "pptp.json"}) {
    ASSERT_EQ(tool({"install", example(payload)}).exitCode, 0);
  }
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

}  // namespace
}  // namespace tw::test
