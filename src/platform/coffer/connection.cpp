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
    if (stillCurrent(pid, wanted)) return true;
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
  return operation(c.db->connection());
}

}  // namespace vlt
