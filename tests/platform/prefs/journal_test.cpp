// The rollback journal through the platform's SQLite layer, which reuses a
// journal that is there without syncing its directory again: a missing one
// is still made, and a hot one still rolls back a transaction that died.
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "platform/prefs/database.hpp"
#include "support/test_support.hpp"

namespace tw::test {
namespace {

using Journal = StoreTest;

int64_t countRows(zn::Database &db) {
  zn::Statement count(db, "SELECT count(*) FROM t");
  return count.step() ? count.integer(0) : -1;
}

TEST_F(Journal, AMissingJournalIsMadeAndAPresentOneReused) {
  const std::string path = storeDir() + "/journal.db";
  std::ofstream(path).close();
  zn::Database db = zn::openDatabase(path);
  db.execute("CREATE TABLE t(x)");
  const std::string journal = path + "-journal";
  ASSERT_TRUE(std::filesystem::exists(journal));  // truncated, not deleted
  db.execute("INSERT INTO t VALUES (1)");
  std::filesystem::remove(journal);
  db.execute("INSERT INTO t VALUES (2)");
  EXPECT_TRUE(std::filesystem::exists(journal));
  EXPECT_EQ(countRows(db), 2);
}

// A writer killed after its changes reached the database file but before
// its commit leaves a hot journal: the next connection rolls it back.
TEST_F(Journal, AHotJournalRollsBackTheTransactionThatDied) {
  const std::string path = storeDir() + "/journal.db";
  std::ofstream(path).close();
  {
    zn::Database db = zn::openDatabase(path);
    db.execute("CREATE TABLE t(x); INSERT INTO t VALUES (zeroblob(100000))");
  }
  const std::string before = fileBytes(path);
  int status = runInChildProcess([&] {
    zn::Database db = zn::openDatabase(path);
    // A cache of a few pages spills the changes into the file mid-transaction.
    db.execute("PRAGMA cache_size = 2; BEGIN IMMEDIATE; UPDATE t SET x = randomblob(100000);"
               "INSERT INTO t SELECT randomblob(50000) FROM t");
    raise(SIGKILL);
    return true;
  });
  ASSERT_EQ(status, 128 + SIGKILL);
  ASSERT_NE(fileBytes(path), before);  // the dead transaction reached the file
  ASSERT_GT(std::filesystem::file_size(path + "-journal"), 0u);

  zn::Database db = zn::openDatabase(path);
  EXPECT_EQ(countRows(db), 1);
  zn::Statement blob(db, "SELECT x = zeroblob(100000) FROM t");
  ASSERT_TRUE(blob.step());
  EXPECT_EQ(blob.integer(0), 1);
}

}  // namespace
}  // namespace tw::test
