// Every failure the tool reports: its exit code, one clear message, and a
// store left as it was.
#include <chrono>
#include <thread>

#include "cli/tool_runner.hpp"
#include "tarnwick.h"

namespace tw::test {
namespace {

class Errors : public CliTest {
 protected:
  // A store with one service, and its dump, to compare with afterwards.
  void SetUp() override {
    CliTest::SetUp();
    ASSERT_EQ(tool({"install", example("pptp.json")}).exitCode, 0);
    before_ = tool({"dump"}).out;
  }
  bool storeUnchanged() const { return tool({"dump"}).out == before_; }

 private:
  std::string before_;
};

struct BadPayload {
  const char *name;
  std::string text;
  const char *message;  // what stderr holds after "tarnwick: <file>"
};

// Each is refused with exit 3, one line naming the file, and no payload
// text quoted: the passwords next to the errors never reach stderr.
TEST_F(Errors, MalformedPayloadIsOneMessageNamingTheFileQuotingNothingAndChangesNothing) {
  const BadPayload cases[] = {
      {"syntax", "{\n  \"VPNType\": \"L2TP\",\n  \"PPP\": {\"AuthName\": \"x\",}\n}",
       ":3:27: syntax error while parsing object key"},
      {"not-object", "[\"VPNType\"]", ": a payload is a JSON object"},
      {"no-type", "{\"PPP\": {}}", ": the payload has no \"VPNType\""},
      {"type-number", "{\"VPNType\": 4}", ": \"VPNType\" must be a string, not a number"},
      {"type-unknown", "{\"VPNType\": \"SSL\"}", ": \"VPNType\" must be IPSec, L2TP, PPTP or VPN"},
      {"vendor-without-subtype", "{\"VPNType\": \"VPN\", \"VPN\": {}}",
       ": a \"VPN\" payload needs \"VPNSubType\""},
      {"ipsec-string", "{\"VPNType\": \"L2TP\", \"IPSec\": \"x\"}",
       ": \"IPSec\" must be a dictionary, not a string"},
      {"container-string", "{\"VPNType\": \"IPSec\", \"_certificateData\": \"abc\"}",
       ": \"_certificateData\" must be data, not a string"},
      {"password-number", "{\"VPNType\": \"PPTP\", \"PPP\": {\"AuthPassword\": 7}}",
       ": \"PPP.AuthPassword\" must be a string or data, not a number"},
      {"null", "{\"VPNType\": \"PPTP\", \"PPP\": {\"AuthName\": null}}",
       " at PPP.AuthName: null is not a property value"},
      {"bad-base64", "{\"VPNType\": \"IPSec\", \"_certificateData\": {\"$data\": \"@@\"}}",
       " at _certificateData: \"$data\" is not valid base64"},
      {"missing-file", "{\"VPNType\": \"IPSec\", \"_certificateData\": {\"$file\": \"none.p12\"}}",
       " at _certificateData: cannot read the \"$file\""},
      {"duplicate", R"({"VPNType": "PPTP", "PPP": {"AuthName": "a", "AuthName": "b"}})",
       " at PPP.AuthName: the key appears more than once"},
      {"last-read", "{\"VPNType\": \"PPTP\", \"PPP\": {\"AuthPassword\": hunter2-secret}}",
       ":1:45: syntax error while parsing value - invalid literal"},
      {"control", "{\"VPNType\": \"PPTP\", \"PPP\": {\"AuthPassword\": \"hunter2-secret\n\"}}",
       ":1:60: syntax error while parsing value - invalid string: control character"},
      {"nul", R"({"VPNType": "PPTP", "PPP": {"AuthName": "a\u0000hunter2-secret"}})",
       " at PPP.AuthName: text that is not UTF-8, or holds a NUL"},
      {"huge-number", R"({"VPNType": "PPTP", "PPP": {"LCPEchoInterval": 1e999}})",
       ": a number beyond the range of a double"},
      {"deep", "{\"VPNType\": \"PPTP\", \"x\": " + std::string(100000, '['),
       ":1:100026: syntax error"},
      {"deep-valid",
       "{\"VPNType\": \"PPTP\", \"x\": " + std::string(300, '[') + std::string(300, ']') + "}",
       " at x[0][0][0]"},
      {"number-for-string", R"({"VPNType": "PPTP", "PPP": {"AuthName": 12345}})",
       ": \"PPP.AuthName\" must be a string, not a number"},
      {"list-of-numbers",
       R"({"VPNType": "VPN", "VPNSubType": "x", "VPN": {"OnDemandMatchDomainsNever": [1]}})",
       ": \"VPN.OnDemandMatchDomainsNever[0]\" must be a string, not a number"},
  };
  for (const BadPayload &bad : cases) {
    std::string file = workFile(std::string(bad.name) + ".json");
    writeFile(std::string(bad.name) + ".json", bad.text);
    ToolResult result = tool({"install", file});
    EXPECT_EQ(result.exitCode, 3) << bad.name << ": " << result.err;
    EXPECT_EQ(result.err.rfind("tarnwick: " + file + bad.message, 0), 0u) << result.err;
    EXPECT_EQ(result.err.find("hunter2"), std::string::npos) << result.err;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
  }
  // A directory is no payload either.
  ToolResult directory = tool({"install", workFile("")});
  EXPECT_EQ(directory.exitCode, 3);
  EXPECT_NE(directory.err.find("a directory, not a payload file"), std::string::npos)
      << directory.err;
  EXPECT_TRUE(storeUnchanged());
}

TEST_F(Errors, UnknownServiceIsNotFoundForEveryCommandThatNamesOne) {
  const std::vector<std::vector<std::string>> commands = {{"show", "nosuch"},
                                                          {"remove", "nosuch"},
                                                          {"get", "nosuch", "AuthName"},
                                                          {"set", "nosuch", "AuthName", "x"},
                                                          {"select", "nosuch"},
                                                          {"export", "nosuch"},
                                                          {"secret", "export", "nosuch"}};
  for (const auto &command : commands) {
    ToolResult result = tool(command);
    EXPECT_EQ(result.exitCode, 4) << command[0];
    EXPECT_EQ(result.err, "tarnwick: no VPN service has the identifier or name \"nosuch\"\n");
  }
  EXPECT_TRUE(storeUnchanged());
}

TEST_F(Errors, UsageErrorsAndSecretKeysAreRefusedWithTheUsageCode) {
  const std::vector<std::vector<std::string>> commands = {
      {"install"},
      {"password"},
      {"get", "x", "SharedSecret"},
      {"set", "Harbour Legacy (PPTP)", "AuthPassword", "plain"}};
  for (const auto &command : commands) {
    EXPECT_EQ(tool(command).exitCode, 2) << command[0];
  }
  EXPECT_EQ(tool({"password", "set", "Harbour Legacy (PPTP)"}, "").exitCode, 2);
  EXPECT_EQ(tool({"install", "--help"}).exitCode, 0);
  EXPECT_TRUE(storeUnchanged());
}

TEST_F(Errors, ToolWaitsForTheLockAndSaysSo) {
  auto holder = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreateWithStore(storeDir().c_str()));
  ASSERT_TRUE(ZNPreferencesLock(holder.get(), false));
  Running install = start({"install", example("l2tp.json")}, "waiting");
  bool saidSo = false;
  for (int i = 0; i < 600 && !saidSo; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    saidSo = fileBytes(install.errPath).find("waiting for another process") != std::string::npos;
  }
  EXPECT_TRUE(saidSo);
  ZNPreferencesUnlock(holder.get());
  ToolResult result = finish(install);
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.err,
            "tarnwick: waiting for another process to release the preferences lock...\n");
  EXPECT_EQ(tool({"--json", "list"}).json().size(), 2u);
}

}  // namespace
}  // namespace tw::test
