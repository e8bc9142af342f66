// Secrets enter through standard input, live only in the Coffer, and never
// appear in any output; a shared secret leaves only in its encodings.
#include "cli/tool_runner.hpp"

namespace tw::test {
namespace {

using Secrets = CliTest;
using nlohmann::json;

// Every secret the example payloads and the two payloads below carry.
const char *const kSecretTexts[] = {"tide-tables-7",   "harbour-l2tp-psk",  "harbour-ipsec-psk",
                                    "anchor-chain-42", "old-lighthouse-3",  "harbour-proxied-psk",
                                    "quay-side-19",    "crows-nest-8",      "harbour-p12",
                                    "l2tp-key-secret", "pptp-unused-secret"};

TEST_F(Secrets, NoOutputOfAnyCommandHoldsASecret) {
  // Secrets in the places the library itself leaves in the preferences: the
  // L2TP key, and an IPSec secret a PPTP configuration does not use.
  writeFile("l2tp-key.json",
            R"({"VPNType": "L2TP", "PayloadDisplayName": "L2TP key", "PayloadUUID": "k",
                "IPSec": {"IPSecSharedSecret": "l2tp-key-secret"}})");
  writeFile("pptp-unused.json",
            R"({"VPNType": "PPTP", "PayloadDisplayName": "PPTP unused", "PayloadUUID": "u",
                "IPSec": {"SharedSecret": "pptp-unused-secret"}})");
  std::vector<std::string> payloads = {workFile("l2tp-key.json"), workFile("pptp-unused.json")};
  for (const std::string &name : examplePayloads()) payloads.push_back(example(name));

  std::vector<ToolResult> outputs;
  for (const std::vector<std::string> &mode :
       {std::vector<std::string>{"--json"}, std::vector<std::string>{}}) {
    auto run = [&](std::vector<std::string> args) {
      args.insert(args.begin(), mode.begin(), mode.end());
      outputs.push_back(tool(args));
      return outputs.back();
    };
    for (const std::string &payload : payloads) ASSERT_EQ(run({"install", payload}).exitCode, 0);
    for (const auto &service : tool({"--json", "list"}).json()) {
      run({"show", service["id"]});
      run({"export", service["id"]});
    }
    run({"list"});
    run({"on-demand"});
    run({"dump"});
  }
  for (const ToolResult &output : outputs) {
    for (const char *secret : kSecretTexts) {
      EXPECT_EQ(output.out.find(secret), std::string::npos) << secret << " in " << output.out;
      EXPECT_EQ(output.err.find(secret), std::string::npos) << secret << " in " << output.err;
    }
  }
}

TEST_F(Secrets, PasswordsAndSharedSecretsAreReadFromStandardInput) {
  ToolResult installed = tool({"--json", "install", example("pptp.json")});
  std::string id = installed.json()["id"];
  json pptp = json::parse(fileBytes(example("pptp.json")));
  pptp["PPP"].erase("AuthPassword");
  writeFile("no-password.json", pptp.dump());
  ToolResult reinstalled = tool({"install", workFile("no-password.json")});
  EXPECT_NE(reinstalled.err.find("the payload carries no account password; set it with "
                                 "`tarnwick password set \"Harbour Legacy (PPTP)\"`"),
            std::string::npos)
      << reinstalled.err;
  std::string name = "Harbour Legacy (PPTP)";
  EXPECT_EQ(tool({"--json", "show", name}).json()["secrets"]["accountPassword"], "absent");
  ASSERT_EQ(tool({"password", "set", name}, "typed-password\n").exitCode, 0);
  ASSERT_EQ(tool({"password", "set", "--proxy", name}, "proxy-password\n").exitCode, 0);
  json secrets = tool({"--json", "show", name}).json()["secrets"];
  EXPECT_EQ(secrets["accountPassword"], "stored");
  EXPECT_EQ(secrets["proxyPassword"], "stored");
}

TEST_F(Secrets, SharedSecretMovesBetweenServicesInEitherEncoding) {
  for (const char *payload : {"l2tp.json", "ipsec-shared-secret.json"}) {
    ASSERT_EQ(tool({"install", example(payload)}).exitCode, 0);
  }
  std::string from = "Harbour Office (L2TP)", to = "Harbour Gateway (IPSec)";
  auto encrypted = [&](const std::string &service) {
    return tool({"secret", "export", "--encrypted", service}).out;
  };
  ASSERT_NE(encrypted(from), encrypted(to));

  ToolResult exported = tool({"secret", "export", from});
  ASSERT_EQ(exported.exitCode, 0);
  ASSERT_EQ(tool({"secret", "import", to}, exported.out).exitCode, 0);
  EXPECT_EQ(encrypted(from), encrypted(to));

  // The encrypted form's decoder stops at the first zero byte, so only a
  // secret whose UTF-16 units have none survives it.
  ASSERT_EQ(tool({"secret", "set", from}, "中文密钥\n").exitCode, 0);
  ASSERT_EQ(tool({"secret", "import", "--encrypted", to}, encrypted(from)).exitCode, 0);
  EXPECT_EQ(encrypted(from), encrypted(to));
  EXPECT_EQ(tool({"secret", "import", to}, "not base64!\n").exitCode, 2);
}

}  // namespace
}  // namespace tw::test
