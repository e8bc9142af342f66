// Files of a store directory: whole-file reads, atomic replacement and the
// inter-process lock. Failures throw zn::Failure.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <utility>

namespace zn {

// The failure for errno after a failed file operation.
[[noreturn]] void failFromErrno();

// The whole file into `out`; false when it does not exist.
[[nodiscard]] bool readFile(const std::string &path, std::string &out);

// Replaces directory/name with `contents`: a temporary file in the same
// directory, fsync, rename over the old file, fsync of the directory. A
// crash at any point leaves the old file or the new one. A failure up to
// the rename throws and leaves the old file and no temporary file. After
// the rename the result tells whether the directory sync succeeded: false
// means the new file is in place but may not survive a crash.
[[nodiscard]] bool replaceFile(const std::string &directory, const std::string &name,
                               std::string_view contents);

// Removes a temporary file unless it was renamed into place.
class TemporaryFile {
 public:
  explicit TemporaryFile(std::string path) : path_(std::move(path)) {}
  ~TemporaryFile();
  TemporaryFile(const TemporaryFile &) = delete;
  TemporaryFile &operator=(const TemporaryFile &) = delete;
  const std::string &path() const { return path_; }
  void renamed() { path_.clear(); }

 private:
  std::string path_;
};

// Makes a rename or a new file in `directory` durable; false when the sync
// failed.
[[nodiscard]] bool syncDirectory(const std::string &directory);

// An exclusive lock between processes, held through a dedicated lock file.
//
// flock(2), not fcntl(2) record locks: a record lock belongs to the process
// and vanishes when any descriptor of the file is closed anywhere in it, so
// a library that merely opened and closed the lock file would drop a lock
// another part of the process holds, and two sessions of one process would
// never exclude each other. An flock lock belongs to the open file
// description: each LockFile opens its own, so two of them exclude each
// other in one process as well as across processes, and closing some other
// descriptor of the file leaves the lock alone.
//
// The flip side: one thread holding the lock through one LockFile and
// waiting for it through another would wait forever. A waiting acquire
// therefore fails with kZNStatusLockFailed when the calling thread already
// holds the same lock file; a holder on another thread is waited for.
//
// The file is opened with O_NOFOLLOW: a symbolic link in its place fails
// the open rather than let the store create or lock the link's target.
class LockFile {
 public:
  // Opens (creating) the lock file.
  explicit LockFile(const std::string &path);
  LockFile(LockFile &&other) noexcept;
  LockFile &operator=(LockFile &&) = delete;
  ~LockFile();

  // Takes the lock, waiting for it when `wait` is true; false when another
  // holder has it and `wait` is false. Throws kZNStatusLockFailed rather
  // than wait for a lock the calling thread holds.
  [[nodiscard]] bool acquire(bool wait);
  void release() noexcept;
  bool held() const { return held_; }

 private:
  int fd_ = -1;
  bool held_ = false;
  dev_t device_ = 0;
  ino_t inode_ = 0;
};

// Holds a lock for one scope, unless its owner holds it already.
class ScopedLock {
 public:
  explicit ScopedLock(LockFile &lock) : lock_(lock), taken_(false) {
    if (!lock.held()) taken_ = lock_.acquire(true);
  }
  ~ScopedLock() {
    if (taken_) lock_.release();
  }
  ScopedLock(const ScopedLock &) = delete;
  ScopedLock &operator=(const ScopedLock &) = delete;

 private:
  LockFile &lock_;
  bool taken_;
};

}  // namespace zn
