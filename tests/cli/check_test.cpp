// tarnwick check: each kind of disagreement between the preferences and the
// Coffer found, reported in words and in JSON, and put right by --repair,
// leaving what is no service's alone.
#include <filesystem>
#include <fstream>

#include "cli/tool_runner.hpp"
#include "tarnwick.h"

namespace tw::test {
namespace {

using Check = CliTest;
using nlohmann::json;

constexpr int kDisagreement = 9;

long cofferCount(PVStringRef itemClass) {
  PVArrayRef items = nullptr;
  if (VltItemCopyAllMatching(dict({{kVltClass, itemClass}}).get(), &items) != kVltSuccess)
    return -1;
  auto owned = Ref<PVArrayRef>::adopt(items);
  return PVArrayGetCount(items);
}

// The kinds of the findings, in order, each marked "+" when repaired.
std::string kinds(const ToolResult &result) {
  std::string text;
  const json output = result.json();
  for (const auto &finding : output["findings"]) {
    text += (text.empty() ? "" : ",") + finding["kind"].get<std::string>() +
            (finding["repaired"].get<bool>() ? "+" : "");
  }
  return text;
}

TEST_F(Check, EveryExampleInstalledAgreesAndRemovingThemLeavesOnlyTheChainsCA) {
  for (const std::string &payload : examplePayloads()) {
    ASSERT_EQ(tool({"install", example(payload)}).exitCode, 0) << payload;
  }
  ToolResult clean = tool({"check"});
  EXPECT_EQ(clean.exitCode, 0) << clean.err;
  EXPECT_EQ(clean.out, "The preferences and the Coffer agree; no leftover files.\n");
  EXPECT_EQ(tool({"--json", "check"}).json(), json({{"clean", true}, {"findings", json::array()}}));

  for (const std::string &payload : examplePayloads()) {
    ASSERT_EQ(tool({"remove", example(payload)}).exitCode, 0) << payload;
  }
  // The identity goes with its service; the CA certificate its import
  // stored stays behind until a check puts it right.
  ASSERT_EQ(cofferCount(kVltClassCertificate), 1);
  ToolResult found = tool({"check"});
  EXPECT_EQ(found.exitCode, kDisagreement);
  EXPECT_EQ(found.out,
            "Certificate \"Example Harbour VPN CA\" in the Coffer: no service uses it\n");
  EXPECT_EQ(found.err, "tarnwick: 1 problem found; `tarnwick check --repair` puts it right\n");
  EXPECT_EQ(cofferCount(kVltClassCertificate), 1);  // a check alone changes nothing

  ToolResult repaired = tool({"--json", "check", "--repair"});
  EXPECT_EQ(repaired.exitCode, 0) << repaired.err;
  EXPECT_EQ(repaired.json(), json({{"clean", true},
                                   {"findings", json::array({{{"kind", "unusedCertificate"},
                                                              {"subject", "Example Harbour VPN CA"},
                                                              {"repaired", true}}})}}));
  EXPECT_EQ(cofferCount(kVltClassCertificate), 0);
  EXPECT_EQ(tool({"check"}).exitCode, 0);
}

// The CA of an identity a service uses is used too, however many
// certificates stand between; an identity no service names is not.
TEST_F(Check, CertificatesInTheChainOfAUsedIdentityAreUsed) {
  ASSERT_EQ(tool({"install", example("ipsec-certificate.json")}).exitCode, 0);
  EXPECT_EQ(tool({"check"}).exitCode, 0);
  std::string id = tool({"--json", "list"}).json()[0]["id"];
  // The service forgets its identity: both the identity and its CA are unused.
  ASSERT_EQ(tool({"set", id, "LocalCertificate", R"({"$data": "AAAA"})"}).exitCode, 0);
  ToolResult found = tool({"--json", "check"});
  EXPECT_EQ(found.exitCode, kDisagreement);
  EXPECT_EQ(kinds(found), "unusedIdentity,unusedCertificate,missingCertificate");
  EXPECT_EQ(found.json()["findings"][0]["subject"], "alice");
}

TEST_F(Check, SecretsOfServicesThatAreGoneAreRemovedAndOthersKept) {
  ASSERT_EQ(tool({"install", example("http-proxy.json")}).exitCode, 0);
  const std::string gone = "0B3C1D2E-4F50-4A6B-8C7D-9E0F1A2B3C4D";
  ASSERT_EQ(addCofferPassword(gone + ".SS", "lost", "bob"), kVltSuccess);
  ASSERT_EQ(addCofferPassword(gone, "lost too"), kVltSuccess);
  ASSERT_EQ(addCofferPassword("Renamed Gateway", "proxy", "bob"), kVltSuccess);  // a proxy password
  // No service's: neither named by an identifier nor shaped like a proxy password.
  auto foreign = dict({{kVltClass, kVltClassGenericPassword},
                       {kVltAttrService, "com.example.other"},
                       {kVltAttrDescription, "Another program's"},
                       {kVltValueData, bytes("theirs")}});
  ASSERT_EQ(VltItemAdd(foreign.get(), nullptr), kVltSuccess);
  const long before = cofferCount(kVltClassGenericPassword);

  ToolResult found = tool({"--json", "check"});
  EXPECT_EQ(found.exitCode, kDisagreement);
  EXPECT_EQ(kinds(found), "orphanedSecret,orphanedSecret,orphanedSecret");
  EXPECT_EQ(found.json()["findings"][0], json({{"kind", "orphanedSecret"},
                                               {"item", gone + ".SS"},
                                               {"account", "bob"},
                                               {"repaired", false}}));
  EXPECT_EQ(found.json()["findings"][2]["item"], "Renamed Gateway");

  ToolResult repaired = tool({"check", "--repair"});
  EXPECT_EQ(repaired.exitCode, 0) << repaired.err;
  EXPECT_NE(repaired.out.find("Coffer proxy password \"Renamed Gateway\": no service has that "
                              "name (repaired)"),
            std::string::npos)
      << repaired.out;
  EXPECT_EQ(cofferCount(kVltClassGenericPassword), before - 3);
  EXPECT_TRUE(hasCofferItem("com.example.other"));
  EXPECT_EQ(tool({"--json", "show", "Harbour Gateway via proxy"}).json()["secrets"],
            json({{"accountPassword", "stored"},
                  {"sharedSecret", "stored"},
                  {"proxyPassword", "stored"},
                  {"certificate", "absent"}}));
}

TEST_F(Check, ServicesPointingAtMissingItemsForgetThemAndSayWhatToDo) {
  ASSERT_TRUE(installed({"ipsec-certificate.json", "l2tp.json"}));
  ASSERT_EQ(VltItemDelete(dict({{kVltClass, kVltClassIdentity}}).get()), kVltSuccess);
  std::string l2tp = tool({"--json", "show", "Harbour Office (L2TP)"}).json()["id"];
  ASSERT_EQ(VltItemDelete(dict({{kVltAttrService, (l2tp + ".SS").c_str()}}).get()), kVltSuccess);

  ToolResult found = tool({"--json", "check"});
  EXPECT_EQ(kinds(found), "unusedCertificate,missingCertificate,missingSharedSecret");
  EXPECT_EQ(found.json()["findings"][2]["service"],
            json({{"id", l2tp}, {"name", "Harbour Office (L2TP)"}, {"type", "L2TP"}}));

  ToolResult repaired = tool({"check", "--repair"});
  EXPECT_EQ(repaired.exitCode, 0) << repaired.err;
  EXPECT_NE(repaired.out.find("\"Harbour Office (L2TP)\": its shared secret is missing from the "
                              "Coffer (repaired)\n  now set it again with `tarnwick secret set "
                              "\"Harbour Office (L2TP)\"`\n"),
            std::string::npos)
      << repaired.out;
  EXPECT_EQ(tool({"check"}).exitCode, 0);
  json certificate = tool({"--json", "show", "Harbour Gateway (certificate)"}).json();
  EXPECT_EQ(certificate["secrets"]["certificate"], "absent");
  EXPECT_EQ(tool({"--json", "get", l2tp, "SharedSecretEncryption"}).exitCode, 4);
  // Set again, the secret is where the configuration says.
  ASSERT_EQ(tool({"secret", "set", l2tp}, "new-secret\n").exitCode, 0);
  EXPECT_EQ(tool({"check"}).exitCode, 0);
}

TEST_F(Check, LeftoverFilesAreRemovedAndEverythingElseIsLeft) {
  ASSERT_EQ(tool({"install", example("pptp.json")}).exitCode, 0);
  for (const char *name : {".preferences.db.Q1w2E3", ".preferences.db.Q1w2E3-journal",
                           "networkmanager.sync.new-31337", "notes.txt"}) {
    std::ofstream(storeDir() + "/" + name) << "x";
  }
  ToolResult found = tool({"--json", "check"});
  EXPECT_EQ(kinds(found), "leftoverFile,leftoverFile,leftoverFile");
  EXPECT_EQ(found.json()["findings"][2]["file"], "networkmanager.sync.new-31337");
  EXPECT_EQ(kinds(tool({"--json", "check", "--repair"})),
            "leftoverFile+,leftoverFile+,leftoverFile+");
  EXPECT_TRUE(std::filesystem::exists(storeDir() + "/notes.txt"));
  EXPECT_FALSE(std::filesystem::exists(storeDir() + "/.preferences.db.Q1w2E3"));
  EXPECT_EQ(tool({"check"}).exitCode, 0);
}

}  // namespace
}  // namespace tw::test
