// Sessions on a store: opening, visibility of changes, the lock, staleness
// and apply, within one process and across processes.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "platform/prefs/support.hpp"
#include "support/test_support.hpp"

namespace tw::test {
namespace {

Ref<ZNPreferencesRef> open() { return Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate()); }

std::string currentSetID(ZNPreferencesRef prefs) {
  auto set = Ref<ZNNetworkSetRef>::adopt(ZNNetworkSetCopyCurrent(prefs));
  return textOf(ZNNetworkSetGetSetID(set.get()));
}

using PreferencesOpen = StoreTest;

TEST_F(PreferencesOpen, NewStoreHasOneCurrentDefaultSetThatEveryProcessShares) {
  auto prefs = open();
  ASSERT_TRUE(prefs);
  EXPECT_EQ(ZNPreferencesGetStoreDirectory(prefs.get()), storeDir());
  auto sets = Ref<PVArrayRef>::adopt(ZNNetworkSetCopyAll(prefs.get()));
  ASSERT_EQ(PVArrayGetCount(sets.get()), 1);
  EXPECT_EQ(textOf(ZNNetworkSetGetName(at<ZNNetworkSetRef>(sets.get(), 0))), "Default");
  const std::string id = currentSetID(prefs.get());
  EXPECT_EQ(textOf(ZNNetworkSetGetSetID(at<ZNNetworkSetRef>(sets.get(), 0))), id);
  EXPECT_EQ(runInChildProcess([&] { return currentSetID(open().get()) == id; }), 0);
}

TEST_F(PreferencesOpen, CreateMakesAMissingStoreDirectoryPrivateToTheUser) {
  const std::string nested = storeDir() + "/state/tarnwick";
  ZNStoreSetDirectory(nested.c_str());
  ASSERT_TRUE(open());
  for (const std::string &dir : {storeDir() + "/state", nested}) {
    struct stat info;
    ASSERT_EQ(stat(dir.c_str(), &info), 0) << dir;
    EXPECT_EQ(info.st_mode & 0777, 0700u) << dir;
  }
}

TEST_F(PreferencesOpen, MissingOrUnwritableDirectoryFailsWithItsOwnCode) {
  const std::string missing = storeDir() + "/missing";
  EXPECT_EQ(ZNPreferencesCreateWithStore(missing.c_str()), nullptr);
  EXPECT_EQ(ZNError(), kZNStatusNoStore);
  EXPECT_STRNE(ZNErrorString(ZNError()), ZNErrorString(-12345));
  EXPECT_FALSE(std::filesystem::exists(missing));

  if (geteuid() == 0) GTEST_SKIP() << "root bypasses directory permissions";
  ASSERT_TRUE(open());  // a store with a document
  chmod(storeDir().c_str(), 0500);
  EXPECT_EQ(ZNPreferencesCreateWithStore(storeDir().c_str()), nullptr);
  EXPECT_EQ(ZNError(), kZNStatusAccessDenied);
  chmod(storeDir().c_str(), 0700);
}

TEST_F(PreferencesOpen, CorruptOrMisshapenDocumentFailsAndIsNeverReplaced) {
  const std::string document = storeDir() + "/preferences.json";
  const char *cases[] = {
      "{\"generation\": 1, \"sets\": [",  // not JSON
      "[]",                               // not an object
      R"({"generation": 1, "sets": {}, "services": []})",
      R"({"generation": 0, "sets": [], "services": []})",
      R"({"generation": 1, "sets": [{"id": "s", "services": ["gone"]}], "services": []})",
      R"({"generation": 1, "sets": [], "services": [{"id": "a", "enabled": true,
          "interfaces": [{"type": "IPSec", "configuration": [1]}], "protocols": []}]})",
      R"({"generation": 1, "sets": [], "services": [{"id": "a", "enabled": true,
          "interfaces": [], "protocols": []}]})",
  };
  for (const char *bytes : cases) {
    std::ofstream(document, std::ios::trunc) << bytes;
    EXPECT_EQ(ZNPreferencesCreateWithStore(storeDir().c_str()), nullptr) << bytes;
    EXPECT_EQ(ZNError(), kZNStatusCorruptStore) << bytes;
    EXPECT_EQ(fileBytes(document), bytes);
  }
}

using PreferencesSession = StoreTest;

TEST_F(PreferencesSession, ChangesStayInTheSessionUntilCommitThenSurviveInANewProcess) {
  auto writer = open();
  auto reader = open();
  createL2TPService(writer.get(), "Office");
  EXPECT_EQ(serviceNames(writer.get()), "Office");
  EXPECT_EQ(serviceNames(open().get()), "");
  EXPECT_EQ(runInChildProcess([] { return serviceNames(open().get()).empty(); }), 0);

  ASSERT_TRUE(ZNPreferencesCommitChanges(writer.get()));
  EXPECT_EQ(serviceNames(reader.get()), "");  // its copy is older
  EXPECT_EQ(runInChildProcess([] { return serviceNames(open().get()) == "Office"; }), 0);
}

using PreferencesLock = StoreTest;

TEST_F(PreferencesLock, StaleSessionCannotLockOrCommitUntilSynchronized) {
  auto first = open();
  auto second = open();
  createL2TPService(first.get(), "Lost");
  createL2TPService(second.get(), "Kept");
  ASSERT_TRUE(ZNPreferencesCommitChanges(second.get()));

  EXPECT_FALSE(ZNPreferencesLock(first.get(), true));
  EXPECT_EQ(ZNError(), kZNStatusStale);
  EXPECT_FALSE(ZNPreferencesCommitChanges(first.get()));
  EXPECT_EQ(ZNError(), kZNStatusStale);
  // The failed lock holds nothing.
  EXPECT_TRUE(ZNPreferencesLock(second.get(), false));
  EXPECT_TRUE(ZNPreferencesUnlock(second.get()));

  ZNPreferencesSynchronize(first.get());
  EXPECT_EQ(serviceNames(first.get()), "Kept");  // its own change is dropped
  EXPECT_TRUE(ZNPreferencesLock(first.get(), false));
  EXPECT_TRUE(ZNPreferencesUnlock(first.get()));

  // The same when the other session is in another process.
  ASSERT_EQ(runInChildProcess([] {
              auto child = open();
              createL2TPService(child.get(), "From child");
              return ZNPreferencesCommitChanges(child.get()) != 0;
            }),
            0);
  EXPECT_FALSE(ZNPreferencesLock(first.get(), true));
  EXPECT_EQ(ZNError(), kZNStatusStale);
  ZNPreferencesSynchronize(first.get());
  EXPECT_TRUE(ZNPreferencesLock(first.get(), true));
  EXPECT_EQ(serviceNames(first.get()), "Kept,From child");
}

TEST_F(PreferencesLock, TwoSessionsOfOneProcessExcludeEachOther) {
  auto first = open();
  auto second = open();
  EXPECT_FALSE(ZNPreferencesUnlock(first.get()));
  EXPECT_EQ(ZNError(), kZNStatusNotLocked);
  ASSERT_TRUE(ZNPreferencesLock(first.get(), false));
  EXPECT_FALSE(ZNPreferencesLock(second.get(), false));
  EXPECT_EQ(ZNError(), kZNStatusLockFailed);
  // A commit inside the lock keeps it.
  createL2TPService(first.get(), "Inside");
  EXPECT_TRUE(ZNPreferencesCommitChanges(first.get()));
  EXPECT_FALSE(ZNPreferencesLock(second.get(), false));
  first = {};  // releasing the session releases its lock
  ZNPreferencesSynchronize(second.get());
  EXPECT_TRUE(ZNPreferencesLock(second.get(), false));
}

TEST_F(PreferencesLock, WaitingLockSucceedsOnceAnotherProcessReleasesIt) {
  auto prefs = open();
  int held[2], release[2];
  ASSERT_EQ(pipe(held), 0);
  ASSERT_EQ(pipe(release), 0);
  const std::string marker = storeDir() + "/released";
  fflush(nullptr);
  pid_t child = fork();
  if (child == 0) {
    auto other = open();
    char signal = ZNPreferencesLock(other.get(), true) ? 'L' : 'F';
    if (write(held[1], &signal, 1) != 1 || read(release[0], &signal, 1) != 1) _exit(1);
    usleep(100 * 1000);  // the parent is meant to be waiting by now
    close(::open(marker.c_str(), O_CREAT | O_WRONLY, 0600));
    _exit(ZNPreferencesUnlock(other.get()) ? 0 : 1);
  }
  char signal = 0;
  ASSERT_EQ(read(held[0], &signal, 1), 1);
  ASSERT_EQ(signal, 'L');
  EXPECT_FALSE(ZNPreferencesLock(prefs.get(), false));
  EXPECT_EQ(ZNError(), kZNStatusLockFailed);
  ASSERT_EQ(write(release[1], "g", 1), 1);
  EXPECT_TRUE(ZNPreferencesLock(prefs.get(), true));
  EXPECT_TRUE(std::filesystem::exists(marker));  // granted only after the child let go
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  for (int fd : {held[0], held[1], release[0], release[1]}) close(fd);
}

using PreferencesApply = StoreTest;

TEST_F(PreferencesApply, ApplyRecordsTheCommittedGenerationForEveryProcess) {
  auto prefs = open();
  EXPECT_EQ(ZNPreferencesGetAppliedGeneration(prefs.get()), 0);
  createL2TPService(prefs.get(), "Applied");
  ASSERT_TRUE(ZNPreferencesCommitChanges(prefs.get()));
  ASSERT_TRUE(ZNPreferencesApplyChanges(prefs.get()));
  EXPECT_EQ(ZNPreferencesGetAppliedGeneration(prefs.get()), 2);
  ASSERT_TRUE(ZNPreferencesCommitChanges(prefs.get()));  // nothing changed: no new generation
  ASSERT_TRUE(ZNPreferencesApplyChanges(prefs.get()));
  EXPECT_EQ(ZNPreferencesGetAppliedGeneration(prefs.get()), 2);
  EXPECT_EQ(runInChildProcess([] { return ZNPreferencesGetAppliedGeneration(open().get()) == 2; }),
            0);
}

}  // namespace
}  // namespace tw::test
