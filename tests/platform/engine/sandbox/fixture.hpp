// The fixture of the tests against the sandboxed NetworkManager: a store
// of the test's own, the tool run on it with the engine chosen as a user's
// would be, and NetworkManager emptied before and after each test.
#pragma once

#include <signal.h>
#include <unistd.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "cli/tool_runner.hpp"
#include "platform/engine/name_uuid.hpp"
#include "platform/engine/sandbox/sandbox.hpp"
#include "tarnwick/platform/engine.h"
#include "tarnwick/platform/json.h"

namespace tw::test {

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
    if (agent_) stopAgent();
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
    nlohmann::json status = nm({"--json", "status"}).json();
    for (const auto &service : status["services"]) {
      if (service["name"] == name) return service["id"];
    }
    ADD_FAILURE() << "no service " << name;
    return "";
  }
  std::string uuidOf(const std::string &name) const { return engine::nameUuid(serviceID(name)); }
  // An apply of this process's own, with nothing changed.
  static nlohmann::json applyInProcess() {
    auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
    EXPECT_TRUE(ZNPreferencesApplyChanges(prefs.get()));
    auto report = Ref<PVDictionaryRef>::adopt(ZNEngineCopyReport());
    auto text = Ref<PVStringRef>::adopt(PVCreateJSONString(report.get()));
    return nlohmann::json::parse(PVStringGetCStringPtr(text.get()));
  }
  // `tarnwick agent` on the test's store, started once it has registered
  // with NetworkManager; TearDown stops it when the test did not.
  void startAgent() {
    agent_ = start({"agent"}, "agent",
                   {"DBUS_SYSTEM_BUS_ADDRESS=" + Sandbox::busAddress(), "TARNWICK_ENGINE="});
    waitForAgent("registered with NetworkManager");
  }
  // Waits (10 s at most) until the agent has said `text` `times` times.
  void waitForAgent(const std::string &text, size_t times = 1) const {
    for (int tries = 0; tries < 200; ++tries) {
      if (countIn(agentLog(), text) >= times) return;
      usleep(50'000);
    }
    ADD_FAILURE() << "the agent never said \"" << text << "\" " << times << " times:\n"
                  << agentLog();
  }
  std::string agentLog() const { return agent_ ? fileBytes(agent_->errPath) : ""; }
  pid_t agentPid() const { return agent_ ? agent_->pid : -1; }
  // SIGTERM; what it said and how it ended.
  ToolResult stopAgent() {
    kill(agent_->pid, SIGTERM);
    ToolResult result = finish(*agent_);
    agent_.reset();
    return result;
  }
  static size_t countIn(const std::string &text, const std::string &part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
      ++count;
    }
    return count;
  }

  std::map<std::string, std::string> states() const {
    std::map<std::string, std::string> states;
    nlohmann::json status = nm({"--json", "status"}).json();
    for (const auto &service : status["services"]) {
      states[service["name"]] = service["state"];
    }
    return states;
  }

 private:
  std::optional<Running> agent_;
};

}  // namespace tw::test
