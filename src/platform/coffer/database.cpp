// Opening the Coffer's database safely, with the Coffer's settings.
#include "platform/coffer/database.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <random>
#include <thread>

#include "platform/coffer/run.hpp"
#include "platform/directory/directories.hpp"

namespace vlt {

namespace {

constexpr int64_t kApplicationId = 0x54574346;  // "TWCF": marks a file as a Coffer
constexpr int64_t kSchemaVersion = 1;
constexpr auto kBusyTimeout = std::chrono::seconds(5);

constexpr const char *kTables =
    "CREATE TABLE items("
    " id INTEGER PRIMARY KEY,"
    " class TEXT NOT NULL,"
    " service TEXT, account TEXT, label TEXT, description TEXT,"
    " accessible TEXT NOT NULL,"
    " data BLOB NOT NULL,"
    " certificate BLOB NOT NULL,"
    " private_key BLOB NOT NULL,"
    " uniqueness BLOB NOT NULL,"
    " persistent_ref BLOB NOT NULL UNIQUE,"
    " UNIQUE (class, uniqueness));";

// Passwords are found by service and account; certificates and identities
// by their uniqueness key and every item by its persistent reference, which
// the table's UNIQUE constraints index. A Coffer made before this index
// gets it when first opened; its schema is otherwise the same, so the
// version stays.
constexpr const char *kIndexes =
    "CREATE INDEX IF NOT EXISTS items_by_service ON items(service, account);";

// SQLite's own busy handler backs off to sleeps of 100 ms, so the process
// that has waited longest polls least often and loses the lock to every
// newer writer, again and again. A short sleep with jitter gives every
// waiter the same chance at each release.
int waitBriefly(void *waitingSince, int attempt) {
  using Clock = std::chrono::steady_clock;
  auto &since = *static_cast<Clock::time_point *>(waitingSince);
  Clock::time_point now = Clock::now();
  if (attempt == 0) since = now;
  if (now - since >= kBusyTimeout) return 0;
  thread_local std::minstd_rand jitter(static_cast<unsigned>(getpid()) ^
                                       static_cast<unsigned>(now.time_since_epoch().count()));
  std::this_thread::sleep_for(std::chrono::microseconds(500 + jitter() % 1000));
  return 1;
}

// What cannot be opened as the Coffer is a store error, like any SQLite failure.
[[noreturn]] void cannotOpen() { throw sql::Error{SQLITE_CANTOPEN, false}; }

// Made here rather than by SQLite so that it never exists with a wider mode.
sql::Database openFile(const std::string &directory) {
  if (directory.empty() || !files::makeDirectories(directory)) cannotOpen();
  std::string path = databasePath(directory);
  int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  // A Coffer the caller may only read: SQLite opens it read-only then.
  if (fd < 0 && (errno == EACCES || errno == EROFS)) {
    fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  }
  if (fd < 0) cannotOpen();
  ::close(fd);
  return sql::Database(path, SQLITE_OPEN_NOMUTEX);
}

int64_t readPragma(sql::Database &db, const char *query) {
  sql::Statement statement(db, query);
  if (!statement.step()) cannotOpen();
  return statement.integer(0);
}

// Writes the schema into a database that holds nothing yet; refuses any
// database that is not a Coffer of this version.
void ensureSchema(sql::Database &db) {
  int64_t applicationId = readPragma(db, "PRAGMA application_id");
  if (applicationId == 0) {
    sql::Transaction transaction(db, sql::Transaction::kWrite);
    applicationId = readPragma(db, "PRAGMA application_id");
    if (applicationId == 0 && readPragma(db, "SELECT count(*) FROM sqlite_master") == 0) {
      std::string schema = std::string(kTables) + kIndexes +
                           "PRAGMA application_id = " + std::to_string(kApplicationId) +
                           "; PRAGMA user_version = " + std::to_string(kSchemaVersion) + ";";
      db.execute(schema.c_str());
      transaction.commit();
      return;
    }
  }
  if (applicationId != kApplicationId || readPragma(db, "PRAGMA user_version") != kSchemaVersion) {
    cannotOpen();
  }
  db.execute(kIndexes);  // reads the schema only, once the index is there
}

}  // namespace

VltStatus statusOf(const sql::Error &error) {
  return error.code == SQLITE_CONSTRAINT_UNIQUE ? kVltErrorDuplicateItem : kVltErrorStore;
}

VltStatus currentStatus() noexcept {
  try {
    throw;
  } catch (const sql::Error &error) {
    return statusOf(error);
  } catch (...) {
    return kVltErrorStore;
  }
}

std::string databasePath(const std::string &directory) { return directory + "/coffer.db"; }

Database::Database(const std::string &directory) : db_(openFile(directory)) {
  sqlite3_busy_handler(db_.get(), waitBriefly, &waitingSince_);
  // Per connection: a rollback journal's mode is not kept in the file.
  db_.execute(
      "PRAGMA synchronous = FULL; PRAGMA journal_mode = TRUNCATE; PRAGMA secure_delete = ON");
  ensureSchema(db_);
}

}  // namespace vlt
