// Opening the Coffer's database safely; statements and transactions.
#include "platform/coffer/database.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <random>
#include <thread>

namespace vlt {

namespace {

constexpr sqlite3_int64 kApplicationId = 0x54574346;  // "TWCF": marks a file as a Coffer
constexpr sqlite3_int64 kSchemaVersion = 1;
constexpr auto kBusyTimeout = std::chrono::seconds(5);

constexpr const char *kTables =
    "CREATE TABLE items("
    " id INTEGER PRIMARY KEY,"
    " class TEXT NOT NULL,"
    " service TEXT, account TEXT, label TEXT, description TEXT,"
    " accessible TEXT NOT NULL,"
    " data BLOB NOT NULL,"
    " certificate BLOB NOT NULL,"
    " private_key BLOB NOT NULL,"
    " uniqueness BLOB NOT NULL,"
    " persistent_ref BLOB NOT NULL UNIQUE,"
    " UNIQUE (class, uniqueness));";

// Creates each missing directory of `path` with mode 0700.
bool makeDirectories(const std::string &path) {
  for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
    std::string prefix = path.substr(0, slash);
    if (!prefix.empty() && mkdir(prefix.c_str(), 0700) != 0 && errno != EEXIST) return false;
    if (slash == std::string::npos) break;
  }
  struct stat info {};
  return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// SQLite's own busy handler backs off to sleeps of 100 ms, so the process
// that has waited longest polls least often and loses the lock to every
// newer writer, again and again. A short sleep with jitter gives every
// waiter the same chance at each release.
int waitBriefly(void *waitingSince, int attempt) {
  using Clock = std::chrono::steady_clock;
  auto &since = *static_cast<Clock::time_point *>(waitingSince);
  Clock::time_point now = Clock::now();
  if (attempt == 0) since = now;
  if (now - since >= kBusyTimeout) return 0;
  thread_local std::minstd_rand jitter(static_cast<unsigned>(getpid()) ^
                                       static_cast<unsigned>(now.time_since_epoch().count()));
  std::this_thread::sleep_for(std::chrono::microseconds(500 + jitter() % 1000));
  return 1;
}

}  // namespace

VltStatus statusOf(int result) {
  switch (result) {
    case SQLITE_OK:
    case SQLITE_ROW:
    case SQLITE_DONE:
      return kVltSuccess;
    case SQLITE_CONSTRAINT_UNIQUE:
      return kVltErrorDuplicateItem;
    default:
      return kVltErrorStore;
  }
}

void Statement::bindText(int index, const std::optional<std::string> &text) {
  if (text) {
    sqlite3_bind_text(statement_, index, text->data(), static_cast<int>(text->size()),
                      SQLITE_TRANSIENT);
  } else {
    sqlite3_bind_null(statement_, index);
  }
}

void Statement::bindBlob(int index, std::string_view bytes) {
  // A zero-length blob still binds as a blob, never as NULL.
  sqlite3_bind_blob(statement_, index, bytes.empty() ? "" : bytes.data(),
                    static_cast<int>(bytes.size()), SQLITE_TRANSIENT);
}

void Statement::bindInteger(int index, sqlite3_int64 value) {
  sqlite3_bind_int64(statement_, index, value);
}

std::optional<std::string> Statement::text(int column) const {
  const unsigned char *text = sqlite3_column_text(statement_, column);
  if (!text) return std::nullopt;
  return std::string(reinterpret_cast<const char *>(text),
                     static_cast<size_t>(sqlite3_column_bytes(statement_, column)));
}

std::string Statement::blob(int column) const {
  const void *bytes = sqlite3_column_blob(statement_, column);
  int size = sqlite3_column_bytes(statement_, column);
  return bytes ? std::string(static_cast<const char *>(bytes), static_cast<size_t>(size))
               : std::string();
}

std::string databasePath(const std::string &directory) { return directory + "/coffer.db"; }

VltStatus Database::open(const std::string &directory) {
  if (directory.empty() || !makeDirectories(directory)) return kVltErrorStore;
  std::string path = databasePath(directory);

  // Made here rather than by SQLite so that it never exists with a wider mode.
  int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (fd < 0) return kVltErrorStore;
  ::close(fd);

  int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_NOFOLLOW;
  if (sqlite3_open_v2(path.c_str(), &db_, flags, nullptr) != SQLITE_OK) return kVltErrorStore;
  sqlite3_extended_result_codes(db_, 1);
  sqlite3_busy_handler(db_, waitBriefly, &waitingSince_);
  if (VltStatus status = execute("PRAGMA synchronous = FULL")) return status;
  return ensureSchema();
}

VltStatus Database::readPragma(const char *sql, sqlite3_int64 &value) {
  Statement statement;
  if (VltStatus status = prepare(sql, statement)) return status;
  if (statement.step() != SQLITE_ROW) return kVltErrorStore;
  value = statement.integer(0);
  return kVltSuccess;
}

VltStatus Database::ensureSchema() {
  sqlite3_int64 applicationId = 0;
  if (VltStatus status = readPragma("PRAGMA application_id", applicationId)) return status;
  if (applicationId == 0) {
    Transaction transaction(*this);
    if (VltStatus status = transaction.begin()) return status;
    sqlite3_int64 objects = 0;
    if (VltStatus status = readPragma("PRAGMA application_id", applicationId)) return status;
    if (VltStatus status = readPragma("SELECT count(*) FROM sqlite_master", objects)) {
      return status;
    }
    if (applicationId == 0 && objects == 0) {
      // The journal mode is chosen once, here: a rollback journal is also
      // what every later connection gets by default.
      std::string schema = "PRAGMA journal_mode = DELETE;" + std::string(kTables) +
                           "PRAGMA application_id = " + std::to_string(kApplicationId) +
                           "; PRAGMA user_version = " + std::to_string(kSchemaVersion) + ";";
      if (VltStatus status = execute(schema.c_str())) return status;
      if (VltStatus status = transaction.commit()) return status;
      return kVltSuccess;
    }
  }
  sqlite3_int64 version = 0;
  if (VltStatus status = readPragma("PRAGMA user_version", version)) return status;
  return applicationId == kApplicationId && version == kSchemaVersion ? kVltSuccess
                                                                      : kVltErrorStore;
}

VltStatus Database::prepare(const std::string &sql, Statement &statement) {
  return statusOf(sqlite3_prepare_v2(db_, sql.c_str(), static_cast<int>(sql.size()),
                                     &statement.statement_, nullptr));
}

VltStatus Database::execute(const char *sql) {
  return statusOf(sqlite3_exec(db_, sql, nullptr, nullptr, nullptr));
}

Transaction::~Transaction() {
  if (open_) db_.execute("ROLLBACK");
}

VltStatus Transaction::begin() {
  VltStatus status = db_.execute("BEGIN IMMEDIATE");
  open_ = status == kVltSuccess;
  return status;
}

VltStatus Transaction::commit() {
  VltStatus status = db_.execute("COMMIT");
  if (status == kVltSuccess) open_ = false;
  return status;
}

}  // namespace vlt
