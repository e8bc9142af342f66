// Applies against a real NetworkManager, in the sandbox nm-sandbox makes:
// what reaches it, what never does, and how it catches up.
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>

#include "cli/tool_runner.hpp"
#include "platform/engine/name_uuid.hpp"
#include "platform/engine/sandbox/sandbox.hpp"
#include "tarnwick/platform/engine.h"
#include "tarnwick/platform/json.h"

namespace tw::test {
namespace {

using nlohmann::json;

// Each example as NetworkManager must hold it, or the reason it cannot.
struct Expected {
  const char *payload;
  const char *name;
  const char *serviceType;  // null: no plugin can express it
  json data;                // or the reason, in part
};

const Expected kExamples[] = {
    {"l2tp.json",
     "Harbour Office (L2TP)",
     "org.freedesktop.NetworkManager.l2tp",
     {{"gateway", "l2tp.harbour.example.com"},
      {"user", "alice"},
      {"password-flags", "1"},
      {"ipsec-enabled", "yes"},
      {"ipsec-psk-flags", "1"},
      {"lcp-echo-interval", "30"}}},
    {"pptp.json",
     "Harbour Legacy (PPTP)",
     "org.freedesktop.NetworkManager.pptp",
     {{"gateway", "pptp.harbour.example.com"},
      {"user", "alice"},
      {"password-flags", "1"},
      {"require-mppe", "yes"},
      {"require-mppe-128", "yes"}}},
    {"ipsec-shared-secret.json",
     "Harbour Gateway (IPSec)",
     "org.freedesktop.NetworkManager.vpnc",
     {{"IPSec gateway", "gateway.harbour.example.com"},
      {"IPSec ID", "harbour-staff"},
      {"IPSec secret-flags", "1"},
      {"Xauth username", "alice"},
      {"Xauth password-flags", "1"}}},
    {"http-proxy.json", "Harbour Gateway via proxy", nullptr, "no group name (LocalIdentifier)"},
    {"ipsec-certificate.json", "Harbour Gateway (certificate)", nullptr, "client certificate"},
    {"vendor-vpn.json", "Tidewater Secure Access", nullptr, "no plugin named for it"},
};

class NetworkManagerTest : public CliTest {
 protected:
  void SetUp() override {
    if (Sandbox::directory().empty()) GTEST_SKIP() << "runs inside nm-sandbox, as ctest runs it";
    CliTest::SetUp();
    setenv("TARNWICK_ENGINE", "networkmanager", 1);  // for this process's own applies
    deleteEveryConnection();
  }
  void TearDown() override {
    if (Sandbox::directory().empty()) return;
    deleteEveryConnection();
    setenv("TARNWICK_ENGINE", "none", 1);
    CliTest::TearDown();
  }

  // The tool on `store` (the test's own by default), with the engine
  // chosen as a user's would be: NetworkManager because it answers.
  ToolResult nm(std::vector<std::string> args, const std::string &store = "") const {
    args.insert(args.begin(), {"--store", store.empty() ? storeDir() : store});
    return toolWithoutStore(
        args, {"DBUS_SYSTEM_BUS_ADDRESS=" + Sandbox::busAddress(), "TARNWICK_ENGINE="});
  }
  void install(const std::string &payload, const std::string &store = "") const {
    ToolResult result = nm({"install", example(payload)}, store);
    ASSERT_EQ(result.exitCode, 0) << result.err;
  }
  void installEveryExample() const {
    for (const auto &payload : examplePayloads()) install(payload);
  }
  // The service of that name in the store: its identifier.
  std::string serviceID(const std::string &name) const {
    json status = nm({"--json", "status"}).json();
    for (const auto &service : status["services"]) {
      if (service["name"] == name) return service["id"];
    }
    ADD_FAILURE() << "no service " << name;
    return "";
  }
  std::string uuidOf(const std::string &name) const { return engine::nameUuid(serviceID(name)); }
  // An apply of this process's own, with nothing changed.
  static json applyInProcess() {
    auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
    EXPECT_TRUE(ZNPreferencesApplyChanges(prefs.get()));
    auto report = Ref<PVDictionaryRef>::adopt(ZNEngineCopyReport());
    auto text = Ref<PVStringRef>::adopt(PVCreateJSONString(report.get()));
    return json::parse(PVStringGetCStringPtr(text.get()));
  }
  std::map<std::string, std::string> states() const {
    std::map<std::string, std::string> states;
    json status = nm({"--json", "status"}).json();
    for (const auto &service : status["services"]) {
      states[service["name"]] = service["state"];
    }
    return states;
  }
};

TEST_F(NetworkManagerTest, EveryExpressibleExampleBecomesItsPluginsConnection) {
  ToolResult first = nm({"install", example("l2tp.json")});
  ASSERT_EQ(first.exitCode, 0) << first.err;
  // Installing applies twice (the selection changes); the line tells the whole.
  EXPECT_NE(first.out.find("Engine networkmanager: 1 added, 0 updated, 0 deleted, 0 unchanged"),
            std::string::npos)
      << first.out;
  installEveryExample();

  auto held = heldConnections();
  std::set<std::string> expected;
  json status = nm({"--json", "status"}).json();
  for (const Expected &example : kExamples) {
    SCOPED_TRACE(example.payload);
    std::string uuid = uuidOf(example.name);
    json service;
    for (const auto &s : status["services"]) {
      if (s["name"] == example.name) service = s;
    }
    if (!example.serviceType) {
      EXPECT_FALSE(held.contains(uuid));
      EXPECT_EQ(service["state"], "cannot-express");
      EXPECT_NE(service["reason"].get<std::string>().find(example.data.get<std::string>()),
                std::string::npos)
          << service["reason"];
      continue;
    }
    expected.insert(uuid);
    ASSERT_TRUE(held.contains(uuid));
    const json &settings = held[uuid].settings;
    EXPECT_EQ(settings["connection"]["id"], example.name);
    EXPECT_EQ(settings["connection"]["type"], "vpn");
    EXPECT_EQ(settings["connection"]["autoconnect"], false);
    EXPECT_EQ(settings["vpn"]["service-type"], example.serviceType);
    EXPECT_EQ(held[uuid].data(), example.data);
    EXPECT_EQ(service["state"], "in-line");
  }
  std::set<std::string> all;
  for (const auto &[uuid, connection] : held) all.insert(uuid);
  EXPECT_EQ(all, expected);  // nothing else was made
  // Persistent: each one is a keyfile.
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(Sandbox::keyfileDirectory()),
                          std::filesystem::directory_iterator()),
            3);
}

TEST_F(NetworkManagerTest, NoSecretReachesAnyFileNetworkManagerWrote) {
  installEveryExample();
  ASSERT_TRUE(hasCofferItem(serviceID("Harbour Office (L2TP)")));  // the secrets are kept
  const char *secrets[] = {"tide-tables-7",     "harbour-l2tp-psk", "old-lighthouse-3",
                           "harbour-ipsec-psk", "anchor-chain-42",  "harbour-proxied-psk",
                           "quay-side-19",      "crows-nest-8",     "harbour-p12"};
  std::vector<std::string> files = Sandbox::filesNetworkManagerWrote();
  ASSERT_GE(files.size(), 4u);
  for (const auto &file : files) {
    std::string bytes = fileBytes(file);
    for (const char *secret : secrets) {
      EXPECT_EQ(bytes.find(secret), std::string::npos) << secret << " in " << file;
    }
    EXPECT_EQ(bytes.find("[vpn-secrets]"), std::string::npos) << file;
  }
}

TEST_F(NetworkManagerTest, AChangedPropertyReachesItsConnection) {
  install("pptp.json");
  ToolResult set = nm({"set", "Harbour Legacy (PPTP)", "CommRemoteAddress", "pptp2.example.com"});
  ASSERT_EQ(set.exitCode, 0) << set.err;
  EXPECT_NE(set.out.find("0 added, 1 updated, 0 deleted"), std::string::npos) << set.out;
  EXPECT_EQ(heldConnections()[uuidOf("Harbour Legacy (PPTP)")].data()["gateway"],
            "pptp2.example.com");
  // A change that makes the service inexpressible takes its connection away.
  ToolResult eap = nm({"set", "Harbour Legacy (PPTP)", "AuthProtocol", "[\"EAP\"]"});
  ASSERT_EQ(eap.exitCode, 0) << eap.err;
  EXPECT_NE(eap.out.find("1 deleted"), std::string::npos) << eap.out;
  EXPECT_TRUE(heldConnections().empty());
}

TEST_F(NetworkManagerTest, ARemovedServicesConnectionIsGone) {
  install("l2tp.json");
  install("pptp.json");
  std::string kept = uuidOf("Harbour Legacy (PPTP)");
  ToolResult removed = nm({"remove", "Harbour Office (L2TP)"});
  ASSERT_EQ(removed.exitCode, 0) << removed.err;
  EXPECT_NE(removed.out.find("1 deleted"), std::string::npos) << removed.out;
  auto held = heldConnections();
  ASSERT_EQ(held.size(), 1u);
  EXPECT_TRUE(held.contains(kept));
}

TEST_F(NetworkManagerTest, ConnectionsTarnwickDidNotMakeAreNeverTouched) {
  install("pptp.json");
  std::string gone = serviceID("Harbour Legacy (PPTP)");
  // One made by hand under a service's name; one that claims a service of
  // this store but is not its UUID; one of another store.
  Sandbox::nmcli(
      "connection add type vpn con-name 'Harbour Legacy (PPTP)' vpn-type pptp "
      "vpn.data gateway=by-hand.example.com");
  addConnection("claimed", {{"org.tarnwick.service-id", gone},
                            {"org.tarnwick.store", std::filesystem::canonical(storeDir())}});
  std::string other = temporaryDirectory("tarnwick-other-store");
  install("l2tp.json", other);
  auto before = heldConnections();
  ASSERT_EQ(before.size(), 4u);

  ASSERT_EQ(nm({"remove", "Harbour Legacy (PPTP)"}).exitCode, 0);
  ToolResult apply = nm({"apply"});
  EXPECT_EQ(apply.exitCode, 0) << apply.out << apply.err;
  auto after = heldConnections();
  EXPECT_EQ(after.size(), 3u);
  for (const auto &[uuid, connection] : after) {
    ASSERT_TRUE(before.contains(uuid));
    EXPECT_EQ(connection.settings, before[uuid].settings) << connection.id();
  }
  std::filesystem::remove_all(other);
}

TEST_F(NetworkManagerTest, ApplyingAgainSendsNothingThatChangesAConnection) {
  installEveryExample();
  CallMonitor monitor;
  json plain = applyInProcess();
  EXPECT_EQ(plain["Unchanged"], 3);
  ToolResult thorough = nm({"apply"});
  EXPECT_EQ(thorough.exitCode, 0) << thorough.err;
  EXPECT_NE(thorough.out.find("0 added, 0 updated, 0 deleted, 3 unchanged"), std::string::npos)
      << thorough.out;
  std::vector<std::string> calls = monitor.calls();
  EXPECT_EQ(changingCalls(calls), std::vector<std::string>{});
  // The plain apply looked only at the list; the thorough one read every
  // connection.
  EXPECT_EQ(std::count_if(calls.begin(), calls.end(),
                          [](const std::string &c) { return c.starts_with("ListConnections"); }),
            2);
  EXPECT_EQ(std::count_if(calls.begin(), calls.end(),
                          [](const std::string &c) { return c.starts_with("GetSettings"); }),
            3);
}

TEST_F(NetworkManagerTest, EditsAndDeletionsBehindItsBackArePutRight) {
  install("l2tp.json");
  install("pptp.json");
  Sandbox::nmcli("connection modify 'Harbour Legacy (PPTP)' vpn.data 'gateway=elsewhere'");
  Sandbox::nmcli("connection delete 'Harbour Office (L2TP)'");
  EXPECT_EQ(states(),
            (std::map<std::string, std::string>{{"Harbour Legacy (PPTP)", "out-of-date"},
                                                {"Harbour Office (L2TP)", "out-of-date"}}));
  // Any apply brings back what was deleted; the edit waits for a
  // thorough one.
  json plain = applyInProcess();
  EXPECT_EQ(plain["Added"], 1);
  EXPECT_EQ(states()["Harbour Office (L2TP)"], "in-line");
  EXPECT_EQ(states()["Harbour Legacy (PPTP)"], "out-of-date");
  ToolResult apply = nm({"apply"});
  EXPECT_NE(apply.out.find("0 added, 1 updated"), std::string::npos) << apply.out;
  EXPECT_EQ(states(), (std::map<std::string, std::string>{{"Harbour Legacy (PPTP)", "in-line"},
                                                          {"Harbour Office (L2TP)", "in-line"}}));
  EXPECT_EQ(heldConnections()[uuidOf("Harbour Legacy (PPTP)")].data()["gateway"],
            "pptp.harbour.example.com");
}

TEST_F(NetworkManagerTest, NetworkManagerStoppedDuringAnApplyCatchesUpAtTheNext) {
  install("pptp.json");
  ASSERT_EQ(kill(Sandbox::networkManagerPid(), SIGSTOP), 0);
  ToolResult set = nm({"set", "Harbour Legacy (PPTP)", "CommRemoteAddress", "later.example.com"});
  // The change is in the store all the same.
  EXPECT_EQ(set.exitCode, 0) << set.err;
  EXPECT_NE(set.out.find("NetworkManager stopped answering"), std::string::npos) << set.out;
  EXPECT_EQ(nm({"get", "Harbour Legacy (PPTP)", "CommRemoteAddress"}).out, "later.example.com\n");

  Sandbox::stopNetworkManager();
  ToolResult absent = nm({"set", "Harbour Legacy (PPTP)", "AuthName", "bob"});
  EXPECT_EQ(absent.exitCode, 0) << absent.err;
  EXPECT_NE(absent.out.find("Engine none"), std::string::npos) << absent.out;
  Sandbox::startNetworkManager();

  json report = applyInProcess();
  EXPECT_FALSE(report.contains("Failure")) << report.dump();
  json data = heldConnections()[uuidOf("Harbour Legacy (PPTP)")].data();
  EXPECT_EQ(data["gateway"], "later.example.com");
  EXPECT_EQ(data["user"], "bob");
}

TEST_F(NetworkManagerTest, ARestartWithoutItsKeyfilesIsPutRightByTheNextApply) {
  installEveryExample();
  Sandbox::stopNetworkManager();
  for (const auto &file : std::filesystem::directory_iterator(Sandbox::keyfileDirectory())) {
    std::filesystem::remove(file.path());
  }
  Sandbox::startNetworkManager();
  ASSERT_TRUE(heldConnections().empty());
  json report = applyInProcess();
  EXPECT_EQ(report["Added"], 3);
  EXPECT_EQ(heldConnections().size(), 3u);
}

TEST_F(NetworkManagerTest, VendorVPNsReachThePluginTheAdministratorNames) {
  install("vendor-vpn.json");
  EXPECT_TRUE(heldConnections().empty());
  std::ofstream(storeDir() + "/vendor-plugins.conf")
      << "[com.example.tidewater.vpn]\n"
         "service-type = org.freedesktop.NetworkManager.pptp\n"
         "data.gateway = VPN.RemoteAddress\n"
         "data.user = VPN.AuthName\n"
         "data.refuse-eap = \"yes\"\n"
         "secret = password\n";
  ToolResult apply = nm({"apply"});
  ASSERT_EQ(apply.exitCode, 0) << apply.out << apply.err;
  auto held = heldConnections();
  ASSERT_EQ(held.size(), 1u);
  EXPECT_EQ(held.begin()->second.settings["vpn"]["service-type"],
            "org.freedesktop.NetworkManager.pptp");
  EXPECT_EQ(held.begin()->second.data(), (json{{"gateway", "access.harbour.example.com"},
                                               {"user", "alice"},
                                               {"refuse-eap", "yes"},
                                               {"password-flags", "1"}}));
}

}  // namespace
}  // namespace tw::test
