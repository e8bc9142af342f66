// The store a command names: made when an install needs it, safely; named
// as missing by every other command; readable when only readable; locked
// with a bounded wait.
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>

#include "cli/tool_runner.hpp"
#include "tarnwick.h"

namespace tw::test {
namespace {

using Stores = CliTest;
using nlohmann::json;

bool exists(const std::string &path) {
  struct stat info {};
  return lstat(path.c_str(), &info) == 0;
}

TEST_F(Stores, InstallMakesAMissingStoreAndEveryOtherCommandSaysItIsMissing) {
  std::string store = workFile("state/deeper/store");
  const std::vector<std::vector<std::string>> others = {
      {"list"}, {"dump"}, {"status"}, {"show", "x"}, {"remove", "x"}, {"select", "x"},
      {"set", "x", "AuthName", "y"}, {"secret", "export", "x"}, {"export", "x"}};
  for (const auto &command : others) {
    ToolResult result = toolIn(store, command);
    EXPECT_EQ(result.exitCode, 5) << command[0];
    EXPECT_EQ(result.err, "tarnwick: no store at " + store + ": nothing was installed there\n");
  }
  EXPECT_FALSE(exists(workFile("state")));

  ToolResult installed = toolIn(store, {"install", example("pptp.json")});
  ASSERT_EQ(installed.exitCode, 0) << installed.err;
  for (const char *made : {"state", "state/deeper", "state/deeper/store"}) {
    struct stat info {};
    ASSERT_EQ(stat(workFile(made).c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700u) << made;
  }
  EXPECT_EQ(toolIn(store, {"--json", "list"}).json().size(), 1u);
}

// Each refusal names its real cause, and nothing is made on the way.
TEST_F(Stores, StoreIsNeverMadeThroughALinkAForeignDirectoryOrAFile) {
  if (geteuid() != 0) GTEST_SKIP() << "making a directory another user owns needs root";
  std::filesystem::create_directory(workFile("real"));
  ASSERT_EQ(symlink(workFile("real").c_str(), workFile("link").c_str()), 0);
  std::filesystem::create_directory(workFile("foreign"));
  ASSERT_EQ(chown(workFile("foreign").c_str(), 65534, 65534), 0);
  writeFile("file", "not a directory");
  struct Case {
    std::string store;
    std::string message;
  } cases[] = {
      {workFile("link/store"), "will not make the store through " + workFile("link") +
                                   ", a symbolic link"},
      {workFile("foreign/store"), "will not make the store through " + workFile("foreign") +
                                      ", a directory another user owns"},
      {workFile("file/store"), "cannot open the store " + workFile("file/store") + ": Not a directory"},
      {workFile("file"), "the store " + workFile("file") + " is not a directory"},
  };
  for (const Case &bad : cases) {
    ToolResult result = toolIn(bad.store, {"install", example("pptp.json")});
    EXPECT_EQ(result.exitCode, 5) << bad.store;
    EXPECT_EQ(result.err.rfind("tarnwick: " + bad.message, 0), 0u) << result.err;
  }
  EXPECT_FALSE(exists(workFile("real/store")));
  EXPECT_FALSE(exists(workFile("foreign/store")));
}

// A store its reader may not write (root's, read by a user) can be listed
// and shown; a change fails and leaves it as it was.
TEST_F(Stores, ReadOnlyStoreCanBeRead) {
  if (geteuid() != 0 || std::string(TARNWICK_TOOL_EMULATOR) != "") {
    GTEST_SKIP() << "needs root to run the tool as another user";
  }
  std::string store = workFile("shared");
  ASSERT_EQ(toolIn(store, {"install", example("l2tp.json")}).exitCode, 0);
  std::string dump = toolIn(store, {"dump"}).out;
  // Readable by everyone, writable by root alone.
  ASSERT_EQ(chmod(workFile("").c_str(), 0755), 0);
  ASSERT_EQ(chmod(store.c_str(), 0755), 0);
  for (const auto &entry : std::filesystem::directory_iterator(store)) {
    ASSERT_EQ(chmod(entry.path().c_str(), 0644), 0);
  }
  auto asNobody = [&](const std::string &arguments) {
    std::string out = workFile("nobody.out");
    std::string command = std::string("setpriv --reuid=65534 --regid=65534 --clear-groups ") +
                          TARNWICK_TOOL + " --store " + store + " " + arguments + " >" + out +
                          " 2>&1";
    int status = std::system(command.c_str());
    return std::make_pair(WEXITSTATUS(status), fileBytes(out));
  };
  auto [listed, list] = asNobody("--json list");
  EXPECT_EQ(listed, 0) << list;
  EXPECT_NE(list.find("Harbour Office (L2TP)"), std::string::npos) << list;
  auto [shown, show] = asNobody("show 'Harbour Office (L2TP)'");
  EXPECT_EQ(shown, 0) << show;
  EXPECT_NE(show.find("Shared secret     stored"), std::string::npos) << show;
  auto [changed, change] = asNobody("set 'Harbour Office (L2TP)' AuthName bob");
  EXPECT_NE(changed, 0) << change;
  EXPECT_EQ(toolIn(store, {"dump"}).out, dump);
}

TEST_F(Stores, LockWaitIsBoundedWhenAsked) {
  ASSERT_EQ(tool({"install", example("pptp.json")}).exitCode, 0);
  auto holder = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreateWithStore(storeDir().c_str()));
  ASSERT_TRUE(ZNPreferencesLock(holder.get(), false));
  ToolResult noWait = tool({"--no-wait", "select", "Harbour Legacy (PPTP)"});
  EXPECT_EQ(noWait.exitCode, 6);
  EXPECT_EQ(noWait.err,
            "tarnwick: another process holds the preferences lock (--no-wait)\n");
  ToolResult bounded = tool({"select", "Harbour Legacy (PPTP)", "--wait", "0.3"});
  EXPECT_EQ(bounded.exitCode, 6);
  EXPECT_NE(bounded.err.find("held the preferences lock for 0.3 seconds; gave up"),
            std::string::npos)
      << bounded.err;
  // Reading needs no lock.
  EXPECT_EQ(tool({"--no-wait", "list"}).exitCode, 0);
  ZNPreferencesUnlock(holder.get());
  EXPECT_EQ(tool({"--no-wait", "select", "Harbour Legacy (PPTP)"}).exitCode, 0);
  EXPECT_EQ(tool({"--wait", "-1", "list"}).exitCode, 2);
}

}  // namespace
}  // namespace tw::test
