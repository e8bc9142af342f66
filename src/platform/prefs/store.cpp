/*
 * The preferences store: sessions on a store directory, the lock between
 * processes, commit and apply.
 *
 * A store is a directory holding
 *   preferences.db    the committed preferences, their generation and the
 *                     generation last applied (tables.hpp)
 *   preferences.lock  the lock file: only ever locked, never written
 *
 * Guarantees
 *  1. A crash at any point leaves the old state or the new one: a commit is
 *     one SQLite transaction (rollback journal, synchronous=FULL), and a new
 *     store's database is built aside and renamed into place. A commit that
 *     fails leaves the store as it was and the session's changes pending.
 *  2. The lock (flock on preferences.lock; files.hpp says why not fcntl)
 *     serialises every write of the store, between processes and between
 *     sessions of one process. A commit or an apply always holds it, taking
 *     it for itself when its session does not hold it. A thread never waits
 *     for the lock it holds through another session: that fails with
 *     kZNStatusLockFailed.
 *  3. A commit writes only the rows its session changed, and advances the
 *     store's generation by one; a commit of nothing writes nothing. A
 *     session remembers the generation of its snapshot and is "stale" when
 *     the store's differs, i.e. someone committed since the session read. A
 *     stale session can neither lock nor commit until
 *     ZNPreferencesSynchronize has re-read the store, so no commit
 *     overwrites changes it never saw.
 *  4. A database that is not the store's fails the open and is never
 *     written. Only a directory without one gets a new store.
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
 *  - the session's copy is whole (Document::isWhole). Setters check only
 *    the object they change (session.cpp).
 */
#include <sys/stat.h>
#include <unistd.h>

#include <cassert>
#include <cerrno>
#include <cstdint>
#include <limits>

#include "platform/directory/directories.hpp"
#include "platform/engine/apply.hpp"
#include "platform/engine/report.hpp"
#include "platform/prefs/handles.hpp"
#include "platform/prefs/tables.hpp"

namespace {

using zn::fail;

void checkInvariants([[maybe_unused]] ZNPreferences &session) {
#ifndef NDEBUG
  assert(session.document.isWhole());
  assert(!session.lock.held() || zn::storedGeneration(session.db) == session.document.generation);
#endif
}

}  // namespace

namespace zn {

ZNPreferences *openSession(const std::string &directory) {
  if (directory.empty()) fail(kZNStatusInvalidArgument);
  struct stat info;
  if (stat(directory.c_str(), &info) != 0) {
    fail(errno == EACCES ? kZNStatusAccessDenied : kZNStatusNoStore);
  }
  if (!S_ISDIR(info.st_mode)) fail(kZNStatusNoStore);
  // A store the caller may only read opens for reading; a commit then fails.
  if (access(directory.c_str(), R_OK | X_OK) != 0) fail(kZNStatusAccessDenied);
  zn::LockFile lock(directory + "/" + zn::kLockName);
  zn::Database db = zn::openStore(directory, lock);
  zn::Document document = zn::readSnapshot(db);
  auto *session = new ZNPreferences(directory, std::move(lock), std::move(db), std::move(document));
  checkInvariants(*session);
  return session;
}

}  // namespace zn

extern "C" {

ZNPreferencesRef ZNPreferencesCreate(void) noexcept {
  return zn::run(__func__, nullptr, [] {
    const char *directory = ZNStoreGetDirectory();
    if (!directory) fail(kZNStatusFailed);
    std::string path(directory);  // the pointer lives only until the next ZNStoreSetDirectory
    // A failure is left for the open to report, with its own code.
    (void)files::makeDirectories(path);
    return zn::openSession(path);
  });
}

ZNPreferencesRef ZNPreferencesCreateWithStore(const char *directory) noexcept {
  return zn::run(__func__, nullptr, [&] {
    if (!directory) fail(kZNStatusInvalidArgument);
    return zn::openSession(directory);
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
      if (zn::storedGeneration(session.db) != session.document.generation) fail(kZNStatusStale);
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
    // Opened afresh: the store's file may have been replaced since.
    zn::Database db = zn::openStore(session.directory, session.lock);
    zn::Document fresh = zn::readSnapshot(db);
    session.carryLayersTo(fresh);
    session.document = std::move(fresh);
    session.db = std::move(db);
    ++session.epoch;
    checkInvariants(session);
  });
}

Boolean ZNPreferencesCommitChanges(ZNPreferencesRef prefs) noexcept {
  return zn::run(__func__, false, [&] {
    ZNPreferences &session = zn::expectSession(prefs);
    zn::ScopedLock locked(session.lock);
    zn::Transaction write(session.db, zn::Transaction::kWrite);
    const int64_t generation = zn::storedGeneration(session.db);
    if (generation != session.document.generation) fail(kZNStatusStale);
    // Nothing to write; a new generation would make every other session stale for nothing.
    if (!session.document.modified()) return true;
    if (generation == std::numeric_limits<int64_t>::max()) fail(kZNStatusFailed);
    zn::writeChanges(session.db, session.document, generation + 1);
    try {
      write.commit();
    } catch (...) {
      // In the store but perhaps not durable: the session holds what the
      // store holds, and is not stale; the failure is still reported.
      if (write.landed()) session.document.committed(generation + 1);
      throw;
    }
    session.document.committed(generation + 1);
    checkInvariants(session);
    return true;
  });
}

Boolean ZNPreferencesApplyChanges(ZNPreferencesRef prefs) noexcept {
  return zn::run(__func__, false, [&] {
    ZNPreferences &session = zn::expectSession(prefs);
    zn::ScopedLock locked(session.lock);
    const int64_t generation = zn::storedGeneration(session.db);
    const bool recorded = zn::recordApplied(session.db);
    // Applied again with nothing new (a change that applied when its
    // selection changed, then at its end): the engine is in line with this
    // generation and its report still waits to be taken, which is all a
    // second sync would leave behind. On a large store that sync is most
    // of the apply's cost.
    if (!recorded && session.inLine.generation == generation &&
        engine::stillPending(session.inLine.report)) {
      return true;
    }
    session.inLine = {};
    if (engine::applied(session, engine::Depth::changes)) {
      session.inLine = {generation, engine::lastRecorded()};
    }
    return true;
  });
}

int64_t ZNPreferencesGetAppliedGeneration(ZNPreferencesRef prefs) noexcept {
  return zn::run(__func__, 0,
                 [&]() -> int64_t { return zn::appliedGeneration(zn::expectSession(prefs).db); });
}

}  // extern "C"
