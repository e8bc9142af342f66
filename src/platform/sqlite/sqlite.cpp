// SQLite connections, statements and transactions, every result checked.
#include "platform/sqlite/sqlite.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/testing/fault.hpp"

namespace sql {

void check(int result, bool preparing) {
  if (result == SQLITE_OK || result == SQLITE_ROW || result == SQLITE_DONE) return;
  throw Error{result, preparing};
}

Database::Database(const std::string &path, int flags) {
  int result = sqlite3_open_v2(path.c_str(), &db_,
                               SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOFOLLOW | flags, storageVfs());
  if (result != SQLITE_OK) {
    sqlite3_close_v2(std::exchange(db_, nullptr));
    check(result);
  }
  sqlite3_extended_result_codes(db_, 1);
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

Statement::Statement(const Database &db, std::string_view sql) {
  check(
      sqlite3_prepare_v2(db.get(), sql.data(), static_cast<int>(sql.size()), &statement_, nullptr),
      true);
}

void Statement::bind(int index, int64_t value) {
  check(sqlite3_bind_int64(statement_, index, value));
}

void Statement::bindText(int index, std::string_view text) {
  check(sqlite3_bind_text(statement_, index, text.data() ? text.data() : "",
                          static_cast<int>(text.size()), SQLITE_STATIC));
}

void Statement::bindTextOrNull(int index, const std::optional<std::string> &text) {
  if (text) {
    bindText(index, std::string_view(*text));
  } else {
    bindNull(index);
  }
}

void Statement::bindNull(int index) { check(sqlite3_bind_null(statement_, index)); }

void Statement::bindBlob(int index, std::string_view bytes) {
  check(sqlite3_bind_blob(statement_, index, bytes.empty() ? "" : bytes.data(),
                          static_cast<int>(bytes.size()), SQLITE_STATIC));
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

std::optional<std::string> Statement::text(int column) const {
  if (type(column) == SQLITE_NULL) return std::nullopt;
  return std::string(bytes(column));
}

Transaction::Transaction(Database &db, Kind kind)
    : db_(db), nested_(sqlite3_get_autocommit(db.get()) == 0) {
  if (nested_) {
    db_.execute("SAVEPOINT nested");
    return;
  }
  db_.execute(kind == kWrite ? "BEGIN IMMEDIATE" : "BEGIN");
  // Holding the write lock, nothing else changes the file until commit.
  if (kind == kWrite) counterAtBegin_ = changeCounter();
}

Transaction::~Transaction() {
  if (!open_) return;
  // Nothing to report from here: a failed rollback leaves the transaction
  // to SQLite, which rolls it back when the connection closes.
  if (nested_) {
    sqlite3_exec(db_.get(), "ROLLBACK TO nested; RELEASE nested", nullptr, nullptr, nullptr);
  } else {
    sqlite3_exec(db_.get(), "ROLLBACK", nullptr, nullptr, nullptr);
  }
}

void Transaction::commit() {
  if (nested_) {
    db_.execute("RELEASE nested");
    open_ = false;
    return;
  }
  int result = sqlite3_exec(db_.get(), "COMMIT", nullptr, nullptr, nullptr);
  if (result != SQLITE_OK && counterAtBegin_ &&
      // A read finishes SQLite's recovery: a journal still valid is rolled back.
      sqlite3_exec(db_.get(), "SELECT count(*) FROM sqlite_master", nullptr, nullptr, nullptr) ==
          SQLITE_OK) {
    std::optional<uint32_t> counter = changeCounter();
    landed_ = counter && *counter != *counterAtBegin_;
    if (landed_) result = syncJournal();
  }
  check(result);
  open_ = false;
}

std::optional<uint32_t> Transaction::changeCounter() const {
  sqlite3_file *file = nullptr;
  unsigned char bytes[4];
  if (sqlite3_file_control(db_.get(), "main", SQLITE_FCNTL_FILE_POINTER, &file) != SQLITE_OK ||
      !file || !file->pMethods ||
      file->pMethods->xRead(file, bytes, sizeof bytes, 24) != SQLITE_OK) {
    return std::nullopt;
  }
  return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

int Transaction::syncJournal() const {
  // A fault point like the storage layer's (storage_points.cpp).
  if (pt::enter("storage.resync")) return SQLITE_IOERR_FSYNC;
  std::string journal = std::string(sqlite3_db_filename(db_.get(), "main")) + "-journal";
  int fd = ::open(journal.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  if (fd < 0) return errno == ENOENT ? SQLITE_OK : SQLITE_IOERR_FSYNC;
  int result = ::fsync(fd) == 0 ? SQLITE_OK : SQLITE_IOERR_FSYNC;
  ::close(fd);
  return result;
}

}  // namespace sql
