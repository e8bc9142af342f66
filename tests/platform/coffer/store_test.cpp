// The Coffer's database file: its modes, its sharing between processes, and
// what a damaged or foreign file does.
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "platform/coffer/database.hpp"
#include "support/pkcs12_fixtures.hpp"
#include "support/test_support.hpp"
#include "tarnwick/platform/coffer.h"
#include "tarnwick/platform/prefs.h"

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
  // No secret reaches any file but the database.
  for (const auto &entry : std::filesystem::directory_iterator(nested)) {
    EXPECT_EQ(entry.path().filename(), "coffer.db");
  }
}

// A stored secret is durable once the call returns, and several processes
// write the Coffer: a rollback journal (never WAL) and synchronous=FULL.
TEST_F(CofferStore, DatabaseIsOpenedWithTheDurabilityTheCofferPromises) {
  vlt::Database coffer(storeDir());
  auto pragma = [&](const char *sql) {
    sql::Statement statement(coffer.connection(), sql);
    return statement.step() ? std::string(statement.bytes(0)) : std::string();
  };
  EXPECT_EQ(pragma("PRAGMA journal_mode"), "delete");
  EXPECT_EQ(pragma("PRAGMA synchronous"), "2");
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
