// Reading and damaging a store's database as another program would.
#pragma once

#include <sqlite3.h>

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

}  // namespace tw::test
