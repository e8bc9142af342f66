// Secrets enter through standard input, live only in the Coffer, and never
// appear in any output; a shared secret leaves only in its encodings.
#include <sys/stat.h>
#include <unistd.h>

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
    auto run = [&](const std::vector<std::string> &args) {
      outputs.push_back(tool(concat(mode, args)));
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
  ASSERT_EQ(tool({"install", example("pptp.json")}).exitCode, 0);
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
  ASSERT_TRUE(installed({"l2tp.json", "ipsec-shared-secret.json"}));
  std::string from = "Harbour Office (L2TP)", to = "Harbour Gateway (IPSec)";
  auto exported = [&](const std::string &service, bool encrypted) {
    std::vector<std::string> args = {"secret", "export", service};
    if (encrypted) args.push_back("--encrypted");
    return tool(args).out;
  };
  ASSERT_NE(exported(from, false), exported(to, false));
  ASSERT_EQ(tool({"secret", "import", to}, exported(from, false)).exitCode, 0);
  EXPECT_EQ(exported(from, false), exported(to, false));

  // The encrypted form's decoder stops at the first zero byte: a secret with
  // an ASCII character cannot go that way, and is refused rather than
  // exported as text its own import would cut short.
  ToolResult ascii = tool({"secret", "export", "--encrypted", from});
  EXPECT_EQ(ascii.exitCode, 1);
  EXPECT_EQ(ascii.out, "");
  EXPECT_NE(ascii.err.find("the encrypted encoding cannot carry this shared secret"),
            std::string::npos)
      << ascii.err;
  ASSERT_EQ(tool({"secret", "set", from}, "中文密钥\n").exitCode, 0);
  ASSERT_EQ(tool({"secret", "import", "--encrypted", to}, exported(from, true)).exitCode, 0);
  EXPECT_EQ(exported(from, true), exported(to, true));
  json asJson = tool({"--json", "secret", "export", to}).json();
  EXPECT_EQ(asJson["encoding"], "exported");
  EXPECT_EQ(asJson["service"]["name"], to);
  EXPECT_EQ(asJson["base64"].get<std::string>() + "\n", exported(to, false));
  EXPECT_EQ(tool({"secret", "import", to}, "not base64!\n").exitCode, 2);
}

// A secret piped from a file written on another system ends in CR LF: the
// CR is no part of it.
TEST_F(Secrets, PipedSecretsLoseTheirLineEnding) {
  ASSERT_EQ(tool({"install", example("l2tp.json")}).exitCode, 0);
  std::string name = "Harbour Office (L2TP)";
  ASSERT_EQ(tool({"secret", "set", name}, "\xe4\xb8\xad\xe6\x96\x87\r\n").exitCode, 0);
  std::string withCR = tool({"secret", "export", "--encrypted", name}).out;
  ASSERT_EQ(tool({"secret", "set", name}, "\xe4\xb8\xad\xe6\x96\x87\n").exitCode, 0);
  EXPECT_EQ(tool({"secret", "export", "--encrypted", name}).out, withCR);
  EXPECT_NE(withCR, "");
  EXPECT_EQ(tool({"password", "set", name}, "\r\n").exitCode, 2);
}

// Storing a shared secret makes a service authenticate with it: never done
// behind the back of a certificate, PPTP or vendor service.
TEST_F(Secrets, SharedSecretIsRefusedWhereNoneIsUsedUnlessForced) {
  ASSERT_TRUE(installed({"ipsec-certificate.json", "pptp.json", "vendor-vpn.json"}));
  const std::pair<const char *, const char *> cases[] = {
      {"Harbour Gateway (certificate)", "would switch it to shared-secret authentication"},
      {"Harbour Legacy (PPTP)", "would add an IPSec configuration"},
      {"Tidewater Secure Access", "would add an IPSec configuration"}};
  for (const auto &[service, why] : cases) {
    std::string before = tool({"--json", "show", service}).out;
    for (const char *command : {"set", "import"}) {
      ToolResult refused = tool({"secret", command, service}, "AAAA\n");
      EXPECT_EQ(refused.exitCode, 2) << service;
      EXPECT_NE(refused.err.find(why), std::string::npos) << refused.err;
    }
    EXPECT_EQ(tool({"--json", "show", service}).out, before);
  }
  std::string certificate = "Harbour Gateway (certificate)";
  ASSERT_EQ(tool({"secret", "set", "--force", certificate}, "forced\n").exitCode, 0);
  json shown = tool({"--json", "show", certificate}).json();
  EXPECT_EQ(shown["secrets"]["sharedSecret"], "stored");
}

// The proxy password is kept by service name: a second service of the same
// name shares it, and installing one says so.
TEST_F(Secrets, SharedProxyPasswordIsWarnedOf) {
  ASSERT_EQ(tool({"install", example("http-proxy.json")}).exitCode, 0);
  json payload = json::parse(fileBytes(example("http-proxy.json")));
  payload["PayloadIdentifier"] = "com.example.other";
  payload["PayloadUUID"] = "other";
  writeFile("other.json", payload.dump());
  ToolResult second = tool({"--json", "install", workFile("other.json")});
  ASSERT_EQ(second.exitCode, 0) << second.err;
  json warnings = second.json()["installed"][0]["warnings"];
  ASSERT_EQ(warnings.size(), 1u) << warnings;
  EXPECT_NE(warnings[0].get<std::string>().find("the proxy password is kept by service name"),
            std::string::npos);
  ToolResult text = tool({"install", workFile("other.json")});
  EXPECT_NE(text.err.find("tarnwick: warning: the proxy password is kept by service name"),
            std::string::npos)
      << text.err;
}

// A file the tool writes with a secret is made afresh, owner-only, and a
// link at its path is replaced, never followed.
TEST_F(Secrets, ExportedFileWithTheSecretIsPrivateAndFollowsNoLink) {
  ASSERT_EQ(tool({"install", example("l2tp.json")}).exitCode, 0);
  std::string name = "Harbour Office (L2TP)";
  writeFile("existing.json", "old");
  ASSERT_EQ(chmod(workFile("existing.json").c_str(), 0644), 0);
  writeFile("victim", "untouched");
  ASSERT_EQ(symlink(workFile("victim").c_str(), workFile("link.json").c_str()), 0);
  for (const char *file : {"existing.json", "link.json"}) {
    ASSERT_EQ(tool({"export", name, "--with-secret", "-o", workFile(file)}).exitCode, 0);
    struct stat info {};
    ASSERT_EQ(lstat(workFile(file).c_str(), &info), 0);
    EXPECT_TRUE(S_ISREG(info.st_mode)) << file;
    EXPECT_EQ(info.st_mode & 0777, 0600u) << file;
    EXPECT_TRUE(json::parse(fileBytes(workFile(file)))["IPSec"].contains("ExportedSharedSecret"));
  }
  EXPECT_EQ(fileBytes(workFile("victim")), "untouched");
}

}  // namespace
}  // namespace tw::test
