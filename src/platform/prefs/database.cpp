// SQLite connections, statements and transactions for the store.
#include "platform/prefs/database.hpp"

#include <new>
#include <utility>

#include "platform/prefs/error.hpp"

namespace zn {
namespace {

constexpr int kBusyTimeoutMs = 5000;

int statusOf(int result) {
  switch (result & 0xff) {
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

}  // namespace

void check(int result) {
  if (result == SQLITE_OK || result == SQLITE_ROW || result == SQLITE_DONE) return;
  if ((result & 0xff) == SQLITE_NOMEM) throw std::bad_alloc();
  fail(statusOf(result));
}

Statement::Statement(sqlite3 *db, const char *sql) {
  int result = sqlite3_prepare_v2(db, sql, -1, &statement_, nullptr);
  if (result == SQLITE_ERROR) fail(kZNStatusCorruptStore);  // no such table or column
  check(result);
}

void Statement::bind(int index, int64_t value) {
  check(sqlite3_bind_int64(statement_, index, value));
}

void Statement::bindText(int index, std::string_view text) {
  check(sqlite3_bind_text(statement_, index, text.data() ? text.data() : "",
                          static_cast<int>(text.size()), SQLITE_STATIC));
}

void Statement::bindNull(int index) { check(sqlite3_bind_null(statement_, index)); }

void Statement::bindBlob(int index, std::string_view bytes) {
  check(sqlite3_bind_blob(statement_, index, bytes.data(), static_cast<int>(bytes.size()),
                          SQLITE_STATIC));
}

bool Statement::step() {
  int result = sqlite3_step(statement_);
  check(result);
  return result == SQLITE_ROW;
}

void Statement::run() {
  while (step()) {
  }
  sqlite3_reset(statement_);
  sqlite3_clear_bindings(statement_);
}

std::string_view Statement::bytes(int column) const {
  const void *data = sqlite3_column_blob(statement_, column);
  return std::string_view(static_cast<const char *>(data),
                          static_cast<size_t>(sqlite3_column_bytes(statement_, column)));
}

Database::Database(const std::string &path) {
  int result =
      sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOFOLLOW, nullptr);
  if (result != SQLITE_OK) {
    sqlite3_close_v2(std::exchange(db_, nullptr));
    check(result);
  }
  sqlite3_extended_result_codes(db_, 1);
  sqlite3_busy_timeout(db_, kBusyTimeoutMs);
  try {
    execute("PRAGMA journal_mode=TRUNCATE; PRAGMA synchronous=FULL");
  } catch (...) {
    sqlite3_close_v2(std::exchange(db_, nullptr));
    throw;
  }
}

Database::Database(Database &&other) noexcept : db_(std::exchange(other.db_, nullptr)) {}

Database &Database::operator=(Database &&other) noexcept {
  if (this != &other) {
    sqlite3_close_v2(db_);
    db_ = std::exchange(other.db_, nullptr);
  }
  return *this;
}

void Database::execute(const char *sql) {
  check(sqlite3_exec(db_, sql, nullptr, nullptr, nullptr));
}

Transaction::Transaction(Database &db, Kind kind) : db_(db) {
  db_.execute(kind == kWrite ? "BEGIN IMMEDIATE" : "BEGIN");
}

Transaction::~Transaction() {
  if (open_) sqlite3_exec(db_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void Transaction::commit() {
  db_.execute("COMMIT");
  open_ = false;
}

}  // namespace zn
