// The store's policy for its SQLite database: how preferences.db is opened,
// and what a SQLite failure becomes. A file that is no database, or not
// ours, is a corrupt store; a busy one is a lock failure; the rest are I/O
// or access errors.
#pragma once

#include <string>

#include "platform/sqlite/sqlite.hpp"

namespace zn {

using sql::Database;
using sql::Statement;
using sql::Transaction;

// Opens an existing database file with the store's durability settings, the
// Coffer's (coffer/database.hpp says why): a rollback journal truncated and,
// under synchronous=FULL, fsynced at each commit, so that a commit is on
// disk when it returns and no journal comes back after a power cut to roll
// it back; and a busy timeout for readers that meet another process's
// commit. The store holds no secret, so it does without secure_delete.
[[nodiscard]] Database openDatabase(const std::string &path);

// The ZNError status for a SQLite failure. A statement that does not
// compile means the database is not shaped as ours.
[[nodiscard]] int statusOf(const sql::Error &error);

}  // namespace zn
