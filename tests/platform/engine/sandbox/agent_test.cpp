// The secret agent against the sandboxed NetworkManager: whom it answers,
// with what, and how it follows NetworkManager's restarts.
#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <fstream>

#include "platform/engine/sandbox/fixture.hpp"

namespace tw::test {
namespace {

using nlohmann::json;

using AgentTest = NetworkManagerTest;

// The "vpn" secrets NetworkManager hands a client, {} when it has none
// (it gives an empty setting, or refuses when no agent answers).
json vpnSecrets(const std::string &uuid) {
  json secrets;
  try {
    secrets = secretsNetworkManagerGives(uuid);
  } catch (const std::runtime_error &) {
    return json::object();
  }
  return secrets.contains("vpn") && secrets["vpn"].contains("secrets") ? secrets["vpn"]["secrets"]
                                                                       : json::object();
}

TEST_F(AgentTest, NetworkManagerGetsTheCoffersSecretsForTarnwicksConnections) {
  install("l2tp.json");
  install("pptp.json");
  install("ipsec-shared-secret.json");
  // A connection of someone else's, its secret agent-owned too.
  Sandbox::nmcli(
      "connection add type vpn con-name other vpn-type pptp "
      "vpn.data 'gateway=192.0.2.1, user=carol, password-flags=1'");
  // Without the agent NetworkManager has nothing to give.
  EXPECT_EQ(vpnSecrets(uuidOf("Harbour Office (L2TP)")), json::object());

  startAgent();
  EXPECT_EQ(vpnSecrets(uuidOf("Harbour Office (L2TP)")),
            (json{{"password", "tide-tables-7"}, {"ipsec-psk", "harbour-l2tp-psk"}}));
  EXPECT_EQ(vpnSecrets(uuidOf("Harbour Legacy (PPTP)")), (json{{"password", "old-lighthouse-3"}}));
  EXPECT_EQ(vpnSecrets(uuidOf("Harbour Gateway (IPSec)")),
            (json{{"IPSec secret", "harbour-ipsec-psk"}, {"Xauth password", "anchor-chain-42"}}));
  // Read at the time of the request: a changed secret is the one given.
  ASSERT_EQ(
      toolIn(storeDir(), {"password", "set", "Harbour Legacy (PPTP)"}, "new-mooring-5\n").exitCode,
      0);
  EXPECT_EQ(vpnSecrets(uuidOf("Harbour Legacy (PPTP)")), (json{{"password", "new-mooring-5"}}));

  std::string other = Sandbox::nmcli("-g connection.uuid connection show other");
  other.erase(other.find_last_not_of('\n') + 1);
  EXPECT_EQ(vpnSecrets(other), json::object());
  waitForAgent("no secrets for \"other\"");

  // A store it cannot read is a failure NetworkManager hears of, and the
  // agent goes on.
  std::string legacy = uuidOf("Harbour Legacy (PPTP)");
  std::ofstream(storeDir() + "/preferences.db", std::ios::trunc) << "not a database";
  EXPECT_EQ(vpnSecrets(legacy), json::object());
  waitForAgent("GetSecrets failed: the store cannot be read");

  ToolResult stopped = stopAgent();
  EXPECT_EQ(stopped.exitCode, 0) << stopped.err;
  EXPECT_NE(stopped.err.find("unregistered from NetworkManager"), std::string::npos) << stopped.err;
  // It says what it gave, never the secret.
  EXPECT_NE(stopped.err.find("gave \"Harbour Office (L2TP)\""), std::string::npos) << stopped.err;
  for (const char *secret : {"tide-tables-7", "harbour-l2tp-psk", "old-lighthouse-3",
                             "new-mooring-5", "harbour-ipsec-psk", "anchor-chain-42"}) {
    EXPECT_EQ(stopped.err.find(secret), std::string::npos) << secret;
    EXPECT_EQ(fileBytes(Sandbox::directory() + "/NetworkManager.log").find(secret),
              std::string::npos)
        << secret;
  }
}

TEST_F(AgentTest, AnyCallerButNetworkManagerIsRefused) {
  install("l2tp.json");
  startAgent();
  std::string agent = busNameOfProcess(agentPid());
  ASSERT_FALSE(agent.empty());

  sd_bus *bus = nullptr;
  ASSERT_GE(sd_bus_new(&bus), 0);
  ASSERT_GE(sd_bus_set_address(bus, Sandbox::busAddress().c_str()), 0);
  ASSERT_GE(sd_bus_set_bus_client(bus, 1), 0);
  ASSERT_GE(sd_bus_start(bus), 0);
  std::string uuid = uuidOf("Harbour Office (L2TP)");
  struct Call {
    const char *method;
    std::function<int(sd_bus_message *)> append;
  };
  auto connection = [&](sd_bus_message *m) {
    return sd_bus_message_append(m, "a{sa{sv}}", 1, "connection", 1, "uuid", "s", uuid.c_str());
  };
  const Call calls[] = {
      {"GetSecrets",
       [&](sd_bus_message *m) {
         int r = connection(m);
         return r < 0 ? r
                      : sd_bus_message_append(
                            m, "osasu", "/org/freedesktop/NetworkManager/Settings/1", "vpn", 0, 0u);
       }},
      {"CancelGetSecrets",
       [](sd_bus_message *m) {
         return sd_bus_message_append(m, "os", "/org/freedesktop/NetworkManager/Settings/1", "vpn");
       }},
      {"SaveSecrets",
       [&](sd_bus_message *m) {
         int r = connection(m);
         return r < 0 ? r
                      : sd_bus_message_append(m, "o", "/org/freedesktop/NetworkManager/Settings/1");
       }},
      {"DeleteSecrets",
       [&](sd_bus_message *m) {
         int r = connection(m);
         return r < 0 ? r
                      : sd_bus_message_append(m, "o", "/org/freedesktop/NetworkManager/Settings/1");
       }},
  };
  for (const Call &call : calls) {
    SCOPED_TRACE(call.method);
    sd_bus_message *m = nullptr;
    ASSERT_GE(sd_bus_message_new_method_call(
                  bus, &m, agent.c_str(), "/org/freedesktop/NetworkManager/SecretAgent",
                  "org.freedesktop.NetworkManager.SecretAgent", call.method),
              0);
    ASSERT_GE(call.append(m), 0);
    sd_bus_error error = SD_BUS_ERROR_NULL;
    sd_bus_message *reply = nullptr;
    EXPECT_LT(sd_bus_call(bus, m, 5'000'000, &error, &reply), 0);
    EXPECT_STREQ(error.name, "org.freedesktop.NetworkManager.SecretAgent.PermissionDenied");
    EXPECT_EQ(reply, nullptr);
    sd_bus_error_free(&error);
    sd_bus_message_unref(reply);
    sd_bus_message_unref(m);
  }
  sd_bus_flush_close_unref(bus);
  waitForAgent("only NetworkManager is answered", std::size(calls));
  EXPECT_EQ(agentLog().find("tide-tables-7"), std::string::npos);
  // NetworkManager itself is still answered.
  EXPECT_EQ(vpnSecrets(uuid)["password"], "tide-tables-7");
}

TEST_F(AgentTest, ARestartedNetworkManagerIsRegisteredWithAgain) {
  install("pptp.json");
  startAgent();
  Sandbox::stopNetworkManager();
  waitForAgent("NetworkManager is not on the bus");
  Sandbox::startNetworkManager();
  waitForAgent("registered with NetworkManager", 2);
  EXPECT_EQ(vpnSecrets(uuidOf("Harbour Legacy (PPTP)")), (json{{"password", "old-lighthouse-3"}}));
  EXPECT_EQ(stopAgent().exitCode, 0);
}

}  // namespace
}  // namespace tw::test
