// The whole life of configurations through the built binary: every example
// installed, listed, shown, exported and removed; a configuration moved to
// a second store; concurrent installs; the default store made on first use.
#include <sys/stat.h>

#include <filesystem>
#include <set>

#include "cli/tool_runner.hpp"
#include "tarnwick.h"

namespace tw::test {
namespace {

using Lifecycle = CliTest;
using nlohmann::json;

// True when the Coffer of the test's store holds any item of the class.
bool cofferHoldsAny(PVStringRef itemClass) {
  auto query = dict({{kVltClass, itemClass}});
  return VltItemCopyMatching(query.get(), nullptr) == kVltSuccess;
}

std::set<std::string> names(const json &services) {
  std::set<std::string> result;
  for (const auto &service : services) result.insert(service["name"].get<std::string>());
  return result;
}

TEST_F(Lifecycle, EveryExampleInstallsShowsExportsAndLeavesNothingWhenRemoved) {
  std::set<std::string> installed;
  for (const std::string &payload : examplePayloads()) {
    ToolResult result = tool({"--json", "install", example(payload)});
    ASSERT_EQ(result.exitCode, 0) << payload << ": " << result.err;
    json entry = result.json()["installed"][0];
    EXPECT_EQ(entry["unusedKeys"], json::array()) << payload;
    EXPECT_EQ(entry["droppedSecrets"], json::array()) << payload;
    EXPECT_EQ(entry["warnings"], json::array()) << payload;
    installed.insert(entry["name"].get<std::string>());
  }
  json list = tool({"--json", "list"}).json();
  EXPECT_EQ(names(list), installed);
  EXPECT_EQ(list.size(), examplePayloads().size());
  EXPECT_TRUE(cofferHoldsAny(kVltClassGenericPassword));
  EXPECT_TRUE(cofferHoldsAny(kVltClassIdentity));

  for (const auto &service : list) {
    std::string id = service["id"];
    ToolResult shown = tool({"--json", "show", id});
    ASSERT_EQ(shown.exitCode, 0) << shown.err;
    EXPECT_EQ(shown.json()["name"], service["name"]);
    ToolResult exported = tool({"export", id, "-o", workFile("exported.json")});
    ASSERT_EQ(exported.exitCode, 0) << exported.err;
    EXPECT_EQ(json::parse(fileBytes(workFile("exported.json")))["UserDefinedName"],
              service["name"]);
  }

  for (const std::string &payload : examplePayloads()) {
    ToolResult removed = tool({"remove", example(payload)});
    EXPECT_EQ(removed.exitCode, 0) << payload << ": " << removed.err;
  }
  EXPECT_EQ(tool({"--json", "list"}).json(), json::array());
  // Issuer certificates stay (other identities may share them); nothing else.
  EXPECT_FALSE(cofferHoldsAny(kVltClassGenericPassword));
  EXPECT_FALSE(cofferHoldsAny(kVltClassIdentity));
}

TEST_F(Lifecycle, ReinstallingReplacesTheServiceAndItsSecrets) {
  ASSERT_EQ(tool({"install", example("l2tp.json")}).exitCode, 0);
  std::string first = tool({"--json", "list"}).json()[0]["id"];
  ToolResult again = tool({"--json", "install", example("l2tp.json")});
  ASSERT_EQ(again.exitCode, 0) << again.err;
  EXPECT_EQ(again.json()["installed"][0]["replaced"][0]["id"], first);
  json list = tool({"--json", "list"}).json();
  ASSERT_EQ(list.size(), 1u);
  EXPECT_NE(list[0]["id"], first);
  EXPECT_EQ(textOf(Ref<PVStringRef>::adopt(
                       JXCofferCopyValue(text(first + ".SS").get(), nullptr, nullptr, nullptr))
                       .get()),
            "(null)");
  EXPECT_EQ(tool({"--json", "show", list[0]["id"]}).json()["secrets"]["sharedSecret"], "stored");
}

// Passwords never leave the tool, and a new install selects the service, so
// those two are left out of the comparison; the client identity cannot
// leave the Coffer, so the certificate example is not moved.
TEST_F(Lifecycle, ExportedServiceInstalledInASecondStoreHasAnEqualConfiguration) {
  std::string second = workFile("second-store");
  std::filesystem::create_directory(second);
  auto comparable = [](json shown) {
    shown.erase("id");
    shown.erase("selectedIn");
    shown["secrets"].erase("accountPassword");
    shown["secrets"].erase("proxyPassword");
    return shown;
  };
  for (const std::string &payload : examplePayloads()) {
    if (payload == "ipsec-certificate.json") continue;
    ToolResult installed = tool({"--json", "install", example(payload)});
    ASSERT_EQ(installed.exitCode, 0) << installed.err;
    std::string id = installed.json()["installed"][0]["id"];
    ASSERT_EQ(tool({"export", id, "--with-secret", "-o", workFile("moved.json")}).exitCode, 0);
    ToolResult moved = toolIn(second, {"--json", "install", workFile("moved.json")});
    ASSERT_EQ(moved.exitCode, 0) << payload << ": " << moved.err;
    json original = tool({"--json", "show", id}).json();
    json copy = toolIn(second, {"--json", "show", moved.json()["installed"][0]["id"]}).json();
    EXPECT_EQ(comparable(original), comparable(copy)) << payload;
  }
}

TEST_F(Lifecycle, FourProcessesInstallingAtOnceAllLand) {
  json base = json::parse(fileBytes(example("l2tp.json")));
  std::vector<Running> running;
  std::set<std::string> expected;
  for (int i = 0; i < 4; ++i) {
    json payload = base;
    payload["PayloadIdentifier"] = "com.example.concurrent." + std::to_string(i);
    payload["PayloadUUID"] = "concurrent-" + std::to_string(i);
    payload["PayloadDisplayName"] = "Concurrent " + std::to_string(i);
    expected.insert(payload["PayloadDisplayName"].get<std::string>());
    std::string name = "payload" + std::to_string(i);
    writeFile(name + ".json", payload.dump());
    running.push_back(start({"install", workFile(name + ".json")}, name));
  }
  for (const Running &process : running) {
    ToolResult result = finish(process);
    EXPECT_EQ(result.exitCode, 0) << result.err;
  }
  EXPECT_EQ(names(tool({"--json", "list"}).json()), expected);
}

TEST_F(Lifecycle, DefaultStoreIsMadeOnFirstUse) {
  std::string store = workFile("state/tarnwick");
  ToolResult result =
      toolWithoutStore({"install", example("pptp.json")}, {"TARNWICK_STORE=" + store});
  ASSERT_EQ(result.exitCode, 0) << result.err;
  struct stat status {};
  ASSERT_EQ(stat(store.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0700u);
  result = toolWithoutStore({"--json", "list"}, {"TARNWICK_STORE=" + store});
  EXPECT_EQ(result.json().size(), 1u);
}

}  // namespace
}  // namespace tw::test
