// durable_insert DB: one durable one-row insert into a SQLite database
// (made when missing), as a whole process: the yardstick for the tool's
// whole-process figures. SQLite's default rollback journal, as the sqlite3
// shell would use, and synchronous=FULL.
#include <sqlite3.h>

#include <cstdio>

int main(int argc, char **argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: durable_insert DB\n");
    return 2;
  }
  sqlite3 *db = nullptr;
  int result = sqlite3_open(argv[1], &db);
  if (result == SQLITE_OK) {
    result = sqlite3_exec(db,
                          "PRAGMA synchronous=FULL;"
                          "CREATE TABLE IF NOT EXISTS rows(id INTEGER PRIMARY KEY, value BLOB);"
                          "INSERT INTO rows(value) VALUES (randomblob(64));",
                          nullptr, nullptr, nullptr);
  }
  if (result != SQLITE_OK) std::fprintf(stderr, "durable_insert: %s\n", sqlite3_errmsg(db));
  sqlite3_close(db);
  return result == SQLITE_OK ? 0 : 1;
}
