// Reading and damaging a store's database as another program would, and
// watching another session wait for the store's lock.
#pragma once

#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>

#include "support/services.hpp"

namespace tw::test {

// Runs `sql` on a database file directly, as another program would; the
// text of the first column of the last row, or the error message.
inline std::string runSql(const std::string &path, const std::string &sql) {
  sqlite3 *db = nullptr;
  std::string result;
  if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) ==
      SQLITE_OK) {
    char *error = nullptr;
    auto keep = [](void *out, int, char **values, char **) {
      *static_cast<std::string *>(out) = values[0] ? values[0] : "NULL";
      return 0;
    };
    if (sqlite3_exec(db, sql.c_str(), keep, &result, &error) != SQLITE_OK) {
      result = std::string("error: ") + (error ? error : "");
    }
    sqlite3_free(error);
  }
  sqlite3_close(db);
  return result;
}

// True once process `pid` waits, blocked in the kernel, for an flock on the
// file at `path` (a blocked request is a "->" line of /proc/locks); false
// when `gaveUp()` turns true first. Polls: the kernel announces nothing.
inline bool waitUntilBlockedOnLock(const std::string &path, pid_t pid,
                                   const std::function<bool()> &gaveUp) {
  struct stat info {};
  if (stat(path.c_str(), &info) != 0) return false;
  char file[64];
  std::snprintf(file, sizeof file, "%02x:%02x:%lu", major(info.st_dev), minor(info.st_dev),
                static_cast<unsigned long>(info.st_ino));
  const std::string owner = std::to_string(pid);
  while (!gaveUp()) {
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
      std::istringstream fields(line);
      std::string number, arrow, type, advisory, access, lockPid, lockFile;
      if (fields >> number >> arrow >> type >> advisory >> access >> lockPid >> lockFile &&
          arrow == "->" && type == "FLOCK" && lockPid == owner && lockFile == file) {
        return true;
      }
    }
    usleep(1000);
  }
  return false;
}

}  // namespace tw::test
