// The store's SQLite settings and its reading of SQLite failures.
#include "platform/prefs/database.hpp"

#include "tarnwick/platform/prefs.h"

namespace zn {
namespace {

constexpr int kBusyTimeoutMs = 5000;
// A session reads the tables once, front to back, and a commit writes a few
// rows: a small page cache serves both, and a large store would otherwise
// fill SQLite's default 2 MiB with pages nobody reads again.
constexpr int kCacheKiB = 256;

}  // namespace

Database openDatabase(const std::string &path) {
  Database db(path);
  sqlite3_busy_timeout(db.get(), kBusyTimeoutMs);
  db.execute(("PRAGMA journal_mode=TRUNCATE; PRAGMA synchronous=FULL; PRAGMA cache_size=-" +
              std::to_string(kCacheKiB))
                 .c_str());
  return db;
}

int statusOf(const sql::Error &error) {
  // A statement that does not compile names a table or column we lack.
  if (error.preparing && error.code == SQLITE_ERROR) return kZNStatusCorruptStore;
  switch (error.code & 0xff) {
    case SQLITE_NOTADB:
    case SQLITE_CORRUPT:
    case SQLITE_FORMAT:
    case SQLITE_SCHEMA:
    case SQLITE_MISMATCH:
      return kZNStatusCorruptStore;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return kZNStatusLockFailed;
    case SQLITE_READONLY:
    case SQLITE_PERM:
    case SQLITE_AUTH:
      return kZNStatusAccessDenied;
    case SQLITE_IOERR:
    case SQLITE_FULL:
    case SQLITE_CANTOPEN:
      return kZNStatusIOError;
    default:
      return kZNStatusFailed;
  }
}

}  // namespace zn
