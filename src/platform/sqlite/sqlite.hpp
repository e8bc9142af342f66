// The one SQLite layer of the platform: connections, statements and
// transactions, every result checked. A failure throws sql::Error with
// SQLite's result code; what it becomes (a ZNError, a VltStatus) is the
// store's own policy, decided in that store's error funnel. So are the
// journal mode, the synchronous level and how long to wait for a busy
// database: each store sets them on the connection it opens.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace sql {

struct Error {
  int code;        // SQLite's extended result code
  bool preparing;  // raised while compiling a statement
};

// Throws the Error for a result other than SQLITE_OK, SQLITE_ROW or SQLITE_DONE.
void check(int result, bool preparing = false);

// The file system layer every connection opens its files through: the
// system's, with the testing interface's "storage.…" fault points in front
// (storage_points.cpp). Registered on first use; null if it cannot be.
inline constexpr char kStorageVfs[] = "tarnwick-storage";
const char *storageVfs();

// A connection that closes with its owner.
class Database {
 public:
  // Opens an existing file for reading and writing, never creating it and
  // never following a symbolic link, through the storage layer above;
  // `flags` adds SQLite open flags. A rollback journal that is there
  // already is reused without syncing its directory again.
  explicit Database(const std::string &path, int flags = 0);
  Database(Database &&other) noexcept;
  Database &operator=(Database &&other) noexcept;
  Database(const Database &) = delete;
  Database &operator=(const Database &) = delete;
  ~Database() { sqlite3_close_v2(db_); }

  sqlite3 *get() const { return db_; }
  void execute(const char *sql);
  // The rows the last statement changed.
  [[nodiscard]] int changes() const { return sqlite3_changes(db_); }

 private:
  sqlite3 *db_ = nullptr;
};

// A compiled statement. Text and blobs are bound without a copy: the bytes
// must stay put until the statement has run.
class Statement {
 public:
  Statement(const Database &db, std::string_view sql);
  ~Statement() { sqlite3_finalize(statement_); }
  Statement(const Statement &) = delete;
  Statement &operator=(const Statement &) = delete;

  // Parameters count from 1.
  void bind(int index, int64_t value);
  void bindText(int index, std::string_view text);
  // An absent text binds NULL.
  void bindTextOrNull(int index, const std::optional<std::string> &text);
  void bindNull(int index);
  // A zero-length blob still binds as a blob, never as NULL.
  void bindBlob(int index, std::string_view bytes);
  // True at a row, false when done.
  [[nodiscard]] bool step();
  // Steps to the end, then makes the statement ready for new bindings.
  void run();

  [[nodiscard]] int type(int column) const { return sqlite3_column_type(statement_, column); }
  [[nodiscard]] int64_t integer(int column) const {
    return sqlite3_column_int64(statement_, column);
  }
  // The bytes of a text or blob column, valid until the next step.
  [[nodiscard]] std::string_view bytes(int column) const;
  // A text column; nullopt for NULL.
  [[nodiscard]] std::optional<std::string> text(int column) const;

 private:
  sqlite3_stmt *statement_ = nullptr;
};

// One transaction; rolled back unless committed. A write transaction
// begins IMMEDIATE: it takes the write lock before it reads, so what it
// read still holds when it writes, and only it waits for other writers
// (a reader upgrading its lock would get SQLITE_BUSY at once).
//
// Begun while the connection is already in a transaction, it is a
// savepoint of that one: its commit keeps its changes for the outer
// transaction to commit, its rollback undoes only its own.
//
// A commit that fails has not happened, with one exception SQLite leaves:
// when the last step, the sync of the journal it has just truncated,
// fails, the commit has landed (every reader sees it) although COMMIT
// reports the error. The journal is then synced again: if that works the
// commit succeeded; if not, commit() throws and landed() says it is in
// the file, not that it will survive a power cut.
class Transaction {
 public:
  enum Kind { kRead, kWrite };
  Transaction(Database &db, Kind kind);
  ~Transaction();
  Transaction(const Transaction &) = delete;
  Transaction &operator=(const Transaction &) = delete;
  void commit();
  // After a failed commit() of a write: the database file holds it.
  [[nodiscard]] bool landed() const { return landed_; }

 private:
  // The database file's change counter as the file holds it: the commit
  // of a write transaction advances it.
  [[nodiscard]] std::optional<uint32_t> changeCounter() const;
  [[nodiscard]] int syncJournal() const;

  Database &db_;
  bool nested_;
  bool open_ = true;
  bool landed_ = false;
  std::optional<uint32_t> counterAtBegin_;  // of a write transaction
};

}  // namespace sql
