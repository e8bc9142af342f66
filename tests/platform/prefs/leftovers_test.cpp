// What killed sessions leave in a store directory: found by their names,
// removed when asked, and never a file of the store itself.
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "platform/prefs/support.hpp"
#include "support/test_support.hpp"
#include "tarnwick/platform/testing.h"

namespace tw::test {
namespace {

using PreferencesLeftovers = StoreTest;

std::string names(PVArrayRef array) {
  std::string joined;
  for (PVIndex i = 0; array && i < PVArrayGetCount(array); ++i) {
    joined += (i ? "," : "") + textOf(PVArrayGetValueAtIndex(array, i));
  }
  return joined;
}

std::string leftovers(ZNPreferencesRef prefs, bool remove) {
  return names(Ref<PVArrayRef>::adopt(ZNPreferencesCopyLeftoverFiles(prefs, remove)).get());
}

TEST_F(PreferencesLeftovers, OnlyTemporaryFilesAreFoundAndRemoved) {
  auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
  createService(prefs.get(), Chain::L2TP, "Kept");
  ASSERT_TRUE(ZNPreferencesCommitChanges(prefs.get()));  // the store's journal
  ASSERT_EQ(addCofferPassword("svc"), kVltSuccess);      // coffer.db and its journal
  ASSERT_TRUE(ZNNetworkConnectionSetStatusForServiceID(text("svc").get(), 1));
  auto touch = [&](const std::string &name) { std::ofstream(storeDir() + "/" + name) << "x"; };
  const char *kept[] = {"networkmanager.sync",
                        "vendor-plugins.conf",
                        "notes.txt",
                        ".hidden",
                        ".preferences.db.short",
                        "a.new-"};
  for (const char *name : kept) touch(name);
  const char *leftover[] = {".connections.json.Ab3dE9", ".preferences.db.x1Y2z3",
                            ".preferences.db.x1Y2z3-journal", "networkmanager.sync.new-4242"};
  for (const char *name : leftover) touch(name);
  // Named like one, but no regular file.
  std::filesystem::create_directory(storeDir() + "/.directory.ABCDEF");
  std::filesystem::create_symlink("/etc/passwd", storeDir() + "/.link.ABCDEF");

  const std::string expected =
      ".connections.json.Ab3dE9,.preferences.db.x1Y2z3,.preferences.db.x1Y2z3-journal,"
      "networkmanager.sync.new-4242";
  EXPECT_EQ(leftovers(prefs.get(), false), expected);
  EXPECT_EQ(leftovers(prefs.get(), false), expected);  // listing removes nothing
  EXPECT_EQ(leftovers(prefs.get(), true), expected);
  EXPECT_EQ(leftovers(prefs.get(), false), "");
  for (const char *name : leftover) EXPECT_FALSE(std::filesystem::exists(storeDir() + "/" + name));
  for (const char *name :
       {"preferences.db", "preferences.db-journal", "preferences.lock", "coffer.db",
        "coffer.db-journal", "connections.json", "connections.lock"}) {
    EXPECT_TRUE(std::filesystem::exists(storeDir() + "/" + name)) << name;
  }
  for (const char *name : kept) EXPECT_TRUE(std::filesystem::exists(storeDir() + "/" + name));
  EXPECT_TRUE(std::filesystem::is_symlink(storeDir() + "/.link.ABCDEF"));
  EXPECT_EQ(serviceNames(Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate()).get()), "Kept");
}

// A new store is built aside and renamed into place: a process killed
// while building it leaves the half-built file, which a new open does not
// take for the store and the next look finds.
TEST_F(PreferencesLeftovers, StoreKilledWhileBeingMadeLeavesItsTemporaryFile) {
  fflush(nullptr);
  pid_t child = fork();
  if (child == 0) {
    PTStopAtNthCall("storage.write", 2);
    ZNPreferencesCreate();
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, WUNTRACED), child);
  ASSERT_TRUE(WIFSTOPPED(status));
  kill(child, SIGKILL);
  ASSERT_EQ(waitpid(child, &status, 0), child);

  auto prefs = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
  ASSERT_TRUE(prefs);
  std::string found = leftovers(prefs.get(), true);
  EXPECT_EQ(found.rfind(".preferences.db.", 0), 0u) << found;
  EXPECT_EQ(leftovers(prefs.get(), false), "");
  auto sets = Ref<PVArrayRef>::adopt(ZNNetworkSetCopyAll(prefs.get()));
  EXPECT_EQ(PVArrayGetCount(sets.get()), 1);
}

TEST_F(PreferencesLeftovers, LookIsMadeUnderTheLock) {
  auto holder = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
  auto other = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate());
  ASSERT_TRUE(ZNPreferencesLock(holder.get(), false));
  EXPECT_EQ(ZNPreferencesCopyLeftoverFiles(other.get(), false), nullptr);
  EXPECT_EQ(ZNError(), kZNStatusLockFailed);
  EXPECT_EQ(leftovers(holder.get(), false), "");  // its own lock serves
  EXPECT_EQ(ZNPreferencesCopyLeftoverFiles(nullptr, false), nullptr);
  EXPECT_EQ(ZNError(), kZNStatusInvalidArgument);
}

}  // namespace
}  // namespace tw::test
