// The Coffer's database: one SQLite file, "coffer.db", in the process's
// store directory.
//
// Guarantees
//  1. The file is created 0600 (its directory 0700) before SQLite sees it,
//     and SQLite is never allowed to create it: a file that exists is only
//     ever opened, so a damaged or foreign file is reported, never replaced.
//  2. The schema is written only into a database that holds nothing yet,
//     under a write lock, so two processes opening a new store at once
//     cannot both create it. Any other database without our application id
//     is refused.
//  3. Rollback journal and synchronous=FULL: once a call returns, its change
//     is on disk, and a crash at any point leaves the old or the new state.
//     (WAL is avoided on purpose: the system SQLite predates the fix for
//     corruption when two processes reset the WAL at the same instant.)
//  4. Every write is a transaction begun with BEGIN IMMEDIATE. A statement
//     that starts reading and must then upgrade its lock gets SQLITE_BUSY at
//     once when another process is writing (waiting could deadlock), so
//     only a transaction that asks for the write lock first waits for other
//     writers: up to five seconds, polling often enough to be served fairly.
#pragma once

#include <sqlite3.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "tarnwick/platform/coffer.h"

namespace vlt {

// The Coffer's file in a store directory.
std::string databasePath(const std::string &directory);

// kVltSuccess for SQLite's success codes, kVltErrorDuplicateItem for a
// uniqueness violation, kVltErrorStore for anything else.
VltStatus statusOf(int sqliteResult);

class Statement {
 public:
  Statement() = default;
  Statement(const Statement &) = delete;
  Statement &operator=(const Statement &) = delete;
  ~Statement() { sqlite3_finalize(statement_); }

  // Parameters count from 1; an absent text binds NULL.
  void bindText(int index, const std::optional<std::string> &text);
  void bindBlob(int index, std::string_view bytes);
  void bindInteger(int index, sqlite3_int64 value);
  // SQLITE_ROW, SQLITE_DONE or an error code.
  int step() { return sqlite3_step(statement_); }

  std::optional<std::string> text(int column) const;
  std::string blob(int column) const;
  sqlite3_int64 integer(int column) const { return sqlite3_column_int64(statement_, column); }

 private:
  friend class Database;
  sqlite3_stmt *statement_ = nullptr;
};

class Database {
 public:
  Database() = default;
  Database(const Database &) = delete;
  Database &operator=(const Database &) = delete;
  ~Database() { sqlite3_close(db_); }

  // Opens (creating when missing) the Coffer of the store `directory`.
  VltStatus open(const std::string &directory);
  VltStatus prepare(const std::string &sql, Statement &statement);
  VltStatus execute(const char *sql);
  int changes() const { return sqlite3_changes(db_); }

 private:
  VltStatus ensureSchema();
  VltStatus readPragma(const char *sql, sqlite3_int64 &value);
  sqlite3 *db_ = nullptr;
  std::chrono::steady_clock::time_point waitingSince_;  // of the lock being waited for
};

// BEGIN IMMEDIATE: takes the write lock up front, so what a read inside the
// transaction saw still holds when it writes. Rolls back unless committed.
class Transaction {
 public:
  explicit Transaction(Database &db) : db_(db) {}
  Transaction(const Transaction &) = delete;
  Transaction &operator=(const Transaction &) = delete;
  ~Transaction();
  VltStatus begin();
  VltStatus commit();

 private:
  Database &db_;
  bool open_ = false;
};

}  // namespace vlt
