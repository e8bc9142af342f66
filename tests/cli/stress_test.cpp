// No lost updates, proven: several processes run the whole installation
// sequence through the tool at once, round after round, with removals in
// between, and afterwards the store holds exactly the services that should
// be there, every set selects one of them, and the preferences and the
// Coffer agree.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <set>

#include "cli/tool_runner.hpp"

namespace tw::test {
namespace {

using Stress = CliTest;
using nlohmann::json;

// The run's size: a few rounds here; scripts/stress-test sets
// TARNWICK_STRESS="processes rounds" for the full run (8 50).
struct StressSize {
  int processes = 4, rounds = 6;
};

StressSize stressSize() {
  StressSize size;
  if (const char *text = std::getenv("TARNWICK_STRESS")) {
    std::sscanf(text, "%d %d", &size.processes, &size.rounds);
  }
  return size;
}

constexpr int kSlots = 3;  // payloads per process

std::string serviceName(int process, int slot) {
  return "Process " + std::to_string(process) + " slot " + std::to_string(slot);
}

// Round r installs slot r % 3 (replacing the service it installed before);
// every fourth round then removes the next slot when it is installed.
struct Step {
  bool install;
  int slot;
};

std::vector<Step> stepsOf(int rounds, std::set<int> &installed) {
  std::vector<Step> steps;
  for (int round = 0; round < rounds; ++round) {
    steps.push_back({true, round % kSlots});
    installed.insert(round % kSlots);
    const int next = (round + 1) % kSlots;
    if (round % 4 == 3 && installed.erase(next)) steps.push_back({false, next});
  }
  return steps;
}

TEST_F(Stress, ConcurrentInstallsAndRemovalsLoseNothing) {
  const StressSize size = stressSize();
  std::set<std::string> expected;
  std::vector<std::vector<Step>> plans;
  for (int process = 0; process < size.processes; ++process) {
    std::set<int> installed;
    plans.push_back(stepsOf(size.rounds, installed));
    for (int slot : installed) expected.insert(serviceName(process, slot));
    for (int slot = 0; slot < kSlots; ++slot) {
      const std::string name = serviceName(process, slot);
      writeFile(std::to_string(process) + "-" + std::to_string(slot) + ".json",
                json({{"VPNType", "L2TP"},
                      {"PayloadDisplayName", name},
                      {"PayloadUUID", name},
                      {"PayloadIdentifier", "com.example.stress." + std::to_string(process) + "." +
                                                std::to_string(slot)},
                      {"PPP",
                       {{"CommRemoteAddress", "vpn.example.com"},
                        {"AuthName", "user"},
                        {"AuthPassword", "password " + name}}},
                      {"IPSec", {{"SharedSecret", "secret " + name}}}})
                    .dump());
    }
  }

  // Each process runs its plan through the tool, one command after the
  // other, all processes at once; its exit status is how many failed.
  std::vector<pid_t> processes;
  fflush(nullptr);
  for (int process = 0; process < size.processes; ++process) {
    pid_t pid = fork();
    if (pid == 0) {
      int failed = 0;
      const std::string tag = "p" + std::to_string(process);
      for (const Step &step : plans[process]) {
        const std::string payload =
            workFile(std::to_string(process) + "-" + std::to_string(step.slot) + ".json");
        ToolResult result = finish(start({step.install ? "install" : "remove", payload}, tag));
        if (result.exitCode != 0) {
          std::fprintf(stderr, "process %d: %s %s: %d %s", process,
                       step.install ? "install" : "remove", payload.c_str(), result.exitCode,
                       result.err.c_str());
          ++failed;
        }
      }
      _exit(std::min(failed, 100));
    }
    processes.push_back(pid);
  }
  for (pid_t pid : processes) {
    int status = 0;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "failed commands: " << status;
  }

  // Exactly the services that should be there, each once.
  const json services = tool({"--json", "list"}).json();
  std::multiset<std::string> names;
  std::set<std::string> ids;
  for (const auto &service : services) {
    names.insert(service["name"].get<std::string>());
    ids.insert(service["id"].get<std::string>());
  }
  EXPECT_EQ(names, std::multiset<std::string>(expected.begin(), expected.end()));
  // Every set selects one of them and holds only them.
  const json dump = tool({"--json", "dump"}).json();
  for (const auto &set : dump["sets"]) {
    EXPECT_TRUE(ids.contains(set["selected"].get<std::string>())) << set.dump();
    for (const auto &member : set["services"]) EXPECT_TRUE(ids.contains(member)) << set.dump();
  }
  // Each kept its credentials, and nothing else is left in the Coffer.
  for (const auto &service : services) {
    const json secrets = tool({"--json", "show", service["id"]}).json()["secrets"];
    EXPECT_EQ(secrets["accountPassword"], "stored") << service["name"];
    EXPECT_EQ(secrets["sharedSecret"], "stored") << service["name"];
  }
  ToolResult check = tool({"check"});
  EXPECT_EQ(check.exitCode, 0) << check.out << check.err;
  std::printf("%d processes x %d rounds: %zu services checked\n", size.processes, size.rounds,
              services.size());
}

}  // namespace
}  // namespace tw::test
