// What install checks before it touches the store, and what it reports
// about a payload it installs: "$file" kept inside the payload's folder,
// keys nothing reads, secrets nothing keeps or that would stay in clear;
// several payloads in one change, all or none.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "cli/tool_runner.hpp"

namespace tw::test {
namespace {

using PayloadChecks = CliTest;
using nlohmann::json;

// "$file" reads a regular file of at most 1 MiB inside the payload's
// folder; nothing else, however it is named.
TEST_F(PayloadChecks, FileReferencesStayInsideThePayloadsFolder) {
  std::filesystem::create_directory(workFile("payload"));
  std::filesystem::create_directory(workFile("payload/sub"));
  writeFile("payload/sub/identity.p12", fileBytes(example("client-identity.p12")));
  writeFile("outside.p12", "secret bytes outside");
  ASSERT_EQ(symlink(workFile("outside.p12").c_str(), workFile("payload/link.p12").c_str()), 0);
  ASSERT_EQ(symlink("/etc/passwd", workFile("payload/passwd").c_str()), 0);
  ASSERT_EQ(mkfifo(workFile("payload/fifo").c_str(), 0600), 0);
  writeFile("payload/big.p12", std::string((1 << 20) + 1, 'x'));
  struct Case {
    const char *file;
    const char *message;
  } cases[] = {
      {"/etc/passwd", "is not relative to the payload"},
      {"../outside.p12", "is outside the payload's folder"},
      {"link.p12", "is outside the payload's folder"},
      {"passwd", "is outside the payload's folder"},
      {"/dev/zero", "is not relative to the payload"},
      {"fifo", "is not a regular file"},
      {"big.p12", "is larger than 1 MiB"},
      {"sub", "is not a regular file"},
      {"missing.p12", "cannot read the \"$file\" \"missing.p12\""},
  };
  json payload = json::parse(fileBytes(example("ipsec-certificate.json")));
  for (const Case &bad : cases) {
    payload["_certificateData"]["$file"] = bad.file;
    writeFile("payload/p.json", payload.dump());
    ToolResult result = tool({"install", workFile("payload/p.json")});
    EXPECT_EQ(result.exitCode, 3) << bad.file << ": " << result.err;
    EXPECT_NE(result.err.find(bad.message), std::string::npos) << bad.file << ": " << result.err;
  }
  payload["_certificateData"]["$file"] = "sub/identity.p12";
  writeFile("payload/p.json", payload.dump());
  ToolResult good = tool({"install", workFile("payload/p.json")});
  EXPECT_EQ(good.exitCode, 0) << good.err;
}

// Every key nothing reads is named with its path, every secret nothing
// keeps too, and a missing server address is warned of.
TEST_F(PayloadChecks, InstallReportsUnreadKeysDroppedSecretsAndAMissingServer) {
  writeFile("odd.json", R"({
    "VPNType": "IPSec", "PayloadDisplayName": "Odd", "PayloadUUID": "odd",
    "IPSec": {"AuthenticationMethod": "Certificate", "PayloadCertificateUUID": "x",
              "XAuthPassword": "dropped-one", "SharedSecret": "dropped-two", "RemotAddress": "typo"},
    "PPP": {"AuthPassword": "dropped-three"},
    "Proxies": {"HTTPProxyPassword": "dropped-four", "HTTPProxyAuthenticated": 0,
                "HTTPSPorrt": 1},
    "EAP": {"AnyKey": 1}, "VendorConfig": {"AnyKey": 1}
  })");
  ToolResult result = tool({"--json", "install", workFile("odd.json")});
  ASSERT_EQ(result.exitCode, 0) << result.err;
  json installed = result.json()["installed"][0];
  EXPECT_EQ(installed["unusedKeys"],
            json({"IPSec.RemotAddress", "PPP", "Proxies.HTTPSPorrt", "VendorConfig"}));
  EXPECT_EQ(installed["droppedSecrets"],
            json({"IPSec.SharedSecret", "IPSec.XAuthPassword", "PPP.AuthPassword",
                  "Proxies.HTTPProxyPassword"}));
  EXPECT_EQ(installed["warnings"],
            json({"no server address (\"IPSec.RemoteAddress\"): the service cannot connect until "
                  "one is set"}));
  ToolResult text = tool({"install", workFile("odd.json")});
  EXPECT_NE(text.out.find("Payload keys not used: IPSec.RemotAddress, PPP, Proxies.HTTPSPorrt, "
                          "VendorConfig\n"),
            std::string::npos)
      << text.out;
  EXPECT_NE(text.out.find("Secrets not stored (this configuration does not use them): "
                          "IPSec.SharedSecret, IPSec.XAuthPassword, PPP.AuthPassword, "
                          "Proxies.HTTPProxyPassword\n"),
            std::string::npos)
      << text.out;
  EXPECT_NE(text.err.find("tarnwick: warning: no server address"), std::string::npos);
  json shown = tool({"--json", "show", "Odd"}).json();
  EXPECT_FALSE(shown["layers"][0]["configuration"].contains("SharedSecret"));
  EXPECT_FALSE(shown["layers"][0]["configuration"].contains("XAuthPassword"));
}

// Secrets the library would leave in the preferences in clear refuse the
// payload, each named, unless the installer says so.
TEST_F(PayloadChecks, SecretsThatWouldStayInClearRefuseThePayloadUnlessAllowed) {
  writeFile("clear.json", R"({
    "VPNType": "VPN", "VPNSubType": "com.example.vendor", "PayloadDisplayName": "Clear",
    "VPN": {"RemoteAddress": "vpn.example.com", "AuthPassword": "in-clear-1"},
    "EAP": {"AuthPassword": "in-clear-2"},
    "VendorConfig": {"Token": {"Password": "in-clear-3"}}
  })");
  ToolResult refused = tool({"install", workFile("clear.json")});
  EXPECT_EQ(refused.exitCode, 3);
  EXPECT_EQ(refused.err, "tarnwick: " + workFile("clear.json") +
                             ": the preferences would keep these secrets in clear: "
                             "EAP.AuthPassword, VPN.AuthPassword, VendorConfig.Token.Password "
                             "(--allow-clear-secrets installs them all the same)\n");
  EXPECT_FALSE(std::filesystem::exists(storeDir() + "/preferences.db"));

  ToolResult allowed = tool({"--json", "install", "--allow-clear-secrets", workFile("clear.json")});
  ASSERT_EQ(allowed.exitCode, 0) << allowed.err;
  json installed = allowed.json()["installed"][0];
  EXPECT_EQ(installed["droppedSecrets"], json::array());
  EXPECT_EQ(installed["warnings"].size(), 3u) << installed["warnings"];
  // Kept, but never shown.
  std::string shown = tool({"show", "Clear"}).out + tool({"--json", "show", "Clear"}).out;
  EXPECT_EQ(shown.find("in-clear"), std::string::npos) << shown;
}

// Several payloads install in one change: a failure in any leaves the
// store and the Coffer as they were; standard input is "-".
TEST_F(PayloadChecks, SeveralPayloadsInstallAllOrNothing) {
  ASSERT_EQ(tool({"install", example("pptp.json")}).exitCode, 0);
  std::string before = tool({"dump"}).out;
  json wrong = json::parse(fileBytes(example("ipsec-certificate.json")));
  wrong["_certificatePassphrase"] = "not the passphrase";
  writeFile("client-identity.p12", fileBytes(example("client-identity.p12")));
  writeFile("wrong.json", wrong.dump());
  ToolResult failed = tool({"install", example("l2tp.json"), example("http-proxy.json"),
                            workFile("wrong.json")});
  EXPECT_EQ(failed.exitCode, 7) << failed.err;
  EXPECT_NE(failed.err.find("could not be imported"), std::string::npos) << failed.err;
  EXPECT_EQ(tool({"dump"}).out, before);
  // The PPTP service's password was the Coffer's only item, and still is.
  ASSERT_EQ(tool({"remove", "Harbour Legacy (PPTP)"}).exitCode, 0);
  auto passwords = dict({{kVltClass, kVltClassGenericPassword}});
  EXPECT_EQ(VltItemCopyMatching(passwords.get(), nullptr), kVltErrorItemNotFound);
  auto identities = dict({{kVltClass, kVltClassIdentity}});
  EXPECT_EQ(VltItemCopyMatching(identities.get(), nullptr), kVltErrorItemNotFound);

  ToolResult piped =
      tool({"--json", "install", example("l2tp.json"), "-"}, fileBytes(example("http-proxy.json")));
  ASSERT_EQ(piped.exitCode, 0) << piped.err;
  json list = piped.json()["installed"];
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[1]["file"], "standard input");
  EXPECT_EQ(list[1]["name"], "Harbour Gateway via proxy");
  EXPECT_EQ(tool({"--json", "list"}).json().size(), 2u);
  // The last one installed is the one selected.
  EXPECT_EQ(tool({"--json", "show", "Harbour Gateway via proxy"}).json()["selected"], true);
}

TEST_F(PayloadChecks, CheckValidatesWithoutWriting) {
  writeFile("nameless.json", R"({"VPNType": "PPTP", "PPP": {"AuthNmae": "x"}})");
  ToolResult checked =
      tool({"--json", "install", "--check", example("vendor-vpn.json"), workFile("nameless.json")});
  ASSERT_EQ(checked.exitCode, 0) << checked.err;
  json list = checked.json()["checked"];
  EXPECT_EQ(list[0]["name"], "Tidewater Secure Access");
  EXPECT_EQ(list[0]["vendorType"], "com.example.tidewater.vpn");
  EXPECT_EQ(list[1]["type"], "PPTP");
  EXPECT_EQ(list[1]["unusedKeys"], json({"PPP.AuthNmae"}));
  EXPECT_EQ(list[1]["warnings"].size(), 1u);
  EXPECT_FALSE(std::filesystem::exists(storeDir() + "/preferences.db"));
  ToolResult text = tool({"install", "--check", example("pptp.json")});
  EXPECT_EQ(text.out, example("pptp.json") + ": ready to install \"Harbour Legacy (PPTP)\" (PPTP)\n");
  writeFile("bad.json", "{");
  EXPECT_EQ(tool({"install", "--check", workFile("bad.json")}).exitCode, 3);
}

}  // namespace
}  // namespace tw::test
