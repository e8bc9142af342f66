// The Coffer's database file: its modes, its sharing between processes, and
// what a damaged or foreign file does.
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>

#include "platform/coffer/database.hpp"
#include "support/pkcs12_fixtures.hpp"
#include "support/test_support.hpp"
#include "tarnwick/platform/coffer.h"
#include "tarnwick/platform/prefs.h"
#include "tarnwick/platform/testing.h"

namespace {

using tw::test::addCofferPassword;
using tw::test::bytes;
using tw::test::dict;
using tw::test::fileBytes;
using tw::test::hasCofferItem;

mode_t modeOf(const std::string &path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 ? (info.st_mode & 07777) : 0;
}

class CofferStore : public tw::test::StoreTest {
 protected:
  std::string dbPath() const { return storeDir() + "/coffer.db"; }
};

TEST_F(CofferStore, CreatesItsDirectoryAndFilePrivateToTheUser) {
  std::string nested = storeDir() + "/new/store";
  ZNStoreSetDirectory(nested.c_str());
  mode_t previous = umask(0);  // even a permissive umask must not widen them
  VltStatus status = addCofferPassword("svc");
  umask(previous);
  ASSERT_EQ(status, kVltSuccess);
  EXPECT_EQ(modeOf(storeDir() + "/new"), 0700u);
  EXPECT_EQ(modeOf(nested), 0700u);
  EXPECT_EQ(modeOf(nested + "/coffer.db"), 0600u);
  // No secret reaches any file but the database: its journal is left empty.
  for (const auto &entry : std::filesystem::directory_iterator(nested)) {
    if (entry.path().filename() == "coffer.db") continue;
    EXPECT_EQ(entry.path().filename(), "coffer.db-journal");
    EXPECT_EQ(modeOf(entry.path()), 0600u);
    EXPECT_EQ(std::filesystem::file_size(entry.path()), 0u);
  }
}

// A stored secret is durable once the call returns, and several processes
// write the Coffer: a rollback journal (never WAL), truncated and synced at
// each commit, and deleted content overwritten.
TEST_F(CofferStore, DatabaseIsOpenedWithTheDurabilityTheCofferPromises) {
  vlt::Database coffer(storeDir());
  auto pragma = [&](const char *sql) {
    sql::Statement statement(coffer.connection(), sql);
    return statement.step() ? std::string(statement.bytes(0)) : std::string();
  };
  EXPECT_EQ(pragma("PRAGMA journal_mode"), "truncate");
  EXPECT_EQ(pragma("PRAGMA synchronous"), "2");
  EXPECT_EQ(pragma("PRAGMA secure_delete"), "1");
}

// Turns secure delete off on every new connection, as it is by default in
// a SQLite built without it (Debian's is built with it on).
int secureDeleteOff(sqlite3 *db, const char **, const void *) {
  return sqlite3_exec(db, "PRAGMA secure_delete = OFF", nullptr, nullptr, nullptr);
}

// Neither a deleted secret nor the one an update replaced stays readable in
// the database file's free space, whatever SQLite's own default.
TEST_F(CofferStore, ReplacedAndDeletedSecretsLeaveNoBytesInTheFile) {
  ASSERT_EQ(sqlite3_auto_extension(reinterpret_cast<void (*)()>(secureDeleteOff)), SQLITE_OK);
  struct Reset {
    ~Reset() { sqlite3_reset_auto_extension(); }
  } reset;
  const std::string replaced = "replaced-secret-" + std::string(200, 'r');
  const std::string deleted = "deleted-secret-" + std::string(200, 'd');
  const std::string kept = "kept-secret-" + std::string(200, 'k');
  ASSERT_EQ(addCofferPassword("replaced", replaced), kVltSuccess);
  ASSERT_EQ(addCofferPassword("deleted", deleted), kVltSuccess);
  ASSERT_EQ(addCofferPassword("kept", kept), kVltSuccess);
  ASSERT_EQ(VltItemUpdate(dict({{kVltAttrService, "replaced"}}).get(),
                          dict({{kVltValueData, bytes("new")}}).get()),
            kVltSuccess);
  ASSERT_EQ(VltItemDelete(dict({{kVltAttrService, "deleted"}}).get()), kVltSuccess);
  const std::string file = fileBytes(dbPath());
  EXPECT_NE(file.find(kept), std::string::npos);  // the scan does find what is there
  EXPECT_EQ(file.find(replaced), std::string::npos);
  EXPECT_EQ(file.find(deleted), std::string::npos);
}

// A write that fails at any step of SQLite's did not happen, and one that
// succeeds did, including when only the sync after the commit point failed
// and the journal was synced again. A deleted journal can come back after a
// power cut and roll a committed write back; a truncated one cannot: every
// write leaves it empty.
TEST_F(CofferStore, WriteFailsExactlyWhenItDidNotHappen) {
  auto query = dict({{kVltClass, kVltClassGenericPassword}, {kVltAttrService, "svc"}});
  struct Write {
    const char *what;
    std::function<VltStatus()> write;
    std::string before, after;  // the secret stored under "svc", "" for none
  } writes[] = {
      {"add", [] { return addCofferPassword("svc", "added"); }, "", "added"},
      {"update",
       [&] {
         return VltItemUpdate(query.get(), dict({{kVltValueData, bytes("updated")}}).get());
       },
       "old", "updated"},
      {"delete", [&] { return VltItemDelete(query.get()); }, "old", ""},
  };
  auto stored = [] {
    std::string item = tw::test::cofferItem("svc");
    return item == "(none)" ? std::string() : item.substr(item.rfind('|') + 1);
  };
  int failures = 0, landed = 0;
  for (const Write &write : writes) {
    for (const char *point : {"storage.write", "storage.sync", "storage.truncate"}) {
      for (long nth = 1;; ++nth) {
        VltItemDelete(query.get());
        if (!write.before.empty()) {
          ASSERT_EQ(addCofferPassword("svc", write.before), kVltSuccess);
        }
        PTReset();
        PTFailNthCall(point, nth);
        const VltStatus status = write.write();
        const bool fired = PTCallCount(point) >= nth;
        landed += PTCallCount("storage.resync") > 0;
        PTReset();
        SCOPED_TRACE(std::string(write.what) + ", " + point + " call " + std::to_string(nth));
        EXPECT_EQ(stored(), status == kVltSuccess ? write.after : write.before);
        EXPECT_TRUE(status == kVltSuccess || status == kVltErrorStore) << status;
        if (!fired) {
          ASSERT_TRUE(std::filesystem::exists(dbPath() + "-journal"));
          EXPECT_EQ(std::filesystem::file_size(dbPath() + "-journal"), 0u);
          break;
        }
        failures += status != kVltSuccess;
      }
    }
  }
  EXPECT_GE(failures, 3 * 5);
  EXPECT_EQ(landed, 3);  // each write's last sync
}

TEST_F(CofferStore, DamagedFileFailsEveryOperationAndIsLeftAsItWas) {
  std::string garbage(4096, '\0');
  for (size_t i = 0; i < garbage.size(); ++i) garbage[i] = static_cast<char>(i * 7919 % 251);
  for (const std::string &content : {garbage, std::string("not a database\n")}) {
    { std::ofstream(dbPath(), std::ios::binary | std::ios::trunc) << content; }
    auto query = dict({{kVltAttrService, "svc"}});
    PVTypeRef result = nullptr;
    EXPECT_EQ(addCofferPassword("svc", "secret", nullptr, nullptr, &result), kVltErrorStore);
    EXPECT_EQ(VltItemCopyMatching(query.get(), &result), kVltErrorStore);
    EXPECT_EQ(VltItemUpdate(query.get(), dict({{kVltValueData, bytes("x").get()}}).get()),
              kVltErrorStore);
    EXPECT_EQ(VltItemDelete(query.get()), kVltErrorStore);
    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(fileBytes(dbPath()), content);
    EXPECT_FALSE(std::filesystem::exists(dbPath() + "-journal"));
  }
}

TEST_F(CofferStore, ForeignDatabaseIsRefusedAndUntouched) {
  sqlite3 *db = nullptr;
  ASSERT_EQ(sqlite3_open(dbPath().c_str(), &db), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(db, "CREATE TABLE notes(text TEXT)", nullptr, nullptr, nullptr),
            SQLITE_OK);
  sqlite3_close(db);
  std::string before = fileBytes(dbPath());

  EXPECT_EQ(addCofferPassword("svc"), kVltErrorStore);
  EXPECT_FALSE(hasCofferItem("svc"));
  EXPECT_EQ(fileBytes(dbPath()), before);
}

TEST_F(CofferStore, ItemsFollowTheStoreDirectory) {
  ASSERT_EQ(addCofferPassword("svc"), kVltSuccess);
  std::string other = storeDir() + "/other";
  ZNStoreSetDirectory(other.c_str());
  EXPECT_FALSE(hasCofferItem("svc"));
  ZNStoreSetDirectory(storeDir().c_str());
  EXPECT_TRUE(hasCofferItem("svc"));
}

}  // namespace
