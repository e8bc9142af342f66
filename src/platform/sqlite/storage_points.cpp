// What SQLite does to the files, as fault points of the testing interface.
//
// Every database the platform opens goes through a file system layer (a
// SQLite VFS) that hands each call to the system's own and first counts the
// ones that change a file: "storage.write", "storage.sync",
// "storage.truncate" and "storage.delete". A test can fail any of them (an
// I/O error at that moment) or stop the process there and kill it, which is
// how a crash is put at every step of a commit, inside SQLite included.
// Untested, a call costs one counter increment.
//
// It differs from the system's in one more way. SQLite opens a rollback
// journal with "create" every time, and syncs the directory after a journal
// it opened so, in case the entry is new. A truncated or persisted
// journal's entry is not: it was synced when the journal was first made.
// Opened without "create" when it is there already, it costs no directory
// sync.
#include <sqlite3.h>

#include <mutex>

#include "platform/sqlite/sqlite.hpp"
#include "platform/testing/fault.hpp"

namespace sql {
namespace {

// Our file, with the system's file right behind it in the same allocation.
struct File {
  sqlite3_file base;
  sqlite3_file *real;
};

sqlite3_vfs *systemVfs = nullptr;

sqlite3_file *realOf(sqlite3_file *file) { return reinterpret_cast<File *>(file)->real; }

// SQLITE_OK, or `failure` when a test planned this call to fail.
int point(const char *name, int failure) { return pt::enter(name) ? failure : SQLITE_OK; }

int closeFile(sqlite3_file *file) { return realOf(file)->pMethods->xClose(realOf(file)); }

int readFile(sqlite3_file *file, void *buffer, int amount, sqlite3_int64 offset) {
  return realOf(file)->pMethods->xRead(realOf(file), buffer, amount, offset);
}

int writeFile(sqlite3_file *file, const void *buffer, int amount, sqlite3_int64 offset) {
  if (int rc = point("storage.write", SQLITE_IOERR_WRITE)) return rc;
  return realOf(file)->pMethods->xWrite(realOf(file), buffer, amount, offset);
}

int truncateFile(sqlite3_file *file, sqlite3_int64 size) {
  if (int rc = point("storage.truncate", SQLITE_IOERR_TRUNCATE)) return rc;
  return realOf(file)->pMethods->xTruncate(realOf(file), size);
}

int syncFile(sqlite3_file *file, int flags) {
  if (int rc = point("storage.sync", SQLITE_IOERR_FSYNC)) return rc;
  return realOf(file)->pMethods->xSync(realOf(file), flags);
}

int fileSize(sqlite3_file *file, sqlite3_int64 *size) {
  return realOf(file)->pMethods->xFileSize(realOf(file), size);
}

int lockFile(sqlite3_file *file, int level) {
  return realOf(file)->pMethods->xLock(realOf(file), level);
}

int unlockFile(sqlite3_file *file, int level) {
  return realOf(file)->pMethods->xUnlock(realOf(file), level);
}

int checkReservedLock(sqlite3_file *file, int *out) {
  return realOf(file)->pMethods->xCheckReservedLock(realOf(file), out);
}

int fileControl(sqlite3_file *file, int op, void *argument) {
  return realOf(file)->pMethods->xFileControl(realOf(file), op, argument);
}

int sectorSize(sqlite3_file *file) { return realOf(file)->pMethods->xSectorSize(realOf(file)); }

int deviceCharacteristics(sqlite3_file *file) {
  return realOf(file)->pMethods->xDeviceCharacteristics(realOf(file));
}

// The shared-memory and memory-map calls exist from version 2 and 3 of a
// file's methods; the system's files have them, checked all the same.
int shmMap(sqlite3_file *file, int region, int size, int extend, void volatile **out) {
  sqlite3_file *real = realOf(file);
  if (real->pMethods->iVersion < 2) return SQLITE_IOERR_SHMMAP;
  return real->pMethods->xShmMap(real, region, size, extend, out);
}

int shmLock(sqlite3_file *file, int offset, int n, int flags) {
  sqlite3_file *real = realOf(file);
  if (real->pMethods->iVersion < 2) return SQLITE_IOERR_SHMLOCK;
  return real->pMethods->xShmLock(real, offset, n, flags);
}

void shmBarrier(sqlite3_file *file) {
  sqlite3_file *real = realOf(file);
  if (real->pMethods->iVersion >= 2) real->pMethods->xShmBarrier(real);
}

int shmUnmap(sqlite3_file *file, int deleteFlag) {
  sqlite3_file *real = realOf(file);
  if (real->pMethods->iVersion < 2) return SQLITE_OK;
  return real->pMethods->xShmUnmap(real, deleteFlag);
}

int fetch(sqlite3_file *file, sqlite3_int64 offset, int amount, void **out) {
  sqlite3_file *real = realOf(file);
  *out = nullptr;
  if (real->pMethods->iVersion < 3) return SQLITE_OK;
  return real->pMethods->xFetch(real, offset, amount, out);
}

int unfetch(sqlite3_file *file, sqlite3_int64 offset, void *pointer) {
  sqlite3_file *real = realOf(file);
  if (real->pMethods->iVersion < 3) return SQLITE_OK;
  return real->pMethods->xUnfetch(real, offset, pointer);
}

const sqlite3_io_methods kMethods = {
    3,
    closeFile,
    readFile,
    writeFile,
    truncateFile,
    syncFile,
    fileSize,
    lockFile,
    unlockFile,
    checkReservedLock,
    fileControl,
    sectorSize,
    deviceCharacteristics,
    shmMap,
    shmLock,
    shmBarrier,
    shmUnmap,
    fetch,
    unfetch,
};

int openReal(const char *name, sqlite3_file *real, int flags, int *outFlags) {
  constexpr int kCreate = SQLITE_OPEN_CREATE;
  if (name && (flags & SQLITE_OPEN_MAIN_JOURNAL) && (flags & kCreate) &&
      !(flags & SQLITE_OPEN_EXCLUSIVE) &&
      systemVfs->xOpen(systemVfs, name, real, flags & ~kCreate, outFlags) == SQLITE_OK) {
    return SQLITE_OK;
  }
  return systemVfs->xOpen(systemVfs, name, real, flags, outFlags);
}

int openFile(sqlite3_vfs *, const char *name, sqlite3_file *file, int flags, int *outFlags) {
  auto *ours = reinterpret_cast<File *>(file);
  ours->real = reinterpret_cast<sqlite3_file *>(ours + 1);
  int rc = openReal(name, ours->real, flags, outFlags);
  // Without methods SQLite never closes the file: neither may we.
  file->pMethods = ours->real->pMethods ? &kMethods : nullptr;
  return rc;
}

int deleteFile(sqlite3_vfs *, const char *name, int syncDirectory) {
  if (int rc = point("storage.delete", SQLITE_IOERR_DELETE)) return rc;
  return systemVfs->xDelete(systemVfs, name, syncDirectory);
}

int accessFile(sqlite3_vfs *, const char *name, int flags, int *out) {
  return systemVfs->xAccess(systemVfs, name, flags, out);
}

int fullPathname(sqlite3_vfs *, const char *name, int size, char *out) {
  return systemVfs->xFullPathname(systemVfs, name, size, out);
}

void *dlOpen(sqlite3_vfs *, const char *name) { return systemVfs->xDlOpen(systemVfs, name); }

void dlError(sqlite3_vfs *, int size, char *out) { systemVfs->xDlError(systemVfs, size, out); }

void (*dlSym(sqlite3_vfs *, void *handle, const char *symbol))() {
  return systemVfs->xDlSym(systemVfs, handle, symbol);
}

void dlClose(sqlite3_vfs *, void *handle) { systemVfs->xDlClose(systemVfs, handle); }

int randomness(sqlite3_vfs *, int size, char *out) {
  return systemVfs->xRandomness(systemVfs, size, out);
}

int sleepFor(sqlite3_vfs *, int microseconds) { return systemVfs->xSleep(systemVfs, microseconds); }

int currentTime(sqlite3_vfs *, double *out) { return systemVfs->xCurrentTime(systemVfs, out); }

int lastError(sqlite3_vfs *, int size, char *out) {
  return systemVfs->xGetLastError(systemVfs, size, out);
}

int currentTimeInt64(sqlite3_vfs *, sqlite3_int64 *out) {
  return systemVfs->xCurrentTimeInt64(systemVfs, out);
}

sqlite3_vfs vfs{};

void registerVfs() {
  systemVfs = sqlite3_vfs_find(nullptr);
  // The system's VFS is of version 3 on every platform SQLite builds for.
  if (!systemVfs || systemVfs->iVersion < 2) return;
  vfs.iVersion = 2;
  vfs.szOsFile = static_cast<int>(sizeof(File)) + systemVfs->szOsFile;
  vfs.mxPathname = systemVfs->mxPathname;
  vfs.zName = kStorageVfs;
  vfs.xOpen = openFile;
  vfs.xDelete = deleteFile;
  vfs.xAccess = accessFile;
  vfs.xFullPathname = fullPathname;
  vfs.xDlOpen = dlOpen;
  vfs.xDlError = dlError;
  vfs.xDlSym = dlSym;
  vfs.xDlClose = dlClose;
  vfs.xRandomness = randomness;
  vfs.xSleep = sleepFor;
  vfs.xCurrentTime = currentTime;
  vfs.xGetLastError = lastError;
  vfs.xCurrentTimeInt64 = currentTimeInt64;
  sqlite3_vfs_register(&vfs, 0);
}

}  // namespace

const char *storageVfs() {
  static std::once_flag registered;
  std::call_once(registered, registerVfs);
  return sqlite3_vfs_find(kStorageVfs) ? kStorageVfs : nullptr;
}

}  // namespace sql
