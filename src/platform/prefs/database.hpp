// A SQLite connection, its statements and transactions, for the store's
// database. Every SQLite failure becomes a zn::Failure whose status says
// what went wrong: a file that is no database, or not ours, is a corrupt
// store; a busy one is a lock failure; the rest are I/O or access errors.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace zn {

// Throws the failure for a SQLite result code other than a success.
void check(int result);

class Statement {
 public:
  // A statement that does not compile means the database is not shaped as
  // ours: kZNStatusCorruptStore.
  Statement(sqlite3 *db, const char *sql);
  ~Statement() { sqlite3_finalize(statement_); }
  Statement(const Statement &) = delete;
  Statement &operator=(const Statement &) = delete;

  // Parameters count from 1.
  void bind(int index, int64_t value);
  void bindText(int index, std::string_view text);
  void bindNull(int index);
  void bindBlob(int index, std::string_view bytes);
  // True at a row, false when done.
  bool step();
  // Steps to the end, then makes the statement ready for new bindings.
  void run();

  int type(int column) const { return sqlite3_column_type(statement_, column); }
  int64_t integer(int column) const { return sqlite3_column_int64(statement_, column); }
  // The bytes of a text or blob column.
  std::string_view bytes(int column) const;

 private:
  sqlite3_stmt *statement_ = nullptr;
};

// A connection that closes with its owner.
class Database {
 public:
  // Opens an existing database file without following a symbolic link,
  // with the store's durability settings: rollback journal (truncated, not
  // deleted, after each commit) and synchronous=FULL, and a busy timeout
  // for readers that meet another process's commit.
  explicit Database(const std::string &path);
  Database(Database &&other) noexcept;
  Database &operator=(Database &&other) noexcept;
  Database(const Database &) = delete;
  ~Database() { sqlite3_close_v2(db_); }

  sqlite3 *get() const { return db_; }
  void execute(const char *sql);

 private:
  sqlite3 *db_ = nullptr;
};

// One transaction; rolled back unless committed. A write transaction
// begins IMMEDIATE, so it takes the write lock before it reads.
class Transaction {
 public:
  enum Kind { kRead, kWrite };
  Transaction(Database &db, Kind kind);
  ~Transaction();
  Transaction(const Transaction &) = delete;
  Transaction &operator=(const Transaction &) = delete;
  void commit();

 private:
  Database &db_;
  bool open_ = true;
};

}  // namespace zn
