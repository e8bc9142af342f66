// The command line as people expect it: --version, unknown commands named,
// help for any command with the global options in it, output that is never
// lost silently, text that cannot take over the terminal and that lines up,
// and --json on every command with one vocabulary.
#include <set>

#include "cli/tool_runner.hpp"

namespace tw::test {
namespace {

using CommandLine = CliTest;
using nlohmann::json;

const std::vector<std::vector<std::string>> kCommands = {
    {"install"}, {"remove"},          {"list"},           {"on-demand"},       {"show"},
    {"dump"},    {"get"},             {"set"},            {"unset"},           {"select"},
    {"enable"},  {"disable"},         {"rename"},         {"password", "set"}, {"secret", "set"},
    {"secret", "export"}, {"secret", "import"}, {"export"}, {"apply"},         {"status"}};

TEST_F(CommandLine, VersionUnknownCommandsAndHelpAreAnsweredAsSuch) {
  ToolResult version = tool({"--version"});
  EXPECT_EQ(version.exitCode, 0);
  EXPECT_EQ(version.out.rfind("tarnwick ", 0), 0u) << version.out;
  const std::pair<std::vector<std::string>, std::string> unknown[] = {
      {{"frobnicate"}, "tarnwick: unknown command \"frobnicate\" (see tarnwick --help)\n"},
      {{"password", "get", "x"},
       "tarnwick: unknown command \"password get\" (see tarnwick password --help)\n"},
      {{"help", "frobnicate"}, "tarnwick: unknown command \"frobnicate\" (see tarnwick --help)\n"},
      {{}, "tarnwick: a command is required (see tarnwick --help)\n"},
      {{"secret"}, "tarnwick: a command is required (see tarnwick secret --help)\n"}};
  for (const auto &[args, message] : unknown) {
    ToolResult result = tool(args);
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, message);
  }
  for (const auto &command : kCommands) {
    ToolResult viaHelp = tool(concat({"help"}, command));
    ToolResult viaFlag = tool(concat(command, {"--help"}));
    EXPECT_EQ(viaHelp.exitCode, 0) << command[0];
    EXPECT_EQ(viaHelp.out, viaFlag.out) << command[0];
    for (const char *global : {"--store", "--json", "--wait", "--no-wait", "Exit codes:"}) {
      EXPECT_NE(viaHelp.out.find(global), std::string::npos) << command[0] << " lacks " << global;
    }
  }
  EXPECT_NE(tool({"help"}).out.find("Subcommands:"), std::string::npos);
}

TEST_F(CommandLine, OutputThatCannotBeWrittenIsAFailure) {
  ASSERT_EQ(tool({"install", example("l2tp.json")}).exitCode, 0);
  const std::vector<std::vector<std::string>> commands = {
      {"list"}, {"--json", "list"}, {"dump"}, {"show", "Harbour Office (L2TP)"},
      {"export", "Harbour Office (L2TP)"}, {"status"}, {"--help"}, {"--version"}};
  for (const auto &command : commands) {
    ToolResult result = toolWithoutStore(concat({"--store", storeDir()}, command), {}, "/dev/full");
    EXPECT_EQ(result.exitCode, 1) << command.back();
    EXPECT_NE(result.err.find("cannot write to standard output"), std::string::npos)
        << command.back() << ": " << result.err;
  }
}

// A name is the payload's to choose: an escape sequence in it never reaches
// the terminal, and wide or accented letters still line columns up.
TEST_F(CommandLine, NamesAreShownEscapedAndColumnsAlignByDisplayWidth) {
  json payload = json::parse(fileBytes(example("pptp.json")));
  const std::string names[] = {"Evil\x1b[31mRed\nLine", "Büro Zürich – VPN", "東京オフィス"};
  for (size_t i = 0; i < std::size(names); ++i) {
    payload["PayloadDisplayName"] = names[i];
    payload["PayloadUUID"] = "name-" + std::to_string(i);
    writeFile("named.json", payload.dump());
    ToolResult installed = tool({"install", workFile("named.json")});
    ASSERT_EQ(installed.exitCode, 0) << installed.err;
    EXPECT_EQ(installed.out.find('\x1b'), std::string::npos);
  }
  ToolResult list = tool({"list"});
  EXPECT_EQ(list.out.find('\x1b'), std::string::npos);
  EXPECT_NE(list.out.find("Evil\\e[31mRed\\nLine"), std::string::npos) << list.out;
  // The TYPE column starts at the same display column on every line.
  std::set<size_t> typeColumns;
  size_t start = 0;
  for (size_t end; (end = list.out.find('\n', start)) != std::string::npos; start = end + 1) {
    std::string line = list.out.substr(start, end - start);
    size_t at = line.find(line.rfind("NAME", 0) == 0 ? "TYPE" : "PPTP");
    std::string before = line.substr(0, at);
    size_t columns = 0;
    for (size_t i = 0; i < before.size(); ++i) {
      unsigned char c = static_cast<unsigned char>(before[i]);
      if ((c & 0xc0) == 0x80) continue;  // a continuation byte
      columns += c >= 0xe3 ? 2 : 1;       // CJK (U+3000 on) is wide
    }
    typeColumns.insert(columns);
  }
  EXPECT_EQ(typeColumns.size(), 1u) << list.out;
  ToolResult shown = tool({"show", "--name", names[0]});
  EXPECT_EQ(shown.exitCode, 0) << shown.err;
  EXPECT_EQ(shown.out.find('\x1b'), std::string::npos);
  ToolResult missing = tool({"show", "\x1b]0;owned\x07"});
  EXPECT_EQ(missing.err.find('\x1b'), std::string::npos) << missing.err;
}

// Text output is for people: lists as items, sets by name, never JSON.
TEST_F(CommandLine, TextOutputNeverPrintsJsonSyntax) {
  ASSERT_EQ(tool({"install", example("vendor-vpn.json")}).exitCode, 0);
  std::string service = "Tidewater Secure Access";
  ToolResult shown = tool({"show", service});
  ASSERT_EQ(shown.exitCode, 0);
  for (char c : {'[', ']', '{', '}', '"'}) {
    EXPECT_EQ(shown.out.find(c), std::string::npos) << c << " in\n" << shown.out;
  }
  EXPECT_NE(shown.out.find("Selected in  Default\n"), std::string::npos) << shown.out;
  EXPECT_NE(shown.out.find("OnDemandMatchDomainsAlways  intranet.harbour.example.com, "
                           "wiki.harbour.example.com\n"),
            std::string::npos)
      << shown.out;
  EXPECT_EQ(tool({"get", service, "OnDemandMatchDomainsNever"}).out, "www.harbour.example.com\n");
}

// --json everywhere, and one name for one thing: a service is the same
// object in every command's output.
TEST_F(CommandLine, EveryCommandSpeaksJsonWithOneVocabulary) {
  ToolResult installed = tool({"--json", "install", example("vendor-vpn.json")});
  ASSERT_EQ(installed.exitCode, 0) << installed.err;
  json summary = installed.json()["installed"][0];
  std::string id = summary["id"];
  EXPECT_EQ(summary["vendorType"], "com.example.tidewater.vpn");
  json listed = tool({"--json", "list"}).json()[0];
  json shown = tool({"--json", "show", "--id", id}).json();
  for (const char *field : {"id", "name", "type", "vendorType"}) {
    EXPECT_EQ(listed[field], summary[field]) << field;
    EXPECT_EQ(shown[field], summary[field]) << field;
  }
  for (const char *field : {"enabled", "selected", "onDemand"}) {
    EXPECT_EQ(listed[field], shown[field]) << field;
  }
  json dumped = tool({"dump"}).json();
  json dumpedService;
  for (const auto &service : dumped["services"]) {
    if (service["id"] == id) dumpedService = service;
  }
  EXPECT_EQ(dumpedService["layers"], shown["layers"]);
  EXPECT_EQ(dumpedService["protocols"], shown["protocols"]);
  EXPECT_EQ(dumpedService["vendorType"], summary["vendorType"]);
  EXPECT_EQ(dumped["sets"][0]["selected"], id);
  EXPECT_EQ(dumped["sets"][0]["id"], shown["selectedIn"][0]["id"]);
  EXPECT_EQ(dumped["sets"][0]["name"], shown["selectedIn"][0]["name"]);

  const std::vector<std::vector<std::string>> changes = {
      {"set", id, "RemoteAddress", "other.example.com"},
      {"unset", id, "RemoteAddress"},
      {"get", id, "AuthName"},
      {"select", id},
      {"enable", id},
      {"disable", id},
      {"rename", id, "Renamed"},
      {"export", id, "-o", workFile("out.json")},
  };
  for (const auto &change : changes) {
    ToolResult result = tool(concat({"--json"}, change));
    ASSERT_EQ(result.exitCode, 0) << change[0] << ": " << result.err;
    EXPECT_EQ(result.json()["service"]["id"], id) << change[0];
  }
  ToolResult password = tool({"--json", "password", "set", id}, "typed\n");
  EXPECT_EQ(password.json()["secret"], "accountPassword");
  ToolResult removed = tool({"--json", "remove", "--id", id});
  EXPECT_EQ(removed.json()["removed"][0]["name"], "Renamed");
}

}  // namespace
}  // namespace tw::test
