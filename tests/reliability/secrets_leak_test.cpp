// Secrets never leak: every example installed with its credentials, then
// every command run, text and --json, failures included, under umask 000.
// No secret occurs in anything the tool printed, in any file of the store
// but the Coffer, in what reached the real system log, or in the argv of a
// process the test ran; the store is the user's alone.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "cli/tool_runner.hpp"
#include "support/system_log.hpp"

namespace tw::test {
namespace {

using SecretsNeverLeak = CliTest;

// Every secret of the examples, and of the payloads and inputs below.
const std::vector<std::string> kSecrets = {
    "tide-tables-7",   "harbour-l2tp-psk", "harbour-ipsec-psk",   "anchor-chain-42",
    "old-lighthouse-3", "harbour-proxied-psk", "quay-side-19",    "crows-nest-8",
    "harbour-p12",     "tidewater-pass-5", "broken-json-secret", "wrong-kind-secret",
    "typed-in-psk"};

// The text, and the same in UTF-16 as a store might keep it.
std::vector<std::string> formsOf(const std::string &secret) {
  std::string utf16;
  for (char c : secret) utf16 += std::string{c, '\0'};
  return {secret, utf16};
}

struct Umask {
  explicit Umask(mode_t mask) : previous(umask(mask)) {}
  ~Umask() { umask(previous); }
  mode_t previous;
};

TEST_F(SecretsNeverLeak, InOutputFilesLogOrArguments) {
  struct Directory {
    ~Directory() { std::filesystem::remove_all(path); }
    std::string path = temporaryDirectory("tarnwick-leak-log");
  } logDirectory;
  const std::string logPath = logDirectory.path + "/log";
  if (std::string why = routeSystemLogTo(logPath); !why.empty()) {
    GTEST_SKIP() << "no private /dev/log: " << why;
  }
  SystemLogSocket systemLog(logPath);
  Umask open(0);
  const std::string store = storeDir() + "/made-by-the-tool";

  writeFile("broken.json", R"({"VPNType": "L2TP", "PPP": {"AuthPassword": "broken-json-secret",)");
  writeFile("wrong-kind.json",
            R"({"VPNType": "L2TP", "PPP": {"AuthPassword": "wrong-kind-secret", "AuthName": 5}})");
  std::vector<std::vector<std::string>> argvs;
  std::vector<ToolResult> results;
  auto run = [&](std::vector<std::string> args, const std::string &input = "") {
    for (const char *mode : {"", "--json"}) {
      std::vector<std::string> argv = args;
      if (*mode) argv.insert(argv.begin(), mode);
      argvs.push_back(argv);
      results.push_back(toolIn(store, argv, input));
    }
    return results.back();
  };

  for (const std::string &payload : examplePayloads()) {
    ASSERT_EQ(toolIn(store, {"install", example(payload)}).exitCode, 0) << payload;
    argvs.push_back({"install", example(payload)});
  }
  // Another payload's service of the same name: the library logs that it
  // replaces it, through the tool's process.
  std::string twin = fileBytes(example("l2tp.json"));
  twin.replace(twin.find("com.example.harbour.vpn.l2tp"), 28, "com.example.harbour.vpn.twin");
  twin.replace(twin.find("0E5B8E0C"), 8, "0E5B8E0D");
  writeFile("twin.json", twin);
  run({"install", workFile("twin.json")});
  run({"password", "set", "Tidewater Secure Access"}, "tidewater-pass-5\n");
  run({"secret", "set", "Harbour Office (L2TP)"}, "typed-in-psk\n");
  for (const auto &service : toolIn(store, {"--json", "list"}).json()) {
    const std::string id = service["id"];
    run({"show", id});
    run({"export", id});
    for (const char *key : {"AuthPassword", "SharedSecret", "XAuthPassword", "HTTPProxyPassword"}) {
      run({"get", id, key});
    }
  }
  for (const char *command : {"list", "on-demand", "dump", "status", "apply", "check"}) {
    run({command});
  }
  // Failures: payloads that cannot be read, near a secret.
  EXPECT_EQ(run({"install", workFile("broken.json")}).exitCode, 3);
  EXPECT_EQ(run({"install", workFile("wrong-kind.json")}).exitCode, 3);
  EXPECT_NE(run({"password", "set", "No Such Service"}, "typed-in-psk\n").exitCode, 0);
  for (const std::string &payload : examplePayloads()) run({"remove", "--file", example(payload)});

  std::vector<std::pair<std::string, std::string>> places;  // what, its bytes
  for (const ToolResult &result : results) {
    places.emplace_back("standard output", result.out);
    places.emplace_back("standard error", result.err);
  }
  for (const auto &argv : argvs) {
    for (const std::string &arg : argv) places.emplace_back("an argument", arg);
  }
  const auto logged = systemLog.messages();
  EXPECT_FALSE(logged.empty());  // the twin's replacement at least
  for (const SystemLogMessage &message : logged) places.emplace_back("the log", message.raw);
  for (const auto &entry : std::filesystem::recursive_directory_iterator(store)) {
    const std::string name = entry.path().filename();
    EXPECT_EQ(entry.symlink_status().permissions() & std::filesystem::perms::all,
              entry.is_directory() ? std::filesystem::perms::owner_all
                                   : std::filesystem::perms::owner_read |
                                         std::filesystem::perms::owner_write)
        << entry.path();
    if (entry.is_regular_file() && !name.starts_with("coffer.db")) {
      places.emplace_back(name, fileBytes(entry.path()));
    }
  }
  // The Coffer's journal holds nothing once a write returns.
  EXPECT_EQ(std::filesystem::file_size(store + "/coffer.db-journal"), 0u);
  for (const auto &[where, bytes] : places) {
    for (const std::string &secret : kSecrets) {
      for (const std::string &form : formsOf(secret)) {
        EXPECT_EQ(bytes.find(form), std::string::npos) << secret << " in " << where << ": " << bytes;
      }
    }
  }
}

}  // namespace
}  // namespace tw::test
