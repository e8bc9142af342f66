// The store's tables: creation, snapshot, commit writes.
#include "platform/prefs/tables.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "platform/prefs/error.hpp"
#include "platform/prefs/service_body.hpp"

namespace zn {
namespace {

constexpr uint32_t kApplicationId = 0x54575046;  // "TWPF": marks a file as a preferences store
constexpr uint32_t kSchemaVersion = 1;

constexpr const char *kSchema =
    "CREATE TABLE store(one INTEGER PRIMARY KEY CHECK (one = 1), generation INTEGER NOT NULL,"
    " applied INTEGER NOT NULL, current_set TEXT);"
    "CREATE TABLE sets(position INTEGER PRIMARY KEY, id TEXT NOT NULL UNIQUE, name TEXT,"
    " selected TEXT);"
    "CREATE TABLE services(position INTEGER PRIMARY KEY, id TEXT NOT NULL UNIQUE, name TEXT,"
    " enabled INTEGER NOT NULL, body BLOB NOT NULL);"
    "CREATE TABLE members(position INTEGER PRIMARY KEY, set_id TEXT NOT NULL,"
    " service_id TEXT NOT NULL, UNIQUE (set_id, service_id));";

uint32_t bigEndian(const unsigned char *bytes) {
  return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

// False when there is no file. Reads the header itself, so that SQLite
// never opens (and so never writes, converts or recovers) a file that is
// not ours: a SQLite database in rollback-journal mode with our
// application id and schema version.
bool isStoreDatabase(const std::string &path) {
  int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) {
    if (errno == ENOENT) return false;
    failFromErrno();
  }
  std::array<unsigned char, 100> header{};
  ssize_t n = pread(fd, header.data(), header.size(), 0);
  close(fd);
  if (n < 0) failFromErrno();
  if (n != static_cast<ssize_t>(header.size()) ||
      std::memcmp(header.data(), "SQLite format 3", 16) != 0 || header[18] != 1 ||
      header[19] != 1 || bigEndian(&header[68]) != kApplicationId ||
      bigEndian(&header[60]) != kSchemaVersion) {
    corrupt();
  }
  return true;
}

void createStore(const std::string &directory, const std::string &path) {
  std::string pattern = directory + "/." + kDatabaseName + ".XXXXXX";
  int fd = mkostemp(pattern.data(), O_CLOEXEC);  // 0600, before SQLite sees it
  if (fd < 0) failFromErrno();
  close(fd);
  TemporaryFile temporary(pattern);
  {
    Database db = openDatabase(pattern);
    db.execute("PRAGMA journal_mode=DELETE");  // leaves no journal beside the temporary file
    Transaction write(db, Transaction::kWrite);
    db.execute(kSchema);
    db.execute(("PRAGMA application_id=" + std::to_string(kApplicationId) +
                ";PRAGMA user_version=" + std::to_string(kSchemaVersion))
                   .c_str());
    StringRef setId = newIdentifier();
    Statement set(db, "INSERT INTO sets(position, id, name) VALUES (1, ?, 'Default')");
    set.bindText(1, text(setId.get()));
    set.run();
    Statement store(db, "INSERT INTO store VALUES (1, 1, 0, ?)");
    store.bindText(1, text(setId.get()));
    store.run();
    write.commit();
  }
  if (rename(temporary.path().c_str(), path.c_str()) != 0) failFromErrno();
  temporary.renamed();
  // The store is in place either way; a failed directory sync only means a
  // crash now could bring back the empty directory.
  (void)syncDirectory(directory);
}

std::string_view textAt(const Statement &row, int column) {
  if (row.type(column) != SQLITE_TEXT) corrupt();
  return row.bytes(column);
}

StringRef optionalString(const Statement &row, int column) {
  return row.type(column) == SQLITE_NULL ? StringRef() : storedString(textAt(row, column));
}

std::string optionalText(const Statement &row, int column) {
  return row.type(column) == SQLITE_NULL ? std::string() : std::string(textAt(row, column));
}

int64_t integerAt(const Statement &row, int column) {
  if (row.type(column) != SQLITE_INTEGER) corrupt();
  return row.integer(column);
}

int64_t storeColumn(Database &db, const char *sql) {
  Statement row(db, sql);
  if (!row.step()) corrupt();
  return integerAt(row, 0);
}

void readSets(Database &db, Document &document) {
  Statement row(db, "SELECT position, id, name, selected FROM sets ORDER BY position");
  while (row.step()) {
    Set set;
    set.id = storedString(textAt(row, 1));
    set.name = optionalString(row, 2);
    set.selected = optionalText(row, 3);
    if (!set.selected.empty() && !document.services.find(set.selected)) corrupt();
    const std::string_view id = text(set.id.get());
    if (!document.sets.load(integerAt(row, 0), id, std::move(set))) corrupt();
  }
}

void readServices(Database &db, Document &document) {
  Statement row(db, "SELECT position, id, name, enabled, body FROM services ORDER BY position");
  while (row.step()) {
    StringRef id = storedString(textAt(row, 1));
    const int64_t enabled = integerAt(row, 3);
    if (enabled != 0 && enabled != 1) corrupt();
    const int bodyType = row.type(4);
    // Every body a commit writes is a JSON object: an empty one was never ours.
    if ((bodyType != SQLITE_BLOB && bodyType != SQLITE_TEXT) || row.bytes(4).empty()) corrupt();
    const std::string_view key = text(id.get());
    Service service(std::move(id), optionalString(row, 2), enabled == 1,
                    document.arena->keep(row.bytes(4)), *document.arena);
    if (!document.services.load(integerAt(row, 0), key, std::move(service))) {
      corrupt();
    }
  }
}

void readMembers(Database &db, Document &document) {
  Statement row(db, "SELECT position, set_id, service_id FROM members ORDER BY position");
  while (row.step()) {
    const int64_t position = integerAt(row, 0);
    Set *set = document.sets.find(textAt(row, 1));
    std::string_view serviceId = textAt(row, 2);
    Service *service = document.services.find(serviceId);
    if (!set || !service ||
        !set->members.load(position, text(service->id.get()), Member{service})) {
      corrupt();
    }
    document.nextMember = position + 1;
  }
}

// Before each row a commit writes: a test can break the commit there.
void enterRowWrite() {
  if (pt::enter("commit.row")) fail(kZNStatusInjected);
}

void bindOptional(Statement &statement, int index, PVStringRef string) {
  if (string) {
    statement.bindText(index, text(string));
  } else {
    statement.bindNull(index);
  }
}

void writeSets(Database &db, const Document &document) {
  Statement removeMember(db, "DELETE FROM members WHERE position = ?");
  Statement addMember(db, "INSERT INTO members(position, set_id, service_id) VALUES (?, ?, ?)");
  Statement removeMembers(
      db, "DELETE FROM members WHERE set_id = (SELECT id FROM sets WHERE position = ?)");
  Statement removeSet(db, "DELETE FROM sets WHERE position = ?");
  Statement writeSet(
      db, "INSERT OR REPLACE INTO sets(position, id, name, selected) VALUES (?, ?, ?, ?)");
  for (const auto &[position, row] : document.sets) {
    for (int64_t member : row.value.members.removed()) {
      enterRowWrite();
      removeMember.bind(1, member);
      removeMember.run();
    }
  }
  for (int64_t position : document.sets.removed()) {
    enterRowWrite();
    removeMembers.bind(1, position);
    removeMembers.run();
    removeSet.bind(1, position);
    removeSet.run();
  }
  for (int64_t position : document.sets.written()) {
    const auto &row = document.sets.at(position);
    enterRowWrite();
    writeSet.bind(1, position);
    writeSet.bindText(2, row.id);
    bindOptional(writeSet, 3, row.value.name.get());
    if (row.value.selected.empty()) {
      writeSet.bindNull(4);
    } else {
      writeSet.bindText(4, row.value.selected);
    }
    writeSet.run();
  }
  for (const auto &[setPosition, row] : document.sets) {
    for (int64_t position : row.value.members.written()) {
      enterRowWrite();
      addMember.bind(1, position);
      addMember.bindText(2, row.id);
      addMember.bindText(3, row.value.members.at(position).id);
      addMember.run();
    }
  }
}

void writeServices(Database &db, const Document &document) {
  Statement removeService(db, "DELETE FROM services WHERE position = ?");
  Statement writeService(db,
                         "INSERT OR REPLACE INTO services(position, id, name, enabled, body)"
                         " VALUES (?, ?, ?, ?, ?)");
  for (int64_t position : document.services.removed()) {
    enterRowWrite();
    removeService.bind(1, position);
    removeService.run();
  }
  for (int64_t position : document.services.written()) {
    const auto &row = document.services.at(position);
    const std::string body = row.value.encodedBody();
    enterRowWrite();
    writeService.bind(1, position);
    writeService.bindText(2, row.id);
    bindOptional(writeService, 3, row.value.name.get());
    writeService.bind(4, row.value.enabled ? 1 : 0);
    writeService.bindBlob(5, body);
    writeService.run();
  }
}

}  // namespace

Database openStore(const std::string &directory, LockFile &lock) {
  const std::string path = directory + "/" + kDatabaseName;
  if (isStoreDatabase(path)) return openDatabase(path);
  ScopedLock locked(lock);
  if (!isStoreDatabase(path)) createStore(directory, path);  // else another process was first
  return openDatabase(path);
}

Document readSnapshot(Database &db) {
  Transaction read(db, Transaction::kRead);
  Document document;
  {
    Statement store(db, "SELECT generation, applied, current_set FROM store");
    if (!store.step()) corrupt();
    document.generation = integerAt(store, 0);
    const int64_t applied = integerAt(store, 1);
    if (document.generation < 1 || applied < 0 || applied > document.generation) corrupt();
    document.currentSet = optionalText(store, 2);
  }
  // Services first: each set's selection and each membership is checked
  // as it is read.
  readServices(db, document);
  readSets(db, document);
  readMembers(db, document);
  read.commit();
  if (!document.currentSet.empty() && !document.sets.find(document.currentSet)) corrupt();
  return document;
}

void writeChanges(Database &db, const Document &document, int64_t generation) {
  writeServices(db, document);
  writeSets(db, document);
  Statement store(db, "UPDATE store SET generation = ?, current_set = ?");
  store.bind(1, generation);
  if (document.currentSet.empty()) {
    store.bindNull(2);
  } else {
    store.bindText(2, document.currentSet);
  }
  store.run();
}

int64_t storedGeneration(Database &db) {
  int64_t generation = storeColumn(db, "SELECT generation FROM store");
  if (generation < 1) corrupt();
  return generation;
}

int64_t appliedGeneration(Database &db) { return storeColumn(db, "SELECT applied FROM store"); }

bool recordApplied(Database &db) {
  // An apply of what is applied already writes nothing, and so syncs nothing.
  db.execute("UPDATE store SET applied = generation WHERE applied != generation");
  return db.changes() > 0;
}

}  // namespace zn
