// The process's one connection to the Coffer.
#include "platform/coffer/connection.hpp"

#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tarnwick/platform/prefs.h"

namespace vlt {

namespace {

struct Connection {
  std::mutex mutex;
  std::unique_ptr<Database> db;
  pid_t owner = 0;  // the process that opened it
  std::string directory;
  dev_t device = 0;
  ino_t inode = 0;
  // Connections a child inherited: kept, never used nor closed.
  std::vector<Database *> inherited;
  // A batch of the owner is open: its transaction holds every write.
  bool batch = false;

  bool inBatch(pid_t pid) const { return batch && owner == pid; }

  bool stillCurrent(pid_t pid, const std::string &current) const {
    struct stat info {};
    return db && owner == pid && directory == current &&
           stat(databasePath(current).c_str(), &info) == 0 && info.st_dev == device &&
           info.st_ino == inode;
  }

  // False when there is no store directory to open.
  [[nodiscard]] bool ensureOpen() {
    const char *current = ZNStoreGetDirectory();
    if (!current || !*current) return false;
    std::string wanted(current);
    pid_t pid = getpid();
    // A batch stays on the Coffer it began on, whatever happens to the directory.
    if (inBatch(pid) || stillCurrent(pid, wanted)) return true;
    // Forked in the middle of the parent's batch: SQLite's record of this
    // process's file locks is the parent's, mid-transaction, and a
    // connection of ours would trust it.
    if (batch) return false;
    if (db && owner != pid) inherited.push_back(db.release());
    db.reset();
    auto opened = std::make_unique<Database>(wanted);
    struct stat info {};
    if (stat(databasePath(wanted).c_str(), &info) != 0) return false;
    db = std::move(opened);
    owner = pid;
    directory = std::move(wanted);
    device = info.st_dev;
    inode = info.st_ino;
    return true;
  }
};

// Made once and never destroyed: an operation may come from another
// thread, or from an exit handler, after static destruction has begun.
Connection &connection() {
  static Connection *made = [] {
    auto *c = new Connection;
    pthread_atfork([] { connection().mutex.lock(); }, [] { connection().mutex.unlock(); },
                   [] { connection().mutex.unlock(); });
    std::atexit([] {
      Connection &c = connection();
      std::lock_guard lock(c.mutex);
      if (c.owner == getpid()) c.db.reset();
    });
    return c;
  }();
  return *made;
}

}  // namespace

VltStatus withDatabase(const std::function<VltStatus(sql::Database &)> &operation) {
  Connection &c = connection();
  std::lock_guard lock(c.mutex);
  if (!c.ensureOpen()) return kVltErrorStore;
  sql::Database &db = c.db->connection();
  // SQLite rolls a transaction back by itself after some failures (I/O, a
  // full disk): the batch is lost, and nothing may go on as if it held.
  if (c.inBatch(getpid()) && sqlite3_get_autocommit(db.get())) return kVltErrorStore;
  return operation(db);
}

VltStatus beginBatch() {
  Connection &c = connection();
  std::lock_guard lock(c.mutex);
  if (c.inBatch(getpid())) return kVltErrorParam;
  if (!c.ensureOpen()) return kVltErrorStore;
  c.db->connection().execute("BEGIN IMMEDIATE");
  c.batch = true;
  return kVltSuccess;
}

VltStatus endBatch(bool commit) {
  Connection &c = connection();
  std::lock_guard lock(c.mutex);
  if (!c.inBatch(getpid())) return kVltErrorParam;
  c.batch = false;  // over, whatever happens below
  sql::Database &db = c.db->connection();
  if (sqlite3_get_autocommit(db.get())) return kVltErrorStore;  // rolled back already
  if (!commit) {
    db.execute("ROLLBACK");
    return kVltSuccess;
  }
  try {
    db.execute("COMMIT");
  } catch (...) {
    // A commit that could not finish (readers that never let go) leaves
    // the transaction open: the batch goes whole, not in part.
    sqlite3_exec(db.get(), "ROLLBACK", nullptr, nullptr, nullptr);
    throw;
  }
  return kVltSuccess;
}

}  // namespace vlt
