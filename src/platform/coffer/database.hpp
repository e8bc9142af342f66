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
//  3. Once a call returns, its change is on disk, and a crash at any point
//     leaves the old or the new state: a rollback journal in TRUNCATE mode
//     with synchronous=FULL. At commit SQLite truncates the journal and,
//     under FULL, fsyncs it, so no journal can come back after a power cut
//     and roll a committed write back. (A deleted journal can: with
//     journal_mode=DELETE SQLite syncs the directory after the unlink only
//     under synchronous=EXTRA, which also syncs it after making the
//     journal anew at every commit. TRUNCATE keeps the journal's entry, and
//     the SQLite layer opens a journal that is there without "create", so a
//     commit syncs no directory at all: the journal twice, the file, and the
//     truncated journal. Unlike PERSIST it leaves no old page, and so no old
//     secret, in the journal.) No WAL: the system SQLite predates the fix for
//     corruption when two processes reset the WAL at the same instant.
//  4. secure_delete: a deleted or replaced secret is overwritten in the
//     file, not left in its free space. Set on every connection, whatever
//     the SQLite build's default.
//  5. Every write is a transaction begun with BEGIN IMMEDIATE. A statement
//     that starts reading and must then upgrade its lock gets SQLITE_BUSY at
//     once when another process is writing (waiting could deadlock), so
//     only a transaction that asks for the write lock first waits for other
//     writers: up to five seconds, polling often enough to be served fairly.
#pragma once

#include <chrono>
#include <string>

#include "platform/sqlite/sqlite.hpp"
#include "tarnwick/platform/coffer.h"

namespace vlt {

// The Coffer's file in a store directory.
std::string databasePath(const std::string &directory);

// kVltErrorDuplicateItem for a uniqueness violation, kVltErrorStore for any
// other SQLite failure.
[[nodiscard]] VltStatus statusOf(const sql::Error &error);

// The Coffer of the store `directory`, opened (and created when missing)
// with the Coffer's settings. Throws sql::Error when it cannot be.
class Database {
 public:
  explicit Database(const std::string &directory);
  Database(const Database &) = delete;
  Database &operator=(const Database &) = delete;

  sql::Database &connection() { return db_; }

 private:
  std::chrono::steady_clock::time_point waitingSince_;  // of the lock being waited for
  sql::Database db_;
};

}  // namespace vlt
