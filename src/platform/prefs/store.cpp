/*
 * The preferences store: sessions on a store directory, the lock between
 * processes, commit and apply.
 *
 * A store is a directory holding
 *   preferences.json  the committed document (layout in document.hpp)
 *   preferences.lock  the lock file: only ever locked, never written
 *   applied.json      the generation last applied
 *
 * Guarantees
 *  1. A crash at any point leaves the old document or the new one, never a
 *     torn one: a document is only replaced whole (temporary file in the
 *     same directory, fsync, rename over the old one, fsync of the
 *     directory). A commit that fails leaves the old document readable and
 *     no temporary file behind. The same holds for applied.json.
 *  2. The lock (flock on preferences.lock; files.hpp says why not
 *     fcntl) serialises every write of the store, between processes and
 *     between sessions of one process. A commit always holds it, taking it
 *     for itself when its session does not hold it.
 *  3. Every commit increments the document's generation. A session
 *     remembers the generation of its copy and is "stale" when the store's
 *     differs, i.e. someone committed since the session read. A stale
 *     session can neither lock nor commit until ZNPreferencesSynchronize
 *     has re-read the store, so no commit overwrites changes it never saw.
 *  4. A document that cannot be read fails the open and is never replaced.
 *     Only a store without any document gets a new one (generation 1, one
 *     set "Default", current), written under the lock so that every process
 *     sees the same set identifiers.
 *
 * Session states
 *
 *   state      lock held  copy changed  store generation = session's
 *   opened     no         no            yes
 *   modified   either     yes           yes
 *   locked     yes        either        yes
 *   committed  either     no            yes, written by this session
 *   stale      no         either        no
 *
 *   opened, committed  -- any setter ------------------> modified
 *   opened, modified   -- ZNPreferencesLock -----------> locked
 *   stale              -- ZNPreferencesLock -----------> stale (fails, holds no lock)
 *   locked, modified   -- ZNPreferencesCommitChanges --> committed
 *   stale              -- ZNPreferencesCommitChanges --> stale (fails)
 *   locked             -- ZNPreferencesUnlock ---------> opened or modified
 *   not locked         -- another session commits -----> stale
 *   any                -- ZNPreferencesSynchronize ----> opened (locked if it was)
 *
 * Invariants, checked in debug builds after every move:
 *  - a session that holds the lock is not stale (nobody else can commit);
 *  - the session's copy is whole (Document::isWhole).
 */
#include <sys/stat.h>
#include <unistd.h>

#include <cassert>
#include <cerrno>
#include <nlohmann/json.hpp>

#include "platform/prefs/document.hpp"
#include "platform/prefs/handles.hpp"

namespace {

using zn::fail;

// The store's generation now; 0 when it has no document.
int64_t storeGeneration(const std::string &directory) {
  std::string text;
  if (!zn::readFile(zn::storePath(directory, zn::kDocumentName), text)) return 0;
  return zn::parseGeneration(text);
}

void checkInvariants([[maybe_unused]] const ZNPreferences &session) {
#ifndef NDEBUG
  assert(session.document.isWhole());
  assert(!session.lock.held() || storeGeneration(session.directory) == session.document.generation);
#endif
}

// The store's document, made (under the lock) when the store has none.
zn::Document loadStore(const std::string &directory, zn::LockFile &lock) {
  const std::string path = zn::storePath(directory, zn::kDocumentName);
  std::string text;
  if (zn::readFile(path, text)) return zn::parseDocument(text);
  zn::ScopedLock locked(lock);
  if (zn::readFile(path, text)) return zn::parseDocument(text);  // another process was first
  zn::Document document = zn::initialDocument();
  // The document is in place either way; a failed directory sync only
  // means a crash now could bring back the empty store.
  (void)zn::replaceFile(directory, zn::kDocumentName,
                        zn::serializeDocument(document, document.generation));
  return document;
}

ZNPreferences *openSession(const std::string &directory) {
  if (directory.empty()) fail(kZNStatusInvalidArgument);
  struct stat info;
  if (stat(directory.c_str(), &info) != 0) {
    fail(errno == EACCES ? kZNStatusAccessDenied : kZNStatusNoStore);
  }
  if (!S_ISDIR(info.st_mode)) fail(kZNStatusNoStore);
  if (access(directory.c_str(), R_OK | W_OK | X_OK) != 0) fail(kZNStatusAccessDenied);
  zn::LockFile lock(zn::storePath(directory, zn::kLockName));
  zn::Document document = loadStore(directory, lock);
  auto *session = new ZNPreferences(directory, std::move(lock), std::move(document));
  checkInvariants(*session);
  return session;
}

// Like mkdir -p, each new directory private to the user. Failures are left
// for the open to report.
void makeDirectories(const std::string &path) {
  for (size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    mkdir(path.substr(0, slash).c_str(), 0700);
  }
  mkdir(path.c_str(), 0700);
}

}  // namespace

extern "C" {

ZNPreferencesRef ZNPreferencesCreate(void) noexcept {
  return zn::run(__func__, nullptr, [] {
    const char *directory = ZNStoreGetDirectory();
    if (!directory) fail(kZNStatusFailed);
    std::string path(directory);  // the pointer lives only until the next ZNStoreSetDirectory
    makeDirectories(path);
    return openSession(path);
  });
}

ZNPreferencesRef ZNPreferencesCreateWithStore(const char *directory) noexcept {
  return zn::run(__func__, nullptr, [&] {
    if (!directory) fail(kZNStatusInvalidArgument);
    return openSession(directory);
  });
}

const char *ZNPreferencesGetStoreDirectory(ZNPreferencesRef prefs) noexcept {
  return zn::run(__func__, nullptr, [&] { return zn::expectSession(prefs).directory.c_str(); });
}

Boolean ZNPreferencesLock(ZNPreferencesRef prefs, Boolean wait) noexcept {
  return zn::run(__func__, false, [&] {
    ZNPreferences &session = zn::expectSession(prefs);
    if (session.lock.held()) return true;
    if (!session.lock.acquire(wait)) fail(kZNStatusLockFailed);
    try {
      if (storeGeneration(session.directory) != session.document.generation) fail(kZNStatusStale);
    } catch (...) {
      session.lock.release();
      throw;
    }
    checkInvariants(session);
    return true;
  });
}

Boolean ZNPreferencesUnlock(ZNPreferencesRef prefs) noexcept {
  return zn::run(__func__, false, [&] {
    ZNPreferences &session = zn::expectSession(prefs);
    if (!session.lock.held()) fail(kZNStatusNotLocked);
    session.lock.release();
    return true;
  });
}

void ZNPreferencesSynchronize(ZNPreferencesRef prefs) noexcept {
  zn::run(__func__, [&] {
    ZNPreferences &session = zn::expectSession(prefs);
    session.document = loadStore(session.directory, session.lock);
    session.modified = false;
    checkInvariants(session);
  });
}

Boolean ZNPreferencesCommitChanges(ZNPreferencesRef prefs) noexcept {
  return zn::run(__func__, false, [&] {
    ZNPreferences &session = zn::expectSession(prefs);
    zn::ScopedLock locked(session.lock);
    if (storeGeneration(session.directory) != session.document.generation) fail(kZNStatusStale);
    // Nothing to write; a new generation would make every other session stale for nothing.
    if (!session.modified) return true;
    const int64_t next = session.document.generation + 1;
    bool durable =
        zn::replaceFile(session.directory, zn::kDocumentName,
                        zn::serializeDocument(session.document, next), &zn::kCommitFaults);
    // Renamed into place: the store is at `next` whatever the directory sync said.
    session.document.generation = next;
    session.modified = false;
    checkInvariants(session);
    if (!durable) fail(kZNStatusIOError);
    return true;
  });
}

Boolean ZNPreferencesApplyChanges(ZNPreferencesRef prefs) noexcept {
  return zn::run(__func__, false, [&] {
    ZNPreferences &session = zn::expectSession(prefs);
    zn::ScopedLock locked(session.lock);
    const int64_t generation = storeGeneration(session.directory);
    if (generation == 0) fail(kZNStatusCorruptStore);
    nlohmann::json applied{{"generation", generation}};
    if (!zn::replaceFile(session.directory, zn::kAppliedName, applied.dump() + "\n")) {
      fail(kZNStatusIOError);
    }
    return true;
  });
}

int64_t ZNPreferencesGetAppliedGeneration(ZNPreferencesRef prefs) noexcept {
  return zn::run(__func__, 0, [&]() -> int64_t {
    ZNPreferences &session = zn::expectSession(prefs);
    std::string text;
    if (!zn::readFile(zn::storePath(session.directory, zn::kAppliedName), text)) return 0;
    return zn::parseGeneration(text);
  });
}

}  // extern "C"
