// Sessions on a store: opening, visibility of changes, the lock, staleness,
// commit and apply, within one process and across processes.
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include "platform/prefs/session.hpp"
#include "platform/prefs/support.hpp"
#include "support/test_support.hpp"
#include "tarnwick/platform/testing.h"

namespace tw::test {
namespace {

Ref<ZNPreferencesRef> open() { return Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreate()); }

std::string currentSetID(ZNPreferencesRef prefs) {
  auto set = Ref<ZNNetworkSetRef>::adopt(ZNNetworkSetCopyCurrent(prefs));
  return textOf(ZNNetworkSetGetSetID(set.get()));
}

bool lockAndUnlock(ZNPreferencesRef prefs) {
  return ZNPreferencesLock(prefs, false) && ZNPreferencesUnlock(prefs);
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

TEST_F(PreferencesOpen, StoreFilesArePrivateToTheUserInAPrivateDirectory) {
  const std::string nested = storeDir() + "/state/tarnwick";
  ZNStoreSetDirectory(nested.c_str());
  auto prefs = open();
  ASSERT_TRUE(prefs);
  createService(prefs.get(), Chain::L2TP, "Committed");
  ASSERT_TRUE(ZNPreferencesCommitChanges(prefs.get()));
  for (const std::string &path : {storeDir() + "/state", nested}) {
    struct stat info;
    ASSERT_EQ(stat(path.c_str(), &info), 0) << path;
    EXPECT_EQ(info.st_mode & 0777, 0700u) << path;
  }
  int files = 0;
  for (const auto &entry : std::filesystem::directory_iterator(nested)) {
    struct stat info;
    ASSERT_EQ(stat(entry.path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u) << entry.path();
    ++files;
  }
  EXPECT_GE(files, 2);  // the database and the lock file, perhaps the journal
}

// A store the caller may read but not write opens; a change fails to commit.
TEST_F(PreferencesOpen, MissingDirectoryFailsAndAReadOnlyOneOpensForReading) {
  const std::string missing = storeDir() + "/missing";
  EXPECT_EQ(ZNPreferencesCreateWithStore(missing.c_str()), nullptr);
  EXPECT_EQ(ZNError(), kZNStatusNoStore);
  EXPECT_STRNE(ZNErrorString(ZNError()), ZNErrorString(-12345));
  EXPECT_FALSE(std::filesystem::exists(missing));

  if (geteuid() == 0) GTEST_SKIP() << "root bypasses directory permissions";
  ASSERT_TRUE(open());  // a store with a database
  chmod(storeDir().c_str(), 0500);
  chmod((storeDir() + "/preferences.db").c_str(), 0400);
  auto readOnly = Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreateWithStore(storeDir().c_str()));
  ASSERT_TRUE(readOnly);
  auto set = Ref<ZNNetworkSetRef>::adopt(ZNNetworkSetCreate(readOnly.get()));
  EXPECT_FALSE(ZNPreferencesCommitChanges(readOnly.get()));
  chmod((storeDir() + "/preferences.db").c_str(), 0600);
  chmod(storeDir().c_str(), 0700);
}

TEST_F(PreferencesOpen, ForeignCorruptOrNewerDatabaseFailsAndIsNeverWritten) {
  const std::string database = storeDir() + "/preferences.db";
  const std::string ours = "PRAGMA application_id=1415008326;";  // "TWPF"
  struct Case {
    const char *what;
    std::string sql;  // run on a new file; empty: the raw bytes below instead
    std::string bytes;
  } cases[] = {
      {"not a database", "", "{\"generation\": 1, \"sets\": []}"},
      {"empty file", "", ""},
      {"another application's", "PRAGMA user_version=1; CREATE TABLE store(x);", ""},
      {"a newer schema", ours + "PRAGMA user_version=2; CREATE TABLE store(x);", ""},
      {"write-ahead log",
       ours + "PRAGMA user_version=1; PRAGMA journal_mode=WAL; CREATE TABLE t(x);", ""},
      {"ours without its tables", ours + "PRAGMA user_version=1; CREATE TABLE other(x);", ""},
  };
  for (const Case &c : cases) {
    std::filesystem::remove(database);
    if (c.sql.empty()) {
      std::ofstream(database, std::ios::binary) << c.bytes;
    } else {
      runSql(database, c.sql);
    }
    const std::string before = fileBytes(database);
    const auto entries = std::distance(std::filesystem::directory_iterator(storeDir()), {});
    EXPECT_EQ(ZNPreferencesCreateWithStore(storeDir().c_str()), nullptr) << c.what;
    EXPECT_EQ(ZNError(), kZNStatusCorruptStore) << c.what;
    EXPECT_EQ(fileBytes(database), before) << c.what;
    // Nothing beside it either: no journal, no second database. The lock
    // file is made by the first open.
    EXPECT_LE(std::distance(std::filesystem::directory_iterator(storeDir()), {}), entries + 1)
        << c.what;
  }
}

TEST_F(PreferencesOpen, SymbolicLinksInPlaceOfStoreFilesAreRefusedNotFollowed) {
  const std::string target = storeDir() + "/elsewhere";
  ASSERT_EQ(symlink(target.c_str(), (storeDir() + "/preferences.lock").c_str()), 0);
  EXPECT_EQ(ZNPreferencesCreateWithStore(storeDir().c_str()), nullptr);
  EXPECT_NE(ZNError(), kZNStatusOK);
  EXPECT_FALSE(std::filesystem::exists(target));
  std::filesystem::remove(storeDir() + "/preferences.lock");

  // A store elsewhere, linked in as this directory's database.
  const std::string other = storeDir() + "/other";
  std::filesystem::create_directory(other);
  ASSERT_TRUE(Ref<ZNPreferencesRef>::adopt(ZNPreferencesCreateWithStore(other.c_str())));
  ASSERT_EQ(symlink((other + "/preferences.db").c_str(), (storeDir() + "/preferences.db").c_str()),
            0);
  EXPECT_EQ(ZNPreferencesCreateWithStore(storeDir().c_str()), nullptr);
  EXPECT_NE(ZNError(), kZNStatusOK);
}

TEST_F(PreferencesOpen, DatabaseIsOpenedWithTheDurabilityTheStorePromises) {
  auto prefs = open();
  sqlite3 *db = static_cast<ZNPreferences *>(prefs.get())->db.get();
  auto pragma = [&](const char *sql) {
    sqlite3_stmt *statement = nullptr;
    sqlite3_prepare_v2(db, sql, -1, &statement, nullptr);
    std::string value;
    if (sqlite3_step(statement) == SQLITE_ROW) {
      value = reinterpret_cast<const char *>(sqlite3_column_text(statement, 0));
    }
    sqlite3_finalize(statement);
    return value;
  };
  EXPECT_EQ(pragma("PRAGMA journal_mode"), "truncate");  // a rollback journal, never WAL
  EXPECT_EQ(pragma("PRAGMA synchronous"), "2");          // FULL
}

using PreferencesSession = StoreTest;

// Changes stay in their session until it commits, and a session opened
// before the commit keeps its older copy; a new process reads what each
// commit wrote.
TEST_F(PreferencesSession, CommitWritesOnlyTheRowsItChanged) {
  auto older = open();
  {
    auto prefs = open();
    auto set = Ref<ZNNetworkSetRef>::adopt(ZNNetworkSetCopyCurrent(prefs.get()));
    for (int i = 0; i < 20; ++i) {
      auto service =
          createService(prefs.get(), Chain::L2TP, ("Service " + std::to_string(i)).c_str());
      ZNNetworkSetAddService(set.get(), service.get());
      ZNNetworkSetSetSelectedVPNService(set.get(), service.get());
    }
    EXPECT_EQ(serviceNames(open().get()), "");
    ASSERT_TRUE(ZNPreferencesCommitChanges(prefs.get()));
  }
  EXPECT_EQ(serviceNames(older.get()), "");
  auto prefs = open();
  auto set = Ref<ZNNetworkSetRef>::adopt(ZNNetworkSetCopyCurrent(prefs.get()));
  auto services = Ref<PVArrayRef>::adopt(ZNNetworkServiceCopyAll(prefs.get()));
  auto first = at<ZNNetworkServiceRef>(services.get(), 0);
  auto last = at<ZNNetworkServiceRef>(services.get(), 19);
  struct Step {
    const char *what;
    std::function<bool()> change;
    long rows;
  } steps[] = {
      {"a rename", [&] { return ZNNetworkServiceSetName(first, text("Renamed").get()); }, 1},
      {"a new service in the set",
       [&] {
         auto service = createService(prefs.get(), Chain::L2TP, "New");
         return ZNNetworkSetAddService(set.get(), service.get());
       },
       2},
      {"the selected member removed",  // its row, its membership, the set's selection
       [&] { return ZNNetworkServiceRemove(last); }, 3},
      {"nothing", [] { return true; }, 0},
  };
  for (const Step &step : steps) {
    PTReset();
    ASSERT_TRUE(step.change()) << step.what;
    ASSERT_TRUE(ZNPreferencesCommitChanges(prefs.get())) << step.what;
    EXPECT_EQ(PTCallCount("commit.row"), step.rows) << step.what;
  }
  EXPECT_EQ(runInChildProcess([] {
              auto reader = open();
              auto current = Ref<ZNNetworkSetRef>::adopt(ZNNetworkSetCopyCurrent(reader.get()));
              auto members = Ref<PVArrayRef>::adopt(ZNNetworkSetCopyServices(current.get()));
              std::string names = serviceNames(reader.get());
              return names.rfind("Renamed,Service 1,", 0) == 0 &&
                     names.find("Service 19") == std::string::npos &&
                     names.ends_with("Service 18,New") && PVArrayGetCount(members.get()) == 20 &&
                     ZNNetworkSetCopySelectedVPNService(current.get()) == nullptr;
            }),
            0);
}

TEST_F(PreferencesSession, CommitAfterSynchronizeDroppedTheChangesWritesNothing) {
  auto session = open();
  auto other = open();
  createService(session.get(), Chain::L2TP, "Dropped");
  ZNPreferencesSynchronize(session.get());
  ASSERT_TRUE(ZNPreferencesCommitChanges(session.get()));
  EXPECT_EQ(PTCallCount("commit.row"), 0);
  EXPECT_TRUE(lockAndUnlock(other.get()));  // no new generation made it stale
  EXPECT_EQ(serviceNames(open().get()), "");
}

TEST_F(PreferencesSession, CommitAtTheLastGenerationFailsAndLeavesTheStoreReadable) {
  ASSERT_TRUE(open());
  ASSERT_EQ(runSql(storeDir() + "/preferences.db",
                   "UPDATE store SET generation = 9223372036854775807, applied = 0"),
            "");
  auto prefs = open();
  ASSERT_TRUE(prefs);
  createService(prefs.get(), Chain::L2TP, "One too many");
  EXPECT_FALSE(ZNPreferencesCommitChanges(prefs.get()));
  EXPECT_EQ(ZNError(), kZNStatusFailed);
  auto reader = open();
  ASSERT_TRUE(reader);
  EXPECT_EQ(serviceNames(reader.get()), "");
  EXPECT_TRUE(lockAndUnlock(reader.get()));
}

using PreferencesLock = StoreTest;

TEST_F(PreferencesLock, StaleSessionCannotLockOrCommitUntilSynchronized) {
  auto first = open();
  auto second = open();
  createService(first.get(), Chain::L2TP, "Lost");
  createService(second.get(), Chain::L2TP, "Kept");
  ASSERT_TRUE(ZNPreferencesCommitChanges(second.get()));

  EXPECT_FALSE(ZNPreferencesLock(first.get(), true));
  EXPECT_EQ(ZNError(), kZNStatusStale);
  EXPECT_FALSE(ZNPreferencesCommitChanges(first.get()));
  EXPECT_EQ(ZNError(), kZNStatusStale);
  EXPECT_TRUE(lockAndUnlock(second.get()));  // the failed lock holds nothing

  ZNPreferencesSynchronize(first.get());
  EXPECT_EQ(serviceNames(first.get()), "Kept");  // its own change is dropped
  EXPECT_TRUE(lockAndUnlock(first.get()));

  // The same when the other session is in another process.
  ASSERT_EQ(runInChildProcess([] {
              auto child = open();
              createService(child.get(), Chain::L2TP, "From child");
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
  createService(first.get(), Chain::L2TP, "Inside");
  EXPECT_TRUE(ZNPreferencesCommitChanges(first.get()));
  EXPECT_FALSE(ZNPreferencesLock(second.get(), false));
  first = {};  // releasing the session releases its lock
  ZNPreferencesSynchronize(second.get());
  EXPECT_TRUE(ZNPreferencesLock(second.get(), false));
}

// Lock, commit and apply each wait while another process holds the lock,
// and go ahead once it lets go.
TEST_F(PreferencesLock, LockCommitAndApplyWaitForAnotherProcessToRelease) {
  const std::pair<const char *, std::function<bool(ZNPreferencesRef)>> operations[] = {
      {"lock", [](ZNPreferencesRef prefs) { return ZNPreferencesLock(prefs, true) != 0; }},
      {"commit",
       [](ZNPreferencesRef prefs) {
         createService(prefs, Chain::L2TP, "Waited");
         return ZNPreferencesCommitChanges(prefs) != 0;
       }},
      {"apply", [](ZNPreferencesRef prefs) { return ZNPreferencesApplyChanges(prefs) != 0; }},
  };
  for (const auto &[what, operation] : operations) {
    auto prefs = open();
    int held[2], release[2];
    ASSERT_EQ(pipe(held), 0);
    ASSERT_EQ(pipe(release), 0);
    const std::string marker = storeDir() + "/released";
    std::filesystem::remove(marker);
    const pid_t parent = getpid();
    fflush(nullptr);
    pid_t child = fork();
    if (child == 0) {
      auto other = open();
      char signal = ZNPreferencesLock(other.get(), true) ? 'L' : 'F';
      if (write(held[1], &signal, 1) != 1 || read(release[0], &signal, 1) != 1) _exit(1);
      // Lets go only once the parent is blocked on the lock; the parent
      // writes again when its operation returned without waiting.
      auto parentReturned = [&] {
        pollfd pending{release[0], POLLIN, 0};
        return poll(&pending, 1, 0) > 0;
      };
      if (!waitUntilBlockedOnLock(storeDir() + "/preferences.lock", parent, parentReturned)) {
        _exit(1);
      }
      close(::open(marker.c_str(), O_CREAT | O_WRONLY, 0600));
      _exit(ZNPreferencesUnlock(other.get()) ? 0 : 1);
    }
    char signal = 0;
    ASSERT_EQ(read(held[0], &signal, 1), 1);
    ASSERT_EQ(signal, 'L');
    EXPECT_FALSE(ZNPreferencesLock(prefs.get(), false));
    EXPECT_EQ(ZNError(), kZNStatusLockFailed);
    ASSERT_EQ(write(release[1], "g", 1), 1);
    EXPECT_TRUE(operation(prefs.get())) << what;
    EXPECT_TRUE(std::filesystem::exists(marker)) << what;  // only after the child let go
    ASSERT_EQ(write(release[1], "r", 1), 1);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    for (int fd : {held[0], held[1], release[0], release[1]}) close(fd);
  }
  EXPECT_EQ(serviceNames(open().get()), "Waited");
}

TEST_F(PreferencesLock, NoThreadWaitsForTheLockItHoldsThroughAnotherSession) {
  auto holder = open();
  auto modified = open();
  auto unmodified = open();
  createService(modified.get(), Chain::L2TP, "Never");
  ASSERT_TRUE(ZNPreferencesLock(holder.get(), true));
  const std::pair<const char *, std::function<bool()>> blocked[] = {
      {"lock", [&] { return ZNPreferencesLock(modified.get(), true) != 0; }},
      {"commit", [&] { return ZNPreferencesCommitChanges(modified.get()) != 0; }},
      {"commit of nothing", [&] { return ZNPreferencesCommitChanges(unmodified.get()) != 0; }},
      {"apply", [&] { return ZNPreferencesApplyChanges(unmodified.get()) != 0; }},
      {"open of a store without a database",
       [&] {
         std::filesystem::remove(storeDir() + "/preferences.db");
         return static_cast<bool>(open());
       }},
  };
  for (const auto &[what, call] : blocked) {
    EXPECT_FALSE(call()) << what;
    EXPECT_EQ(ZNError(), kZNStatusLockFailed) << what;
  }

  // A session of another thread does wait, and gets the lock once it is free.
  std::atomic<bool> locked = false, returned = false;
  std::thread other([&] {
    auto prefs = open();
    locked = prefs && ZNPreferencesLock(prefs.get(), true);
    returned = true;
  });
  EXPECT_TRUE(waitUntilBlockedOnLock(storeDir() + "/preferences.lock", getpid(),
                                     [&] { return returned.load(); }));
  EXPECT_FALSE(locked);
  ASSERT_TRUE(ZNPreferencesUnlock(holder.get()));
  other.join();
  EXPECT_TRUE(locked);
}

using PreferencesApply = StoreTest;

TEST_F(PreferencesApply, ApplyRecordsTheCommittedGenerationForEveryProcess) {
  auto prefs = open();
  EXPECT_EQ(ZNPreferencesGetAppliedGeneration(prefs.get()), 0);
  createService(prefs.get(), Chain::L2TP, "Applied");
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
